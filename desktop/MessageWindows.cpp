#include "desktop/MessageWindows.h"

#include <QtWidgets>
#include <algorithm>
#include <array>

#include "core/record/Preferences.h"
#include "desktop/ScreenInput.h"
#include "desktop/Texts.h"
#include "desktop/X11.h"
#include "ui/MessagePlacement.h"

namespace corvana {

namespace {

constexpr int kTitlePixels = 20;
constexpr int kTextPixels = 12;
constexpr double kUsualPixels = 13;
constexpr int kIconPixels = 48;
constexpr int kIconBorder = 4;
constexpr int kMargin = 12;
constexpr int kGap = 4;
constexpr double kRadius = 10;
constexpr int kCloseSize = 24;
/// Longer lines are hard to read.
constexpr int kComfortableLetters = 80;
constexpr int kEndless = 10000;

/// Dark enough for white letters.
QColor predefinedColour(int number) {
  static constexpr std::array<QRgb, 8> kColours{0xff2f3e50, 0xff1f5a99, 0xff2a6b3f, 0xff9c2f2b,
                                                0xff8a5a00, 0xff5b3f8f, 0xff555555, 0xff1b1b1b};
  const bool known = number >= 0 && number < int(kColours.size());
  return QColor::fromRgb(kColours[known ? std::size_t(number) : 0]);
}

/// The size that goes with letters of the usual size, and more where the user has larger ones.
QFont sized(QFont font, int pixels) {
  const double factor = std::max(1.0, QFontInfo(font).pixelSize() / kUsualPixels);
  font.setPixelSize(int(pixels * factor));
  return font;
}

/// Lines end between words, and within one only when it is longer than a line, as paths may be.
int wrapped(const QFontMetrics& metrics, const QString& text, int width) {
  for (const QString& word : QString(text).replace('\n', ' ').split(' ')) {
    if (metrics.horizontalAdvance(word) > width) return Qt::TextWrapAnywhere;
  }
  return Qt::TextWordWrap;
}

// Of the announce window.
constexpr double kStripOpacity = 0.9;
constexpr double kStripRadius = 4;
constexpr int kStripLetters = 11;
constexpr int kStripMargin = 6;

constexpr int kLongestWaitMs = 500;

}  // namespace

MessageView::Look MessageView::lookOf(const Preferences& preferences, const QImage& icon) {
  Look look;
  look.icon = icon;
  look.colour = preferences.mPrefShowMessageColor;
  look.opacity = preferences.mPrefShowMessageTransparency / 100;
  return look;
}

MessageView::MessageView(bool composed, const QString& title, const QString& text, const Look& look)
    : FloatingWidget(composed, false),
      mTitle(title),
      mText(text),
      mLook(look),
      mTitleFont(sized(font(), kTitlePixels)),
      mTextFont(sized(font(), kTextPixels)) {
  setWindowTitle(title);
  setAccessibleName(title);
  setAccessibleDescription(text);
  const int beside = kIconPixels + 2 * kIconBorder + 2 * kMargin;
  const QFontMetrics titleMetrics(mTitleFont);
  const QFontMetrics textMetrics(mTextFont);
  const int comfortable = kComfortableLetters * textMetrics.averageCharWidth();
  const QRect wide(0, 0, comfortable, kEndless);
  const int oneLine = std::max(titleMetrics.horizontalAdvance(mTitle),
                               textMetrics.boundingRect(wide, Qt::TextWordWrap, mText).width());
  const double wanted = beside + std::min(oneLine + 2, comfortable);
  const int width = int(MessagePlacement::messageWidth(
      wanted, {0, 0, look.widest + MessagePlacement::kMessageMargin, 0}));
  const QRect room(0, 0, std::max(1, width - beside), kEndless);
  mTitleWrap = wrapped(titleMetrics, mTitle, room.width());
  mTextWrap = wrapped(textMetrics, mText, room.width());
  mTitleHeight =
      mTitle.isEmpty() ? 0 : titleMetrics.boundingRect(room, mTitleWrap, mTitle).height();
  const int textHeight =
      mText.isEmpty() ? 0 : textMetrics.boundingRect(room, mTextWrap, mText).height() + kGap;
  resize(width, std::max(mTitleHeight + textHeight, kIconPixels + 2 * kIconBorder) + 2 * kMargin);
  cutToShape(kRadius);
  setOpacity(look.opacity);
}

void MessageView::setColour(int colour, double opacity) {
  mLook.colour = colour;
  setOpacity(opacity);
  update();
}

void MessageView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintGround(painter, predefinedColour(mLook.colour), kRadius);
  const bool mirrored = layoutDirection() == Qt::RightToLeft;
  const int iconSide = kIconPixels + 2 * kIconBorder;
  const QRect iconRoom(mirrored ? width() - kMargin - iconSide : kMargin, kMargin, iconSide,
                       iconSide);
  painter.setRenderHint(QPainter::SmoothPixmapTransform);
  painter.drawImage(iconRoom.adjusted(kIconBorder, kIconBorder, -kIconBorder, -kIconBorder),
                    mLook.icon);
  const int left = mirrored ? kMargin : iconRoom.right() + 1;
  const int textWidth = width() - iconSide - 2 * kMargin;
  painter.setPen(Qt::white);
  painter.setFont(mTitleFont);
  // Alone, the title stands in the middle.
  const int top = mText.isEmpty() ? (height() - mTitleHeight) / 2 : kMargin;
  painter.drawText(QRect(left, top, textWidth, mTitleHeight), int(Qt::AlignLeading) | mTitleWrap,
                   mTitle);
  painter.setFont(mTextFont);
  painter.drawText(QRect(left, top + mTitleHeight + kGap, textWidth, height()),
                   int(Qt::AlignLeading) | mTextWrap, mText);
}

MessageCloseView::MessageCloseView(bool composed, const QString& name)
    : FloatingWidget(composed, true) {
  setAccessibleName(name);
  setToolTip(name);
  resize(kCloseSize, kCloseSize);
  cutToShape(kCloseSize / 2.0);
}

void MessageCloseView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(QPen(Qt::white, 2));
  painter.setBrush(QColor(0x33, 0x33, 0x33));
  painter.drawEllipse(rect().adjusted(2, 2, -2, -2));
  const QRect cross = rect().adjusted(8, 8, -8, -8);
  painter.drawLine(cross.topLeft(), cross.bottomRight());
  painter.drawLine(cross.topRight(), cross.bottomLeft());
}

void MessageCloseView::mouseReleaseEvent(QMouseEvent* event) {
  if (rect().contains(event->position().toPoint()) && onClicked) onClicked();
}

AnnounceView::AnnounceView(bool composed, const QString& title)
    : FloatingWidget(composed, true), mTitle(title) {
  setWindowTitle(title);
  setAccessibleName(title);
  setMovable();
  setOpacity(kStripOpacity);
  QFont letters = font();
  letters.setPixelSize(std::max(kStripLetters, QFontInfo(letters).pixelSize()));
  setFont(letters);
  makeRoom();
}

void AnnounceView::makeRoom() {
  const QFontMetrics metrics(font());
  const int wanted =
      metrics.horizontalAdvance(mTitle) + metrics.horizontalAdvance(mText) + 4 * kStripMargin;
  const int widest = int(ScreenPlace::visibleFrame().width) / 2;
  const int before = width();
  const bool isNew = !testAttribute(Qt::WA_Resized);
  const int wide = std::max(
      {int(MessagePlacement::kAnnounceWidth), isNew ? 0 : before, std::min(wanted, widest)});
  if (!isNew && wide == before) return;
  setFixedSize(wide, std::max(int(MessagePlacement::kAnnounceHeight), metrics.height() + 2));
  cutToShape(kStripRadius);
  if (isVisible()) move(x() - (wide - before), y());
}

void AnnounceView::setProgress(double percent, const QString& text) {
  const double shown = percent >= 0 ? std::min(percent, 100.0) : 0;
  if (shown == mPercent && text == mText) return;
  mPercent = shown;
  mText = text;
  makeRoom();
  update();
}

void AnnounceView::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  paintGround(painter, QColor(0x33, 0x3d, 0x4a), kStripRadius);
  const bool mirrored = layoutDirection() == Qt::RightToLeft;
  const int done = int(width() * mPercent / 100);
  painter.setClipRect(mirrored ? width() - done : 0, 0, done, height());
  paintGround(painter, QColor(0x1f, 0x5a, 0x99), kStripRadius);
  painter.setClipping(false);
  painter.setPen(Qt::white);
  const QFontMetrics metrics(font());
  const QRect room = rect().adjusted(kStripMargin, 0, -kStripMargin, 0);
  // How far it is goes before what it is: the name is known.
  const int textWidth = std::min(metrics.horizontalAdvance(mText), room.width());
  const QString title =
      metrics.elidedText(mTitle, Qt::ElideMiddle, room.width() - textWidth - kStripMargin);
  painter.drawText(room, int(Qt::AlignLeading | Qt::AlignVCenter), title);
  painter.drawText(room, int(Qt::AlignTrailing | Qt::AlignVCenter),
                   metrics.elidedText(mText, Qt::ElideRight, textWidth));
}

MessageWindows::MessageWindows(const X11Screen& screen) : mScreen(screen) {}

MessageWindows::~MessageWindows() = default;

void MessageWindows::open(const MessageWindow& message, const Look& look) {
  close();
  const bool composed = mScreen.hasCompositor();
  MessageView::Look view = look.view;
  view.widest = ScreenPlace::mainScreen().width - MessagePlacement::kMessageMargin;
  mMessageWindow =
      std::make_unique<MessageView>(composed, qt(message.title), qt(message.text), view);
  if (message.closeButton) {
    mMessageCloseWindow = std::make_unique<MessageCloseView>(composed, qt(look.closeName));
    mMessageCloseWindow->onClicked = [this] {
      if (onClosedByUser) onClosedByUser();
    };
  }
  placeMessage(look.position);
  mMessageWindow->show();
  mMessageWindow->raise();
  if (mMessageCloseWindow != nullptr) {
    mMessageCloseWindow->show();
    mMessageCloseWindow->raise();
  }
}

void MessageWindows::setLook(const Look& look) {
  if (mMessageWindow != nullptr) mMessageWindow->setColour(look.view.colour, look.view.opacity);
}

void MessageWindows::placeMessage(const Point& position) {
  if (mMessageWindow == nullptr) return;
  ScreenPlace::move(*mMessageWindow,
                    MessagePlacement::message(mMessageWindow->width(), mMessageWindow->height(),
                                              position, ScreenPlace::visibleFrame()));
  if (mMessageCloseWindow != nullptr) {
    ScreenPlace::move(*mMessageCloseWindow,
                      MessagePlacement::closeButton(ScreenPlace::of(*mMessageWindow)));
  }
}

void MessageWindows::close() {
  // It may be the close button that asks for this.
  if (mMessageCloseWindow != nullptr) {
    mMessageCloseWindow->hide();
    mMessageCloseWindow.release()->deleteLater();
  }
  mMessageWindow.reset();
}

void MessageWindows::paintNow() {
  if (mMessageWindow == nullptr) return;
  QElapsedTimer waited;
  waited.start();
  const QWindow* window = mMessageWindow->windowHandle();
  while (window != nullptr && !window->isExposed() && waited.elapsed() < kLongestWaitMs) {
    QCoreApplication::processEvents(QEventLoop::ExcludeUserInputEvents, 20);
    if (mMessageWindow == nullptr) return;
  }
  mMessageWindow->repaint();
  QGuiApplication::sync();
}

void MessageWindows::openAnnounce(const std::string& title) {
  mAnnounceWindow = std::make_unique<AnnounceView>(mScreen.hasCompositor(), qt(title));
  mAnnounceWindow->onMoved = [this] {
    const Rect place = ScreenPlace::of(*mAnnounceWindow);
    if (onAnnounceMoved) onAnnounceMoved({place.x, place.y});
  };
}

void MessageWindows::closeAnnounce() { mAnnounceWindow.reset(); }

void MessageWindows::setAnnounceProgress(double percent, const std::string& text) {
  if (mAnnounceWindow != nullptr) mAnnounceWindow->setProgress(percent, qt(text));
}

void MessageWindows::arrange(const Point& messagePosition,
                             const std::optional<Point>& announcePosition, bool stack) {
  placeMessage(messagePosition);
  if (mAnnounceWindow == nullptr) return;
  std::optional<Rect> message;
  if (stack && mMessageWindow != nullptr) message = ScreenPlace::of(*mMessageWindow);
  ScreenPlace::move(*mAnnounceWindow, MessagePlacement::announce(
                                          announcePosition, ScreenPlace::visibleFrame(), message,
                                          mAnnounceWindow->width(), mAnnounceWindow->height()));
  if (!mAnnounceWindow->isVisible()) {
    mAnnounceWindow->show();
    mAnnounceWindow->raise();
  }
}

}  // namespace corvana
