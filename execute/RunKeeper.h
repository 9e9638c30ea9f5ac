#pragma once

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "execute/engine/ExecuteControl.h"

namespace corvana {

class TerminationSignals;

/// Keeps an execution from being held by a volume that does not answer. The program becomes two
/// processes at its start: one executes and may be lost, the other touches no volume, waits for its
/// end and ends in the same way. When the first one and what it has started do nothing at all for
/// too long, they are killed and given up, and the second one is left to record that.
///
/// To do nothing is to use no processor, which reading, copying and looking all do, and to say
/// nothing, while the disks rest, too. Time in which the execution is paused or the machine sleeps
/// does not count. Thread: the only one.
class RunKeeper {
 public:
  struct Patience {
    double silence = 600;     ///< seconds without a sign of life
    double stopping = 15;     ///< the same when it is to end
    double untilGivenUp = 5;  ///< from being killed on
    /// The usual one; $CORVANA9_PATIENCE names another number of seconds for `silence`.
    static Patience usual();
  };
  struct End {
    bool isSilent = false;  ///< it was given up
    StopReason stop = StopReason::none;
    int status = 0;  ///< else what waitpid says
  };

  explicit RunKeeper(Patience patience);
  RunKeeper(const RunKeeper&) = delete;
  RunKeeper& operator=(const RunKeeper&) = delete;
  ~RunKeeper();

  /// Makes the second process and returns nothing there: it is to execute. It does not outlive this
  /// one, which gets its end, and hands on to it what the system wants this one to end by.
  std::optional<End> split();
  RunSigns& signs() { return *mSigns; }
  /// Ends this process as that one has ended.
  [[noreturn]] static void endLike(int status);

 private:
  End keep(const TerminationSignals& wishes);
  bool hasSigns();
  void giveUp();

  Patience mPatience;
  RunSigns* mSigns;
  pid_t mChild = 0;
  double mLatestSign = 0;       ///< monotonic
  std::map<pid_t, long> mUsed;  ///< of the processor, then
  std::string mCounts;          ///< of the disks, then
  std::uint64_t mNews = 0;      ///< heard then
};

}  // namespace corvana
