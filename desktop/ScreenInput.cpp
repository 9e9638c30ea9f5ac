#include "desktop/ScreenInput.h"

#include <QtWidgets>
#include <cmath>

namespace corvana {

namespace {

/// Of the evdev codes that index a key map.
constexpr unsigned kCapsLock = 58;

double bottom() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  return screen == nullptr ? 0 : screen->geometry().y() + screen->geometry().height();
}

}  // namespace

void ScreenInput::clearCapsLock(KeyMap& map) const {
  map[kCapsLock / 8] &= static_cast<std::uint8_t>(~(1U << (kCapsLock % 8)));
}

Rect ScreenInput::mainScreen() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  if (screen == nullptr) return {};
  const QRect all = screen->geometry();
  return {double(all.x()), 0, double(all.width()), double(all.height())};
}

Rect ScreenInput::visibleFrame() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  if (screen == nullptr) return {};
  const QRect all = screen->geometry();
  const QRect free = screen->availableGeometry();
  return {double(free.x()), double(all.bottom() - free.bottom()), double(free.width()),
          double(free.height())};
}

namespace ScreenPlace {

bool isOurs() { return !QGuiApplication::platformName().startsWith(QStringLiteral("wayland")); }

Rect mainScreen() { return ScreenInput().mainScreen(); }

Rect visibleFrame() { return ScreenInput().visibleFrame(); }

void move(QWidget& widget, const Point& lowerLeft) {
  widget.move(int(std::lround(lowerLeft.x)),
              int(std::lround(bottom() - lowerLeft.y - widget.height())));
}

Rect of(const QWidget& widget) {
  return {double(widget.x()), bottom() - widget.y() - widget.height(), double(widget.width()),
          double(widget.height())};
}

}  // namespace ScreenPlace

}  // namespace corvana
