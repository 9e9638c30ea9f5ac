#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "platform/UserInterface.h"
#include "ui/MenuItem.h"

namespace corvana {

struct Records;
struct Work;

/// The agent's place in the menu bar: whether it is there, which picture it shows, the title of its
/// menu and its tool tip. It follows what changes. Thread: main.
class StatusItem {
 public:
  StatusItem(Records& records, const Work& work);

  /// Nothing while it exists; nothing while icons are never wanted and neither the main application
  /// runs nor an execution error waits.
  void createStatusItem();
  bool exists() const;

  /// Its turn at tick `n`: shows or hides the item as the user wants it, and draws what the state
  /// asks for; errors, pause and survey results alternate with the normal picture, two ticks a
  /// round. `secondsToNext` draws the count-down and is only given while it is due.
  void turn(std::int64_t n, std::optional<int> secondsToNext);
  /// From when on a turn has something to do.
  ReferenceTime nextTurn() const;

  /// What stands at the top of the menu, and its colour: what holds the scheduler back or that the
  /// running action is stuck, else the running action or the next one.
  std::string shownTitle() const;
  MenuColour titleColour() const;

 private:
  void follow(ChangeSet changes);
  void followErrorState();
  void followPreferences();
  bool isNeeded() const;
  void applyMode();
  void update(std::int64_t n, std::optional<int> secondsToNext);
  void showTexts();
  void setMenuBarIcon(StatusIcon icon);
  void setMenuBarTimerIcon(int minutes);

  Records& m;
  const Work& mWork;
  UserInterface& mUserInterface;
  std::optional<std::pair<StatusIcon, int>> mCurrent;  ///< with its context
  bool mNobodySees = false;                            ///< there is no place for it
  bool mShowsError = false;
  std::string mDrawnTitle;
  std::string mDrawnToolTip;
};

}  // namespace corvana
