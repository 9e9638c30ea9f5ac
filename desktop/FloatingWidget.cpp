#include "desktop/FloatingWidget.h"

#include <QMouseEvent>
#include <QPainter>
#include <QPainterPath>
#include <QRegion>
#include <algorithm>
#include <utility>

namespace corvana {

namespace {

Qt::WindowFlags floatingFlags(bool takesMouse) {
  // Tool tips are in no list of windows, and no window manager has an opinion on them.
  const Qt::WindowFlags flags = Qt::ToolTip | Qt::FramelessWindowHint | Qt::WindowStaysOnTopHint |
                                Qt::WindowDoesNotAcceptFocus | Qt::NoDropShadowWindowHint;
  return takesMouse ? flags : flags | Qt::WindowTransparentForInput;
}

}  // namespace

FloatingWidget::FloatingWidget(bool composed, bool takesMouse)
    : QWidget(nullptr, floatingFlags(takesMouse)), mComposed(composed) {
  setAttribute(Qt::WA_ShowWithoutActivating);
  setAttribute(Qt::WA_QuitOnClose, false);
  setAttribute(Qt::WA_TranslucentBackground, composed);
}

void FloatingWidget::setOpacity(double opacity) {
  if (mComposed) setWindowOpacity(std::clamp(opacity, 0.05, 1.0));
}

void FloatingWidget::paintGround(QPainter& painter, const QColor& colour, double radius) const {
  QLinearGradient gradient(0, 0, 0, height());
  gradient.setColorAt(0, colour.lighter(125));
  gradient.setColorAt(1, colour);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(gradient);
  // A window that is cut to its shape shows all that is within it.
  if (mComposed) {
    painter.drawRoundedRect(rect(), radius, radius);
  } else {
    painter.drawRect(rect());
  }
}

void FloatingWidget::cutToShape(double radius) {
  if (mComposed) return;
  QPainterPath path;
  path.addRoundedRect(rect(), radius, radius);
  setMask(QRegion(path.toFillPolygon().toPolygon()));
}

void FloatingWidget::mousePressEvent(QMouseEvent* event) {
  if (mMovable && event->button() == Qt::LeftButton) mGrip = event->position().toPoint();
}

void FloatingWidget::mouseMoveEvent(QMouseEvent* event) {
  if (!mGrip) return;
  move(event->globalPosition().toPoint() - *mGrip);
  mMoved = true;
}

void FloatingWidget::mouseReleaseEvent(QMouseEvent* /*event*/) {
  mGrip.reset();
  if (std::exchange(mMoved, false) && onMoved) onMoved();
}

void FloatingWidget::mouseDoubleClickEvent(QMouseEvent* /*event*/) {
  mGrip.reset();
  if (onDoubleClick) onDoubleClick();
}

}  // namespace corvana
