#include "desktop/ScreenInput.h"

#include <QGuiApplication>
#include <QScreen>

namespace corvana {

namespace {

/// Of the evdev codes that index a key map.
constexpr unsigned kCapsLock = 58;

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

}  // namespace corvana
