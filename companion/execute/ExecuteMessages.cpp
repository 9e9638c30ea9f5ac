#include "companion/execute/ExecuteMessages.h"

#include <utility>

#include "platform/Clock.h"

namespace corvana {
namespace {
constexpr double kProgressInterval = 0.5;
}

ExecuteMessages::ExecuteMessages(Clock& clock, Post post) : mClock(clock), mPost(std::move(post)) {}

void ExecuteMessages::post(const std::string& object, ZAN_Value userInfo) {
  if (mPost) mPost({"CVA9_SchedulerNotification", object, std::move(userInfo)});
}

void ExecuteMessages::postProgress(const Progress& progress, bool last) {
  const double now = mClock.monotonic();
  if (!last && now < mNextProgress) return;
  mNextProgress = now + kProgressInterval;
  post("ExecuteProgress", ZAN_Value::dictionary({{"CurrentPath", progress.currentPath},
                                                 {"ProgressValue", progress.value},
                                                 {"SizeCopied", progress.sizeCopied},
                                                 {"FilesCopied", progress.filesCopied},
                                                 {"ErrorsCounter", progress.errors}}));
}

void ExecuteMessages::postLogEntry(const ZAN_Value& entry) { post("AddToLog", entry); }

void ExecuteMessages::postHistoryChanged() { post("ActionHistoryChanged", {}); }

void ExecuteMessages::handle(const DistributedNotification& notification, ExecuteControl& control,
                             const std::string& reply) {
  if (notification.object == "ActionStop") {
    control.stop(StopReason::user);
  } else if (notification.object == "ActionStopVolume") {
    control.stop(StopReason::volumeGone);
  } else if (notification.object == "ActionPause") {
    control.setPaused(notification.userInfo["Pause"].boolValue());
  } else if (notification.object == "SkipItem") {
    control.skipItem();
  } else if (notification.object == "AskExecuteReply") {
    post("SurveyReplyNotification", ZAN_Value::dictionary({{"ExecuteReplyMessage", reply}}));
  }
}

}  // namespace corvana
