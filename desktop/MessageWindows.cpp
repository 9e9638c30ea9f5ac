#include "desktop/MessageWindows.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QWindow>

#include "desktop/AnnounceView.h"
#include "desktop/ScreenPlace.h"
#include "desktop/Texts.h"
#include "desktop/X11Screen.h"
#include "ui/MessagePlacement.h"

namespace corvana {

namespace {

constexpr int kLongestWaitMs = 500;

}  // namespace

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
                                          announcePosition, ScreenPlace::visibleFrame(), message));
  if (!mAnnounceWindow->isVisible()) {
    mAnnounceWindow->show();
    mAnnounceWindow->raise();
  }
}

}  // namespace corvana
