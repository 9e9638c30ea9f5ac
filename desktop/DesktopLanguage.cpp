#include "desktop/DesktopLanguage.h"

#include <QtWidgets>

#include "desktop/Texts.h"

namespace corvana {

DesktopLanguage::DesktopLanguage(const std::string& language) {
  const QLocale locale(qt(language));
  if (mWords.load(locale, QStringLiteral("qtbase"), QStringLiteral("_"),
                  QLibraryInfo::path(QLibraryInfo::TranslationsPath))) {
    QCoreApplication::installTranslator(&mWords);
  }
  QGuiApplication::setLayoutDirection(locale.textDirection());
}

}  // namespace corvana
