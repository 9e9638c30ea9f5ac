#pragma once

#include <functional>
#include <memory>
#include <string>

#include "platform/qt/BusConnection.h"

namespace corvana {

/// A notice of the desktop with one button, which stays until it is closed. Without a desktop
/// nobody sees it. Thread: main.
class SkipOffer {
 public:
  struct Texts {
    std::string title;
    std::string text;
    std::string button;
  };

  /// `chosen` is called when the user presses the button. The connection outlives this object.
  SkipOffer(BusConnection& connection, Texts texts, std::function<void()> chosen);
  SkipOffer(const SkipOffer&) = delete;
  SkipOffer& operator=(const SkipOffer&) = delete;
  ~SkipOffer();

  void open();
  void close();

 private:
  class Private;
  std::unique_ptr<Private> mPrivate;
};

}  // namespace corvana
