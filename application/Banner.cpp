#include "application/Banner.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QPainter>
#include <QVBoxLayout>
#include <utility>

namespace corvana {

Banner::Banner(QWidget* parent)
    : QFrame(parent),
      mMark(new QLabel),
      mTitle(new TextLabel({}, Look::Size::heading)),
      mText(new TextLabel({}, Look::Size::body, Look::Meaning::muted)),
      mButton(makeButton({}, [this] {
        if (mPressed) mPressed();
      })) {
  auto* row = new QHBoxLayout(this);
  const int margin = Look::space(4);
  row->setContentsMargins(margin, margin, margin, margin);
  row->setSpacing(Look::space(4));
  row->addWidget(mMark, 0, Qt::AlignVCenter);
  auto* words = new QVBoxLayout;
  words->setSpacing(Look::space(1) / 2);
  words->addStretch(1);
  words->addWidget(mTitle);
  words->addWidget(mText);
  words->addStretch(1);
  row->addLayout(words, 1);
  row->addWidget(mButton, 0, Qt::AlignVCenter);
}

void Banner::say(Look::Meaning meaning, const QString& title, const QString& text,
                 const QString& button, std::function<void()> pressed) {
  mPressed = std::move(pressed);
  mMeaning = meaning;
  Look::set(this, meaning == Look::Meaning::good      ? "well-good"
                  : meaning == Look::Meaning::caution ? "well-caution"
                  : meaning == Look::Meaning::bad     ? "well-bad"
                                                      : "well-accent");
  setAccessibleName(text.isEmpty() ? title : title + QStringLiteral(": ") + text);
  mTitle->setText(title);
  mText->setText(text);
  mText->setVisible(!text.isEmpty());
  mButton->setText(button);
  mButton->setVisible(!button.isEmpty());
  drawMark();
}

void Banner::changeEvent(QEvent* event) {
  QFrame::changeEvent(event);
  if (event->type() == QEvent::PaletteChange) drawMark();
}

void Banner::drawMark() {
  const int size = Look::space(9);
  const double scale = devicePixelRatioF();
  QPixmap disc(QSize(size, size) * scale);
  disc.setDevicePixelRatio(scale);
  disc.fill(Qt::transparent);
  QPainter painter(&disc);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  painter.setBrush(Look::colour(mMeaning));
  painter.drawEllipse(QRectF(0, 0, size, size));
  const QString file = mMeaning == Look::Meaning::good     ? QStringLiteral("emblem-ok")
                       : mMeaning == Look::Meaning::accent ? QStringLiteral("media-playback-start")
                                                           : QStringLiteral("dialog-warning");
  const int inner = size * 6 / 10;
  const QPixmap sign = Look::ink(file, inner, Look::cardColour());
  painter.drawPixmap(QPoint((size - inner) / 2, (size - inner) / 2), sign);
  painter.end();
  mMark->setPixmap(disc);
}

}  // namespace corvana
