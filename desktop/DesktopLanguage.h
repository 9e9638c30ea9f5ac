#pragma once

#include <QTranslator>
#include <string>

namespace corvana {

/// What Qt itself says, and the direction in which everything is laid out, in the language of the
/// program's texts. Thread: main.
class DesktopLanguage {
 public:
  /// "de", "pt_BR". Without Qt's words for it, those stay English.
  explicit DesktopLanguage(const std::string& language);

 private:
  QTranslator mWords;
};

}  // namespace corvana
