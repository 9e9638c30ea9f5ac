#include "desktop/ScreenPlace.h"

#include <QGuiApplication>
#include <QScreen>
#include <QWidget>
#include <cmath>

#include "desktop/ScreenInput.h"

namespace corvana::ScreenPlace {

namespace {

double bottom() {
  const QScreen* screen = QGuiApplication::primaryScreen();
  return screen == nullptr ? 0 : screen->geometry().y() + screen->geometry().height();
}

}  // namespace

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

}  // namespace corvana::ScreenPlace
