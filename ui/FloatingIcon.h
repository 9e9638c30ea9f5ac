#pragma once

#include "core/record/Deadline.h"
#include "platform/Input.h"

namespace corvana {

class Clock;
class Preferences;
class StatusItem;
class UserInterface;
struct SchedulerState;

/// The small icon that floats above other windows, and what the pointer in the menu bar brings up.
/// Thread: main.
class FloatingIcon {
 public:
  FloatingIcon(Clock& clock, UserInterface& userInterface, SchedulerState& state,
               Preferences& preferences, StatusItem& statusItem);

  /// Shows or hides it as the user prefers: mode 0 always, 2 never, others leave it as it is.
  void applyMode();
  /// The pointer rests at `pointer`: in the right third of the menu bar it brings up what is shown
  /// on hover; elsewhere a visible floating icon goes when its time is over.
  void hover(const Point& pointer, const Rect& screen, const Rect& visibleFrame);
  /// Whether nothing comes of a pointer that stays there.
  bool rests(const Point& pointer, const Rect& screen, const Rect& visibleFrame) const;

 private:
  void show();

  Clock& mClock;
  UserInterface& mUserInterface;
  Preferences& mPreferences;
  StatusItem& mStatusItem;
  Deadline mCloseFloatingIcon;
};

}  // namespace corvana
