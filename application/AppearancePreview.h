#pragma once

#include <QPixmap>
#include <QWidget>

#include "desktop/PictureStore.h"

namespace corvana {

class Household;
class Preferences;

/// A desktop in small, with icon, floating icon and a message as the agent shows them, drawn by the
/// same painters. Thread: main.
class AppearancePreview final : public QWidget {
 public:
  /// `preferences` outlive it.
  AppearancePreview(Household& household, const Preferences& preferences);

  /// Takes over what the preferences are now.
  void load();
  int heightForWidth(int width) const override;

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QPixmap floatingIcon();

  Household& mHousehold;
  const Preferences& mPreferences;
  PictureStore mPictures;
  QPixmap mMessage;
  QPixmap mFloating;
};

}  // namespace corvana
