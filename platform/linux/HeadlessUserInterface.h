#pragma once

#include "platform/Input.h"
#include "platform/RunLoop.h"
#include "platform/UserInterface.h"

namespace corvana {

/// A user interface without a screen: what there is to be told goes line by line to a log, what is
/// only for the eye is dropped, and a question is answered as a careful user would who is not
/// there: not confirmed.
class HeadlessUserInterface final : public UserInterface {
 public:
  /// `log` takes one line without its end; `wantsWindows`: only for want of a desktop there are
  /// none.
  HeadlessUserInterface(RunLoop& runLoop, std::function<void(const std::string&)> log,
                        bool wantsWindows = false);

  bool showsMessages() const override { return false; }
  void openMessageWindow(const MessageWindow& message) override;
  void closeMessageWindow() override {}
  void paintNow() override {}
  void openAnnounceWindow(const std::string& title) override;
  void closeAnnounceWindow() override {}
  void setAnnounceProgress(double /*value*/, const std::string& /*text*/) override {}
  void deliverNotification(const std::string& title, const std::string& text,
                           const std::string& button) override;

  void createStatusItem() override {}
  void removeStatusItem() override {}
  bool hasStatusItem() const override { return false; }
  void setStatusIcon(StatusIcon /*icon*/, int /*context*/) override {}
  void setStatusCountDown(int /*minutes*/, int /*context*/) override {}
  void setStatusTitle(const std::string& text) override;
  void setToolTip(const std::string& /*text*/) override {}
  void changed(ChangeSet /*what*/) override {}
  void rearrangeMessageWindows() override {}
  void popUpFloatingMenu() override {}

  /// No window can be seen, so none is visible: what waits for one to be closed does not wait here.
  /// That of stray folders stands until they are gone, which hides it by itself.
  void showWindow(Window window) override { setVisible(window, true); }
  void showWindowQuietly(Window window) override { setVisible(window, true); }
  void hideWindow(Window window) override { setVisible(window, false); }
  bool isWindowVisible(Window window) const override {
    return window == Window::volumesFolderError && mStrayFolders;
  }
  void bringWindowsToFront() override {}
  void setFloatingIconOpacity(double /*percent*/) override {}
  void setActionExecuted(std::int64_t /*sizeCopied*/, int /*progress*/,
                         std::int64_t /*errors*/) override {}

  bool moveTo(const std::map<std::string, std::string>& desktop) override;

  void ask(Window window, const std::string& title, const std::string& text,
           std::function<void(bool)> answer) override;
  void askWhich(const std::string& title, const std::string& text,
                const std::array<std::string, 2>& choices,
                std::function<void(std::optional<int>)> answer) override;
  void alert(const std::string& title, const std::string& text, const std::string& button) override;

 private:
  void setVisible(Window window, bool visible) {
    if (window == Window::volumesFolderError) mStrayFolders = visible;
  }
  void tell(const std::string& what, const std::string& title, const std::string& text);

  RunLoop& mRunLoop;
  std::function<void(const std::string&)> mLog;
  bool mWantsWindows;
  std::string mStatusTitle;
  bool mStrayFolders = false;
};

/// A session without keyboard, pointer and screen: nobody can be seen to be away, so the user is
/// there.
class NoInput final : public Input {
 public:
  KeyMap keyMap() override { return {}; }
  void clearCapsLock(KeyMap& /*map*/) const override {}
  bool optionKeyDown() override { return false; }
  bool mouseButtonDown() override { return false; }
  std::optional<Point> pointer() override { return std::nullopt; }
  Rect mainScreen() override { return {}; }
  Rect visibleFrame() override { return {}; }
  std::optional<double> idleSeconds() override { return std::nullopt; }
  /// There is nothing to be told.
  bool observe(std::function<void()> /*used*/) override { return true; }
};

}  // namespace corvana
