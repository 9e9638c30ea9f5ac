#include "ui/FloatingIcon.h"

#include "core/record/Preferences.h"
#include "core/record/SchedulerState.h"
#include "platform/Clock.h"
#include "platform/UserInterface.h"
#include "ui/StatusItem.h"

namespace corvana {

namespace {

constexpr int kAlways = 0;
constexpr int kOnHover = 1;
constexpr int kNever = 2;
constexpr double kKeepFloatingIcon = 7.0;
constexpr double kKeepStatusItem = 10.0;
/// Where the right third of the menu bar begins, in parts of the screen's width.
constexpr double kRightThird = 0.67;

bool isHoverPlace(const Point& pointer, const Rect& screen, const Rect& visibleFrame) {
  return pointer.y > menuBarBottom(screen, visibleFrame) &&
         pointer.x > screen.x + kRightThird * screen.width;
}

}  // namespace

FloatingIcon::FloatingIcon(Clock& clock, UserInterface& userInterface, SchedulerState& state,
                           Preferences& preferences, StatusItem& statusItem)
    : mClock(clock),
      mUserInterface(userInterface),
      mPreferences(preferences),
      mStatusItem(statusItem),
      mCloseFloatingIcon(state.deadlines) {}

void FloatingIcon::applyMode() {
  mUserInterface.setFloatingIconOpacity(mPreferences.mPrefFloatingIconTransparency);
  if (mPreferences.mShowFloatingIconMode == kNever) mUserInterface.hideWindow(Window::floatingIcon);
  if (mPreferences.mShowFloatingIconMode == kAlways) show();
}

void FloatingIcon::show() {
  mUserInterface.setFloatingIconOpacity(mPreferences.mPrefFloatingIconTransparency);
  mUserInterface.showWindow(Window::floatingIcon);
}

void FloatingIcon::hover(const Point& pointer, const Rect& screen, const Rect& visibleFrame) {
  const ReferenceTime now = mClock.now();
  if (isHoverPlace(pointer, screen, visibleFrame)) {
    if (mPreferences.mShowFloatingIconMode == kOnHover) {
      if (!mUserInterface.isWindowVisible(Window::floatingIcon)) show();
      mCloseFloatingIcon.set(now + kKeepFloatingIcon);
    }
    if (mPreferences.mShowIconMenuMode == kOnHover) {
      mStatusItem.createStatusItem();
      mStatusItem.canHide().set(now + kKeepStatusItem);
    }
  } else if (mPreferences.mShowFloatingIconMode != kAlways && mCloseFloatingIcon.isPassed(now) &&
             mUserInterface.isWindowVisible(Window::floatingIcon)) {
    mUserInterface.hideWindow(Window::floatingIcon);
  }
}

bool FloatingIcon::rests(const Point& pointer, const Rect& screen, const Rect& visibleFrame) const {
  if (isHoverPlace(pointer, screen, visibleFrame)) return false;
  return mPreferences.mShowFloatingIconMode == kAlways ||
         !mUserInterface.isWindowVisible(Window::floatingIcon);
}

}  // namespace corvana
