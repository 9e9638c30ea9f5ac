#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "companion/execute/ExecuteControl.h"
#include "platform/DistributedNotifications.h"

namespace corvana {

class Clock;

/// What the execute program says to the agent while it works, and what it obeys. Thread: `post…`
/// the one that copies, `handle` the main one.
class ExecuteMessages {
 public:
  using Post = std::function<void(const DistributedNotification&)>;

  /// `post` may be called on the thread that copies. Empty: nobody is there to be told.
  ExecuteMessages(Clock& clock, Post post);

  struct Progress {
    std::string currentPath;
    double value = 0;  ///< 0 to 100
    std::uint64_t sizeCopied = 0;
    std::uint64_t filesCopied = 0;
    std::uint64_t errors = 0;
  };
  /// At most twice a second; what comes between is dropped, unless it is the last word.
  void postProgress(const Progress& progress, bool last);
  void postLogEntry(const ZAN_Value& entry);
  /// The history or the results have changed.
  void postHistoryChanged();

  /// A message for the execute program: "ActionStop", "ActionStopVolume", "ActionPause",
  /// "SkipItem", "AskExecuteReply"; others concern windows, and there are none.
  void handle(const DistributedNotification& notification, ExecuteControl& control,
              const std::string& reply);

 private:
  void post(const std::string& object, ZAN_Value userInfo);

  Clock& mClock;
  Post mPost;
  double mNextProgress = 0;
};

}  // namespace corvana
