#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <initializer_list>
#include <map>
#include <optional>
#include <string>

namespace corvana {

/// What of the agent may have changed, for those who show it or tell others of it. They are told
/// that it has, and read what they need.
enum class Change : unsigned {
  queue,         ///< what waits for execution, and in which order
  nextActions,   ///< the list of next actions
  execution,     ///< enabled, paused, running, in which context; whether a failure waits to be seen
  statusLine,    ///< the line that says what holds the scheduler up
  progress,      ///< how far the running execution is
  history,       ///< what was executed
  tree,          ///< the actions themselves
  volumes,       ///< what is mounted and what can be
  strayFolders,  ///< what is said of them
  messages,      ///< the list of the last notices
  preferences,
  survey  ///< what the execution survey says
};

/// Some of them.
class ChangeSet {
 public:
  ChangeSet() = default;
  ChangeSet(std::initializer_list<Change> changes) {
    for (const Change change : changes) add(change);
  }

  void add(Change change) { mBits |= bit(change); }
  bool has(Change change) const { return (mBits & bit(change)) != 0; }
  bool hasAnyOf(ChangeSet others) const { return (mBits & others.mBits) != 0; }
  bool empty() const { return mBits == 0; }
  ChangeSet without(ChangeSet others) const {
    ChangeSet rest = *this;
    rest.mBits &= ~others.mBits;
    return rest;
  }
  bool operator==(const ChangeSet&) const = default;

 private:
  static unsigned bit(Change change) { return 1U << static_cast<unsigned>(change); }

  unsigned mBits = 0;
};

/// The windows that the duties show, hide and ask about.
enum class Window {
  queue,
  nextActions,
  latestActions,
  status,
  mountVolumes,
  allDisks,
  volumesFolderError,
  lowSpace,
  startupDisk,
  errorSummary,
  executionSurvey,
  preferences,
  update,
  floatingIcon
};

/// The variables of the environment that lead to a desktop.
inline constexpr std::array<const char*, 4> kDesktopVariables{
    "DISPLAY", "XAUTHORITY", "WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP"};

struct MessageWindow {
  std::string title;
  std::string text;
  double seconds = 0;
  bool closeButton = false;
};

/// Which picture the status item shows.
enum class StatusIcon {
  normal,
  disabled,
  diskChanged,
  willDisable,
  running,
  pause,
  surveyResult,
  lacking,  ///< nothing has failed, but something cannot be copied
  error
};

/// What the agent shows, as the duties see it: they say what is to be seen, not how it is drawn.
/// Nothing here waits for the user; an answer comes back by a call-back. Thread: main.
class UserInterface {
 public:
  virtual ~UserInterface() = default;

  /// Whether a message window comes onto a screen, where somebody may read it.
  virtual bool showsMessages() const = 0;
  virtual void openMessageWindow(const MessageWindow& message) = 0;
  virtual void closeMessageWindow() = 0;
  /// Makes what was asked for visible now: for a message shown just before the main thread blocks.
  virtual void paintNow() = 0;
  /// The strip that names the action about to run.
  virtual void openAnnounceWindow(const std::string& title) = 0;
  virtual void closeAnnounceWindow() = 0;
  virtual void setAnnounceProgress(double value, const std::string& text) = 0;
  /// A notice of the desktop; `button` may be empty.
  virtual void deliverNotification(const std::string& title, const std::string& text,
                                   const std::string& button) = 0;

  virtual void createStatusItem() = 0;
  virtual void removeStatusItem() = 0;
  virtual bool hasStatusItem() const = 0;
  virtual void setStatusIcon(StatusIcon icon, int context) = 0;
  /// The pie of the count-down; more than 59 minutes shows the plain icon. `seconds` to the next
  /// action.
  virtual void setStatusCountDown(int minutes, int context) = 0;
  virtual void setStatusTitle(const std::string& text) = 0;
  virtual void setToolTip(const std::string& text) = 0;
  /// What windows and menus show of these has changed and is to be read again; once for all that
  /// changes in a pass of the loop.
  virtual void changed(ChangeSet what) = 0;
  virtual void rearrangeMessageWindows() = 0;
  virtual void popUpFloatingMenu() = 0;

  /// The user wants it: it comes to the front and takes the keyboard.
  virtual void showWindow(Window window) = 0;
  /// The agent itself has something to show: the window comes up without taking the keyboard from
  /// whatever the user types into; one that is up already stays where it is.
  virtual void showWindowQuietly(Window window) = 0;
  virtual void hideWindow(Window window) = 0;
  virtual bool isWindowVisible(Window window) const = 0;
  /// The text that a window of text shows, such as the one of all disks; dropped where
  /// there is none.
  virtual void setWindowText(Window /*window*/, const std::string& /*text*/) {}
  virtual void bringWindowsToFront() = 0;
  virtual void setFloatingIconOpacity(double percent) = 0;
  /// Size copied so far in bytes (-1: none yet), progress and errors of the running action.
  virtual void setActionExecuted(std::int64_t sizeCopied, int progress, std::int64_t errors) = 0;

  /// Asks, and calls back with true for the confirming answer.
  virtual void ask(Window window, const std::string& title, const std::string& text,
                   std::function<void(bool)> answer) = 0;
  /// Asks which of two things is to be done, and calls back with 0 or 1; with nothing for neither.
  virtual void askWhich(const std::string& title, const std::string& text,
                        const std::array<std::string, 2>& choices,
                        std::function<void(std::optional<int>)> answer) = 0;
  /// Where its windows are, as names and values of the environment; empty for one without windows.
  virtual std::map<std::string, std::string> desktop() const { return {}; }
  /// Of one that has lost its desktop, or never found it: the next start of the program looks for
  /// windows there. False when it has windows or is not to have any.
  virtual bool moveTo(const std::map<std::string, std::string>& /*desktop*/) { return false; }

  /// An alert that leaves nothing to decide.
  virtual void alert(const std::string& title, const std::string& text,
                     const std::string& button) = 0;
};

}  // namespace corvana
