#pragma once

#include <functional>
#include <memory>
#include <string>

#include "desktop/MessageView.h"
#include "platform/Input.h"
#include "platform/UserInterface.h"

namespace corvana {

class AnnounceView;
class X11Screen;

/// The message that is up, and the strip of the announce window. Thread: main.
class MessageWindows {
 public:
  struct Look {
    MessageView::Look view;
    Point position{50, 10};
    std::string closeName;
  };

  explicit MessageWindows(const X11Screen& screen);
  MessageWindows(const MessageWindows&) = delete;
  MessageWindows& operator=(const MessageWindows&) = delete;
  ~MessageWindows();

  std::function<void()> onClosedByUser;
  /// The user has put the announce window somewhere else.
  std::function<void(const Point&)> onAnnounceMoved;

  void open(const MessageWindow& message, const Look& look);
  void close();
  bool isOpen() const { return mMessageWindow != nullptr; }
  /// Colour and opacity of the message that is up.
  void setLook(const Look& look);
  /// Returns when what was opened can be seen, or soon without that.
  void paintNow();

  void openAnnounce(const std::string& title);
  void closeAnnounce();
  void setAnnounceProgress(double percent, const std::string& text);
  /// Puts the windows where they belong; `stack` keeps the announce window off the message.
  void arrange(const Point& messagePosition, const std::optional<Point>& announcePosition,
               bool stack);

 private:
  void placeMessage(const Point& position);

  const X11Screen& mScreen;
  std::unique_ptr<MessageView> mMessageWindow;
  std::unique_ptr<MessageCloseView> mMessageCloseWindow;
  std::unique_ptr<AnnounceView> mAnnounceWindow;
};

}  // namespace corvana
