#include "ui/LaunchRefusal.h"

#include "ZANCocoaFramework/ZAN_StringTable.h"

namespace corvana {

std::string launchRefusal(const ZAN_StringTable& texts, const std::string& title,
                          const Error& error) {
  switch (error.kind) {
    case ErrorKind::refused:
      return texts.text("WindowNotByHand", {title});
    case ErrorKind::unavailable:
      return texts.text("WindowVolumesMissing", {title});
    default:
      return texts.text("WindowActionGone");
  }
}

}  // namespace corvana
