#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "execute/engine/ExecuteControl.h"
#include "platform/DistributedNotifications.h"

namespace corvana {

class Clock;
class ZAN_StringTable;
class ZAN_StringUtils;

/// What the execute program says to the agent while it works, and what it obeys. Thread: `post…`
/// the one that copies, `handle` the main one.
class ExecuteMessages {
 public:
  using Post = std::function<void(const DistributedNotification&)>;
  /// How much it tells while it works. Detailed: of every item that it comes upon, as far as that
  /// can be followed. Very detailed: that, and each item on the standard output.
  enum Mode { usual = 0, detailed = 1, veryDetailed = 2 };

  /// `post` may be called on the thread that copies. Empty: nobody is there to be told.
  ExecuteMessages(Clock& clock, Post post);

  using Progress = ExecuteProgress;
  /// At most twice a second; what comes between is dropped, unless it is the last word. In the
  /// detailed modes at most fifty times a second, and only when there is another path.
  void postProgress(const Progress& progress, bool last);
  void postLogEntry(const ZAN_Value& entry);
  /// The history or the results have changed.
  void postHistoryChanged();

  /// The mode of the execution survey; unknown ones count as the nearest. Thread: any.
  void setMode(std::int64_t mode);
  Mode mode() const { return mMode; }

  /// What it makes its answer to "AskExecuteReply" from.
  struct Words {
    const ZAN_StringTable& texts;
    const ZAN_StringUtils& strings;
    std::int64_t reference;  ///< of the action
  };
  /// A message for the execute program: "ActionStop", "ActionStopVolume", "ActionPause",
  /// "SkipItem", "SetExecutionMode", "AskExecuteReply"; others concern windows, and there are none.
  void handle(const DistributedNotification& notification, ExecuteControl& control,
              const Words& words);

 private:
  std::string reply(const Words& words) const;
  void post(const std::string& object, ZAN_Value userInfo);

  Clock& mClock;
  Post mPost;
  double mNextProgress = 0;
  std::atomic<Mode> mMode = usual;
  mutable std::mutex mMutex;  ///< guards what follows
  Progress mLatest;
  std::string mPostedPath;  ///< of the last report; of the thread that copies
};

}  // namespace corvana
