#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "core/record/Deadline.h"
#include "platform/UserInterface.h"
#include "ui/MenuItem.h"

namespace corvana {

class Clock;
class Preferences;
class ZAN_StringTable;
struct SchedulerState;

/// The agent's place in the menu bar: whether it is there, which picture it shows and the title of
/// its menu. Thread: main.
class StatusItem {
 public:
  StatusItem(Clock& clock, UserInterface& userInterface, SchedulerState& state,
             Preferences& preferences, const ZAN_StringTable& texts);

  /// Whether an execution runs; asked when the picture is chosen.
  std::function<bool()> isExecuting;
  /// Whether a result of the folder survey waits to be seen.
  std::function<bool()> hasSurveyResult;

  /// Nothing while it exists; nothing while icons are never wanted and neither the main application
  /// runs nor an execution error waits.
  void createStatusItem();
  void removeStatusItem();
  /// One that is never wanted came for the error alone.
  void errorsWereSeen();
  bool exists() const { return mUserInterface.hasStatusItem(); }

  /// It may not be hidden before.
  Deadline& canHide() { return mCanHideMenubarIcon; }
  /// Creates or removes the item as the user wants it: mode 3 leaves it alone, otherwise it stays
  /// while `isNeeded`.
  void applyMode(bool isNeeded);

  /// Draws what the state asks for, at tick `n`: errors, pause and survey results alternate with
  /// the normal picture, two ticks a round. `secondsToNext` draws the count-down and is only given
  /// while it is due.
  void update(std::int64_t n, std::optional<int> secondsToNext);
  /// The next picture is set even when it looks the same.
  void forgetCurrentIcon() { mCurrent.reset(); }

  /// The text at the top of the menu; nothing repeats the last one. What holds the scheduler back
  /// goes first.
  void setStatusTitle(std::optional<std::string> text);
  const std::string& statusTitle() const { return mStatusTitle; }
  /// What stands there now, and its colour.
  const std::string& shownTitle() const { return mShownTitle; }
  MenuColour titleColour() const;

 private:
  void setMenuBarIcon(StatusIcon icon);
  void setMenuBarTimerIcon(int minutes);

  Clock& mClock;
  UserInterface& mUserInterface;
  SchedulerState& mState;
  Preferences& mPreferences;
  const ZAN_StringTable& mTexts;
  Deadline mCanHideMenubarIcon;
  std::optional<StatusIcon> mCurrent;
  std::string mStatusTitle;
  std::string mShownTitle;
};

}  // namespace corvana
