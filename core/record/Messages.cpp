#include "core/record/Messages.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/TextFiles.h"
#include "core/record/Changes.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerLog.h"
#include "platform/Platform.h"

namespace corvana {

namespace {

constexpr double kShortestDisplay = 2.0;
constexpr double kLongestDisplay = 3600.0;
constexpr double kLongestHold = 60.0;
constexpr double kLongestRow = 120.0;
/// The next one comes at the tick after the last; a launch needs a longer gap.
constexpr double kGapOfARow = 2.0;
constexpr double kStandardDisplay = 5.0;
constexpr std::size_t kNotificationsBeforeInsertion = 20;
constexpr int kFirstSystemWithNotifications = 100800;
constexpr std::string_view kLastNotifications = "SchedulerPrefLastNotifications";

}  // namespace

Messages::Messages(const Platform& platform, Changes& changes, DeadlineList& deadlines,
                   Preferences& preferences, SchedulerLog& log, TextFiles& files,
                   const ZAN_StringUtils& strings)
    : mClock(platform.clock),
      mRunLoop(platform.runLoop),
      mMachine(platform.machine),
      mUserInterface(platform.userInterface),
      mChanges(changes),
      mPreferences(preferences),
      mLog(log),
      mFiles(files),
      mStrings(strings),
      mEndOfMessage(deadlines),
      mEndOfHold(deadlines),
      mEndOfRow(-kGapOfARow - 1) {
  mLog.showStandardMessage = [this](const std::string& text, int logCode) {
    displayStandardMessage(text, logCode);
  };
}

void Messages::displayStandardMessage(const std::string& text, int logCode) {
  if (logCode != 0) {
    mLog.addSchedulerLog(ZAN_Value::dictionary({{"N", text}, {"C", logCode}}));
    remember(text);
  }
  mFiles.addToReportFile(text);
  if (mPreferences.mPrefShowMessageInNotificationCenter == 0) {
    showMessage(text, {}, kStandardDisplay, true);
  } else {
    sendUserNotification(text);
  }
}

std::vector<std::string> Messages::lastNotifications() const {
  ZAN_Value stored = mPreferences.prefForKey(kLastNotifications);
  if (stored.isData()) {
    auto list = ZAN_Unarchiver::unarchiveObjectWithData(stored.bytes());
    stored = list ? *list : ZAN_Value();
  }
  std::vector<std::string> texts;
  for (const ZAN_Value& text : stored.elements()) {
    if (text.isString()) texts.push_back(text.string());
  }
  return texts;
}

void Messages::remember(const std::string& text) {
  std::vector<std::string> texts = lastNotifications();
  if (texts.size() > kNotificationsBeforeInsertion) texts.resize(kNotificationsBeforeInsertion);
  ZAN_Value list = ZAN_Value::array();
  list.append(ZAN_StringUtils::format("%@ - %@", {mStrings.getShortTimeDate(mClock.now()), text}));
  for (const std::string& earlier : texts) list.append(earlier);
  mPreferences.setPref(kLastNotifications,
                       ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(list)));
  // A failure to save is logged by the store; the list stands for this run.
  mPreferences.savePrefs();
  mChanges.note(Change::messages);
}

void Messages::sendUserNotification(const std::string& text, const std::string& button) {
  mRunLoop.performOnMain([this, text, button] { notificationWithMessage(text, button); });
}

void Messages::notificationWithMessage(const std::string& text, const std::string& button) {
  if (mPreferences.mPrefShowMessageInNotificationCenter == 0) return;
  if (mMachine.systemVersion() < kFirstSystemWithNotifications) return;
  mUserInterface.deliverNotification("Corvana 9", text, button);
}

int Messages::showMessage(const std::string& title, const std::string& text, double seconds,
                          bool closeButton, Origin origin) {
  return show({title, text, seconds, closeButton}, false, origin);
}

void Messages::takeBack(int number) {
  if (isShown() && mShownNumber == number) {
    closeMessageWindow();
  } else {
    std::erase_if(mPendingMessages,
                  [number](const Numbered& message) { return message.number == number; });
  }
}

void Messages::showMessageImmediatly(const std::string& title, const std::string& text,
                                     double seconds, bool closeButton) {
  show({title, text, seconds, closeButton}, true, Origin::thisMachine);
}

int Messages::show(MessageWindow window, bool immediatly, Origin origin) {
  window.seconds = std::isnan(window.seconds)
                       ? kShortestDisplay
                       : std::clamp(window.seconds, kShortestDisplay, kLongestDisplay);
  Numbered message{++mLastNumber, origin, std::move(window)};
  if (isShown()) {
    mPendingMessages.push_back(std::move(message));
  } else {
    openMessageWindow(std::move(message), immediatly);
  }
  return mLastNumber;
}

void Messages::showNextPendingMessage() {
  if (mPendingMessages.empty()) return;
  Numbered message = std::move(mPendingMessages.front());
  mPendingMessages.pop_front();
  openMessageWindow(std::move(message), false);
}

void Messages::openMessageWindow(Numbered message, bool immediatly) {
  closeMessageWindow();
  mShownNumber = message.number;
  mEndOfMessage.set(mClock.now() + message.window.seconds);
  mUserInterface.openMessageWindow(message.window);
  if (message.origin == Origin::thisMachine && mUserInterface.showsMessages())
    holdLaunching(message.window.seconds);
  if (immediatly) mUserInterface.paintNow();
}

void Messages::holdLaunching(double seconds) {
  const double monotonic = mClock.monotonic();
  if (monotonic - mEndOfRow > kGapOfARow) mStartOfRow = monotonic;
  const double leftOfRow = mStartOfRow + kLongestRow - monotonic;
  const double held = std::min({seconds, kLongestHold, leftOfRow});
  mEndOfRow = monotonic + held;
  mEndOfHold.set(mClock.now() + held);
}

ReferenceTime Messages::holdsLaunchingUntil() const {
  return mEndOfHold.isSet() ? mEndOfHold.passing() : kAtOnce;
}

void Messages::closeMessageWindow() {
  if (!isShown()) return;
  mEndOfMessage.clear();
  mEndOfRow = std::min(mEndOfRow, mClock.monotonic());
  mEndOfHold.clear();
  mUserInterface.closeMessageWindow();
}

}  // namespace corvana
