#pragma once

#include <QImage>
#include <memory>

#include "desktop/FloatingWidget.h"
#include "platform/Input.h"
#include "platform/UserInterface.h"

namespace corvana {

class Preferences;
class X11Screen;

/// A message above all windows, which clicks go through. Thread: main.
class MessageView final : public FloatingWidget {
 public:
  struct Look {
    int colour = 0;  ///< number of a predefined colour
    double opacity = 1;
    QImage icon;
    double widest = 0;  ///< of the window
  };

  /// As the preferences want it; how wide it may be is left open.
  static Look lookOf(const Preferences& preferences, const QImage& icon);

  MessageView(bool composed, const QString& title, const QString& text, const Look& look);

  void setColour(int colour, double opacity);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  QString mTitle;
  QString mText;
  Look mLook;
  QFont mTitleFont;
  QFont mTextFont;
  int mTitleHeight = 0;
  int mTitleWrap = 0;  ///< flags of Qt
  int mTextWrap = 0;
};

/// The button that closes a message, a window of its own. Thread: main.
class MessageCloseView final : public FloatingWidget {
 public:
  MessageCloseView(bool composed, const QString& name);
  std::function<void()> onClicked;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
};

/// The strip with the title of the running action and how far it is. Thread: main.
class AnnounceView final : public FloatingWidget {
 public:
  AnnounceView(bool composed, const QString& title);

  void setProgress(double percent, const QString& text);

 protected:
  void paintEvent(QPaintEvent* event) override;

 private:
  /// As wide as both texts need, and never narrower than before; its right edge stays.
  void makeRoom();

  QString mTitle;
  QString mText = QStringLiteral("0");
  double mPercent = 0;
};

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
