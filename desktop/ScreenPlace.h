#pragma once

#include <QPoint>

#include "platform/Input.h"

class QWidget;

namespace corvana {

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
