#include "execute/ExecuteMessages.h"

#include <algorithm>
#include <utility>

#include "actions/ActionsTools.h"
#include "platform/Clock.h"

namespace corvana {

namespace {
constexpr double kProgressInterval = 0.5;
constexpr double kDetailedInterval = 0.02;
}  // namespace

ExecuteMessages::ExecuteMessages(Clock& clock, Post post) : mClock(clock), mPost(std::move(post)) {}

void ExecuteMessages::post(const std::string& object, ZAN_Value userInfo) {
  if (mPost) mPost({"CVA9_SchedulerNotification", object, std::move(userInfo)});
}

void ExecuteMessages::postProgress(const Progress& progress, bool last) {
  const bool isUsual = mMode == usual;
  {
    const std::lock_guard lock(mMutex);
    mLatest = progress;
  }
  const double now = mClock.monotonic();
  if (!last && now < mNextProgress) return;
  if (!last && !isUsual && mPostedPath == progress.currentPath) return;
  mPostedPath = progress.currentPath;
  mNextProgress = now + (isUsual ? kProgressInterval : kDetailedInterval);
  ZAN_Value report = ZAN_Value::dictionary({{"CurrentPath", progress.currentPath},
                                            {"ProgressValue", progress.value},
                                            {"SizeCopied", progress.sizeCopied},
                                            {"FilesCopied", progress.filesCopied},
                                            {"ErrorsCounter", progress.errors}});
  if (progress.isPlanning) {
    report.setValue(ProgressKey::itemsSeen, progress.itemsSeen);
  } else {
    report.setValue(ProgressKey::bytesToCopy, progress.bytesToCopy);
    report.setValue(ProgressKey::filesToCopy, progress.filesToCopy);
    if (progress.bytesPerSecond > 0)
      report.setValue(ProgressKey::bytesPerSecond, progress.bytesPerSecond);
    if (progress.secondsLeft >= 0) report.setValue(ProgressKey::secondsLeft, progress.secondsLeft);
  }
  post("ExecuteProgress", std::move(report));
}

void ExecuteMessages::postLogEntry(const ZAN_Value& entry) { post("AddToLog", entry); }

void ExecuteMessages::postHistoryChanged() { post("ActionHistoryChanged", {}); }

void ExecuteMessages::setMode(std::int64_t mode) {
  mMode = static_cast<Mode>(std::clamp<std::int64_t>(mode, usual, veryDetailed));
}

std::string ExecuteMessages::reply(const Words& words) const {
  const Mode mode = mMode;
  const std::lock_guard lock(mMutex);
  if (mode == usual || mLatest.currentPath.empty())
    return words.texts.text("SurveyReplyAction", {words.reference});
  if (mode == detailed)
    return words.texts.text("SurveyReplyPath", {words.reference, mLatest.currentPath});
  return words.texts.text("SurveyReplyCounts",
                          {words.reference, mLatest.currentPath,
                           words.strings.getUnsignedWithSeparators(mLatest.filesCopied),
                           words.strings.getShortSizeBytes(mLatest.sizeCopied),
                           words.strings.getUnsignedWithSeparators(mLatest.errors)});
}

void ExecuteMessages::handle(const DistributedNotification& notification, ExecuteControl& control,
                             const Words& words) {
  if (notification.object == "ActionStop") {
    control.stop(StopReason::user);
  } else if (notification.object == "ActionStopVolume") {
    control.stop(StopReason::volumeGone);
  } else if (notification.object == "ActionPause") {
    control.setPaused(notification.userInfo["Pause"].boolValue());
  } else if (notification.object == "SkipItem") {
    control.skipItem();
  } else if (notification.object == "SetExecutionMode") {
    setMode(notification.userInfo.integer("ExecutionMode"));
  } else if (notification.object == "AskExecuteReply") {
    post("SurveyReplyNotification", ZAN_Value::dictionary({{"ExecuteReplyMessage", reply(words)}}));
  }
}

}  // namespace corvana
