#pragma once

#include <QIcon>
#include <QImage>
#include <deque>

#include "ui/StatusItem.h"

namespace corvana {

/// The pictures of the resources, at 1x and 2x. Thread: main.
class PictureStore {
 public:
  /// Of messages and of the floating icon.
  static constexpr const char* kLogo = "logo_cva_dialogs";

  explicit PictureStore(std::string resourcesFolder);

  /// Null images where the resource is missing. `scale` is 1 or 2.
  QImage image(const std::string& name, int scale) const;
  /// What the status item shows, both sizes in one icon. The last few are remembered, since icons
  /// that blink come again and again.
  QIcon icon(const StatusPicture& picture);
  QIcon icon(const std::string& name) const;

 private:
  QImage compose(const StatusPicture& picture, int scale) const;

  std::string mFolder;
  std::deque<std::pair<StatusPicture, QIcon>> mLast;
};

}  // namespace corvana
