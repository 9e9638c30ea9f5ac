#pragma once

#include <deque>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "core/record/Deadline.h"
#include "platform/UserInterface.h"

namespace corvana {

class Changes;
class Clock;
class Machine;
class Preferences;
class RunLoop;
class SchedulerLog;
class TextFiles;
struct Platform;

/// What the agent tells the user: small message windows, one at a time, or notices of the desktop,
/// and the list of the last ones. Thread: main, except where said.
class Messages {
 public:
  /// Who has something to say.
  enum class Origin { thisMachine, otherMachine };

  Messages(const Platform& platform, Changes& changes, DeadlineList& deadlines,
           Preferences& preferences, SchedulerLog& log, TextFiles& files,
           const ZAN_StringUtils& strings);

  /// A message of the agent with everything that belongs to it: with a code other than 0 an entry
  /// of the scheduler log and a line of the last notifications, always a line in the day's report,
  /// and then a message window of 5 s, or a notice of the desktop when the user prefers those.
  void displayStandardMessage(const std::string& text, int logCode);

  /// Nothing unless the user wants notices of the desktop. Delivered from the main loop, not within
  /// the call. Thread: any.
  void sendUserNotification(const std::string& text, const std::string& button = {});

  /// Opens a message window, or lets the message wait while one is up. From 2 s to an hour; what is
  /// no number counts as 2 s. The number is for `takeBack`.
  int showMessage(const std::string& title, const std::string& text, double seconds,
                  bool closeButton, Origin origin = Origin::thisMachine);
  /// Closes that message if it is up; it does not come if it waits. Nothing when it is over.
  void takeBack(int number);
  /// The same, and the window is painted before the call returns.
  void showMessageImmediatly(const std::string& title, const std::string& text, double seconds,
                             bool closeButton);
  /// Opens the first waiting message in place of whatever is up.
  void showNextPendingMessage();
  void closeMessageWindow();

  /// A message window is up.
  bool isShown() const { return mEndOfMessage.isSet(); }
  /// When the time of the message window that is up is over.
  ReferenceTime endOfMessage() const { return isShown() ? mEndOfMessage.passing() : kNever; }
  bool hasPending() const { return !mPendingMessages.empty(); }
  /// Until when nothing is launched, so that the message can be read first; kAtOnce: nothing is in
  /// the way. One message holds launches back for 60 s at most, several in a row for two minutes;
  /// one that nobody can see, or that came from another machine, not at all.
  ReferenceTime holdsLaunchingUntil() const;

  /// Newest first, at most 21 texts "date - message".
  std::vector<std::string> lastNotifications() const;

 private:
  void remember(const std::string& text);
  struct Numbered {
    int number;
    Origin origin;
    MessageWindow window;
  };

  int show(MessageWindow window, bool immediatly, Origin origin);
  void holdLaunching(double seconds);
  void openMessageWindow(Numbered message, bool immediatly);
  void notificationWithMessage(const std::string& text, const std::string& button);

  const Clock& mClock;
  RunLoop& mRunLoop;
  Machine& mMachine;
  UserInterface& mUserInterface;
  Changes& mChanges;
  Preferences& mPreferences;
  SchedulerLog& mLog;
  TextFiles& mFiles;
  const ZAN_StringUtils& mStrings;
  std::deque<Numbered> mPendingMessages;
  int mLastNumber = 0;
  int mShownNumber = 0;    ///< of the message that is or was up last
  Deadline mEndOfMessage;  ///< 0 while no message window is up
  Deadline mEndOfHold;     ///< 0 while the one that is up holds nothing back
  /// Since when, in monotonic seconds, messages have held launches back without a gap, and until
  /// when.
  double mStartOfRow = 0;
  double mEndOfRow = 0;
};

}  // namespace corvana
