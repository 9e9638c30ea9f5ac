#include "desktop/AnnounceView.h"

#include <QFontInfo>
#include <QFontMetrics>
#include <QPainter>
#include <algorithm>

#include "ui/MessagePlacement.h"

namespace corvana {

namespace {

constexpr double kOpacity = 0.9;
constexpr double kRadius = 4;
constexpr int kLeastLetters = 11;
constexpr int kMargin = 6;

}  // namespace

AnnounceView::AnnounceView(bool composed, const QString& title)
    : FloatingWidget(composed, true), mTitle(title) {
  setWindowTitle(title);
  setAccessibleName(title);
  setMovable();
  setFixedSize(int(MessagePlacement::kAnnounceWidth), int(MessagePlacement::kAnnounceHeight));
  cutToShape(kRadius);
  setOpacity(kOpacity);
  // As large as the user's own, as far as the height of the strip allows.
  QFont letters = font();
  int pixels = std::max(kLeastLetters, QFontInfo(letters).pixelSize());
  do {
    letters.setPixelSize(pixels);
  } while (QFontMetrics(letters).height() > height() && --pixels >= kLeastLetters);
  setFont(letters);
}

void AnnounceView::setProgress(double percent, const QString& text) {
  const double shown = percent >= 0 ? std::min(percent, 100.0) : 0;
  if (shown == mPercent && text == mText) return;
  mPercent = shown;
  mText = text;
  update();
}

void AnnounceView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintGround(painter, QColor(0x33, 0x3d, 0x4a), kRadius);
  const bool mirrored = layoutDirection() == Qt::RightToLeft;
  const int done = int(width() * mPercent / 100);
  painter.setClipRect(mirrored ? width() - done : 0, 0, done, height());
  paintGround(painter, QColor(0x1f, 0x5a, 0x99), kRadius);
  painter.setClipping(false);
  painter.setPen(Qt::white);
  const QFontMetrics metrics(font());
  const QRect room = rect().adjusted(kMargin, 0, -kMargin, 0);
  const int textWidth = std::min(metrics.horizontalAdvance(mText), room.width() / 2);
  const QString title =
      metrics.elidedText(mTitle, Qt::ElideMiddle, room.width() - textWidth - kMargin);
  painter.drawText(room, int(Qt::AlignLeading | Qt::AlignVCenter), title);
  painter.drawText(room, int(Qt::AlignTrailing | Qt::AlignVCenter),
                   metrics.elidedText(mText, Qt::ElideRight, textWidth));
}

}  // namespace corvana
