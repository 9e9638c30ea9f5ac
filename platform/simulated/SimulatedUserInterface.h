#pragma once

#include <set>
#include <utility>

#include "platform/Input.h"
#include "platform/RunLoop.h"
#include "platform/UserInterface.h"

namespace corvana {

/// A keyboard, a pointer and a screen of 1440 × 900 with a panel of 24 at its top; all set freely.
class SimulatedInput final : public Input {
 public:
  static constexpr int kCapsLock = 58;

  explicit SimulatedInput(RunLoop& runLoop) : mRunLoop(runLoop) {}

  KeyMap keyMap() override { return keys; }
  void clearCapsLock(KeyMap& map) const override { set(map, kCapsLock, false); }
  bool optionKeyDown() override { return optionKey; }
  bool mouseButtonDown() override { return mouseButton; }
  std::optional<Point> pointer() override { return position; }
  Rect mainScreen() override { return screen; }
  Rect visibleFrame() override { return visible; }
  std::optional<double> idleSeconds() override { return idle; }
  bool observe(std::function<void()> used) override {
    mUsed = std::move(used);
    return tellsOfUse;
  }

  /// The user does something after a rest, which the observer hears from the loop.
  void use() {
    if (!tellsOfUse) return;
    mRunLoop.performOnMain([this] {
      const auto used = mUsed;
      if (used) used();
    });
  }
  void press(int key) {
    set(keys, key, true);
    use();
  }
  void release(int key) { set(keys, key, false); }

  KeyMap keys{};
  bool optionKey = false;
  bool mouseButton = false;
  std::optional<Point> position = Point{400, 300};
  Rect screen{0, 0, 1440, 900};
  Rect visible{0, 0, 1440, 876};
  std::optional<double> idle;
  bool tellsOfUse = false;  ///< whether the system does

 private:
  static void set(KeyMap& map, int key, bool down) {
    auto& byte = map.at(static_cast<std::size_t>(key) / 8);
    const auto bit = static_cast<std::uint8_t>(1U << (static_cast<unsigned>(key) % 8));
    byte = static_cast<std::uint8_t>(down ? byte | bit : byte & ~bit);
  }

  RunLoop& mRunLoop;
  std::function<void()> mUsed;
};

/// A screen that remembers: what is shown now, and what was shown so far.
class SimulatedUserInterface final : public UserInterface {
 public:
  struct Notification {
    std::string title;
    std::string text;
    std::string button;
    bool operator==(const Notification&) const = default;
  };
  struct Question {
    Window window = Window::queue;
    std::string title;
    std::string text;
  };

  explicit SimulatedUserInterface(RunLoop& runLoop) : mRunLoop(runLoop) {}

  bool showsMessages() const override { return screen; }
  void openMessageWindow(const MessageWindow& shown) override;
  void closeMessageWindow() override { message.reset(); }
  void paintNow() override { ++paints; }
  void openAnnounceWindow(const std::string& title) override;
  void closeAnnounceWindow() override { announce.reset(); }
  void setAnnounceProgress(double value, const std::string& text) override;
  void deliverNotification(const std::string& title, const std::string& text,
                           const std::string& button) override;

  void createStatusItem() override { statusItem = true; }
  void removeStatusItem() override { statusItem = false; }
  bool hasStatusItem() const override { return statusItem; }
  void setStatusIcon(StatusIcon icon, int context) override;
  void setStatusCountDown(int minutes, int context) override;
  void setStatusTitle(const std::string& text) override;
  void setToolTip(const std::string& text) override { toolTip = text; }
  void changed(ChangeSet what) override { changes.push_back(what); }
  void rearrangeMessageWindows() override { ++rearrangements; }
  void popUpFloatingMenu() override { ++floatingMenus; }

  void showWindow(Window window) override;
  void showWindowQuietly(Window window) override;
  void hideWindow(Window window) override;
  bool isWindowVisible(Window window) const override { return windows.contains(window); }
  void setWindowText(Window window, const std::string& text) override { texts[window] = text; }
  void bringWindowsToFront() override { ++broughtToFront; }
  void setFloatingIconOpacity(double percent) override { floatingIconOpacity = percent; }
  void setActionExecuted(std::int64_t sizeCopied, int progress, std::int64_t errors) override;

  /// The answer comes through the loop; a question whose window has no answer set stays open until
  /// `answer`.
  void ask(Window window, const std::string& title, const std::string& text,
           std::function<void(bool)> answer) override;
  void askWhich(const std::string& title, const std::string& text,
                const std::array<std::string, 2>& choices,
                std::function<void(std::optional<int>)> answer) override;
  void alert(const std::string& title, const std::string& text, const std::string& button) override;

  /// What the user answers to every later question of that window; nothing lets it wait.
  void setAnswer(Window window, std::optional<bool> answer);
  /// Answers the oldest question of that window that waits; false when there is none.
  bool answer(Window window, bool confirmed);
  /// The same for the question which of two things it is to be.
  bool answerWhich(std::optional<int> choice);

  bool screen = true;                    ///< there is one
  std::optional<MessageWindow> message;  ///< the message window that is open
  std::vector<MessageWindow> messages;   ///< every one that was opened
  int paints = 0;
  std::optional<std::string> announce;
  std::vector<std::string> announces;
  std::optional<std::pair<double, std::string>> announceProgress;
  std::vector<Notification> notifications;
  bool statusItem = false;
  std::optional<std::pair<StatusIcon, int>>
      statusIcon;                                ///< with its context; nothing: a count-down
  std::optional<std::pair<int, int>> countDown;  ///< minutes with context; nothing: an icon
  std::vector<StatusIcon> statusIcons;
  std::string statusTitle;
  std::vector<std::string> statusTitles;  ///< each change
  std::string toolTip;
  std::vector<ChangeSet> changes;  ///< each time that something was drawn again
  int rearrangements = 0;
  int floatingMenus = 0;
  int broughtToFront = 0;
  std::set<Window> windows;  ///< those visible now
  std::set<Window> quiet;    ///< of them those that came up by themselves
  std::map<Window, std::string> texts;
  double floatingIconOpacity = 100;
  std::int64_t sizeCopied = -1;
  int progress = 0;
  std::int64_t errors = 0;
  std::vector<Question> questions;  ///< every one that was asked
  std::vector<Notification> alerts;

 private:
  RunLoop& mRunLoop;
  std::map<Window, bool> mAnswers;
  std::vector<std::pair<Window, std::function<void(bool)>>> mWaiting;
  std::function<void(std::optional<int>)> mWhich;
};

}  // namespace corvana
