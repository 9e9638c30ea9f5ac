#pragma once

#include <sys/types.h>

#include <cstdint>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class CommandHome;
class RunningAgent;

/// Has the execute program do what is wanted of copies (VersionRequest says what a request and its
/// answer are made of), and follows it: `begin`, then `look` every so often. What changes or
/// occupies something is done between the agent's own executions where the agent runs, else at
/// once. Thread: any, one.
class CopiesRequest {
 public:
  /// How long to wait from one look to the next, in seconds.
  static constexpr double kInterval = 0.05;

  /// Of the action of that reference; 0: of no action. `request` has the "kind".
  CopiesRequest(CommandHome& home, std::int64_t reference, ZAN_Value request);
  CopiesRequest(const CopiesRequest&) = delete;
  CopiesRequest& operator=(const CopiesRequest&) = delete;
  /// What has not ended goes on; only nobody hears of it.
  ~CopiesRequest();

  Outcome begin();
  /// The answer once it is done and the agent knows that too, or why there is none; nothing while
  /// it goes on.
  std::optional<Result<ZAN_Value>> look();
  /// What the execute program has said so far; null before it has begun.
  const ZAN_Value& latest() const { return mLatest; }
  /// What it waits for, in words; empty when for nothing.
  const std::string& hold() const { return mHold; }
  /// Ends it: what has not begun never will, what goes on is told to stop, which is then seen by
  /// `look`.
  void stop();

 private:
  bool isForAgent() const;
  Outcome write();
  Outcome beginByAgent();
  Outcome beginByItself();
  void readAnswer();
  bool isStillSeen();
  std::optional<Error> endSeenByAgent();
  Result<ZAN_Value> finished();

  CommandHome& mHome;
  std::int64_t mReference;
  ZAN_Value mRequest;
  std::string mName;
  std::string mFile;
  ZAN_Value mLatest;
  std::string mHold;
  std::unique_ptr<RunningAgent> mAgent;  ///< that does it; null: a child of our own
  std::optional<pid_t> mChild;
  bool mWasQueued = false;
  int mLooksWithoutAgent = 0;
  double mNextLook = 0;
  std::optional<double> mDoneSince;
};

}  // namespace corvana
