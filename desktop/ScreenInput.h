#pragma once

#include <QPoint>

#include "platform/Input.h"

class QWidget;

namespace corvana {

/// The screens of a desktop that lets nobody see keyboard and pointer.
class ScreenInput : public Input {
 public:
  KeyMap keyMap() override { return {}; }
  void clearCapsLock(KeyMap& map) const override;
  bool optionKeyDown() override { return false; }
  bool mouseButtonDown() override { return false; }
  std::optional<Point> pointer() override { return std::nullopt; }
  Rect mainScreen() override;
  Rect visibleFrame() override;
  std::optional<double> idleSeconds() override { return std::nullopt; }
  bool observe(std::function<void()> /*used*/) override { return false; }
};

/// Between the coordinates of `Input`, which grow upwards, and those of Qt.
namespace ScreenPlace {

/// Whether windows stand where this program puts them; under Wayland the desktop decides.
bool isOurs();
Rect mainScreen();
Rect visibleFrame();
/// The widget's lower left corner comes there.
void move(QWidget& widget, const Point& lowerLeft);
Rect of(const QWidget& widget);

}  // namespace ScreenPlace

}  // namespace corvana
