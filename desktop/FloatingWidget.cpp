#include "desktop/FloatingWidget.h"

#include <QtWidgets>
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

constexpr int kIconPixels = 32;
constexpr int kMargin = 6;
constexpr int kLetters = 11;
constexpr double kLettersPart = 0.9;
constexpr int kWidestLetters = 40;
constexpr double kRadius = 8;

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

FloatingIconView::FloatingIconView(bool composed, const QIcon& icon)
    : FloatingWidget(composed, true), mIcon(icon) {
  setMovable();
  QFont letters = font();
  // A little smaller than those of the windows.
  letters.setPixelSize(std::max(kLetters, int(QFontInfo(letters).pixelSize() * kLettersPart)));
  setFont(letters);
  setLines({});
}

void FloatingIconView::setLines(const QStringList& lines) {
  if (lines == mLines && width() > kIconPixels) return;
  mLines = lines;
  const QFontMetrics metrics(font());
  int widest = 0;
  for (const QString& line : mLines) {
    widest = std::max(widest, std::min(metrics.horizontalAdvance(line) + 1,
                                       kWidestLetters * metrics.averageCharWidth()));
  }
  const int beside = mLines.isEmpty() ? 0 : widest + kMargin;
  const int text = int(mLines.size()) * metrics.lineSpacing();
  // Its right edge stays, since it mostly stands at the right of the screen.
  const int right = x() + width();
  resize(kIconPixels + 2 * kMargin + beside, std::max(kIconPixels, text) + 2 * kMargin);
  if (isVisible()) move(right - width(), y());
  cutToShape(kRadius);
  setWindowTitle(mLines.value(0));
  setAccessibleName(mLines.join('\n'));
  update();
}

void FloatingIconView::setProgress(int percent, bool errors) {
  if (percent == mPercent && errors == mErrors) return;
  mPercent = percent;
  mErrors = errors;
  update();
}

void FloatingIconView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintGround(painter, QColor(0x33, 0x3d, 0x4a), kRadius);
  const bool mirrored = layoutDirection() == Qt::RightToLeft;
  const QRect icon(mirrored ? width() - kMargin - kIconPixels : kMargin, kMargin, kIconPixels,
                   kIconPixels);
  mIcon.paint(&painter, icon);
  if (mPercent >= 0) {
    painter.setBrush(Qt::NoBrush);
    painter.setPen(QPen(mErrors ? QColor(0xff, 0x6b, 0x60) : QColor(0x7c, 0xd9, 0x92), 3));
    painter.drawArc(icon.adjusted(-2, -2, 2, 2), 90 * 16, -mPercent * 360 * 16 / 100);
  }
  painter.setPen(Qt::white);
  const QFontMetrics metrics(font());
  const int room = width() - 3 * kMargin - kIconPixels;
  int top = kMargin;
  for (const QString& line : mLines) {
    painter.drawText(
        QRect(mirrored ? kMargin : icon.right() + 1 + kMargin, top, room, metrics.lineSpacing()),
        int(Qt::AlignLeading | Qt::AlignVCenter), metrics.elidedText(line, Qt::ElideRight, room));
    top += metrics.lineSpacing();
  }
}

void FloatingIconView::contextMenuEvent(QContextMenuEvent* event) {
  if (onMenu) onMenu(event->globalPos());
}

}  // namespace corvana
