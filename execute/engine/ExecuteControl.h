#pragma once

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "execute/engine/ExecuteEnd.h"

namespace corvana {

/// Why a run is to end before it is done.
enum class StopReason { none, user, volumeGone, sessionEnd };

/// What a process that executes tells the one that keeps it, in memory that both see.
struct RunSigns {
  std::atomic<pid_t> thread = 0;  ///< the one that executes, as the system numbers it
  std::atomic<bool> paused = false;
  std::atomic<StopReason> stop = StopReason::none;
  std::atomic<std::uint64_t> news = 0;  ///< of programs that speak when they get on
};

inline constexpr std::string_view kSessionEnded = "the session of the user ended";

/// What others want of a running copy: stop it, pause it, leave the current item out. Asked for on
/// the main thread, by messages and signals, and obeyed by the thread that copies. Thread: any.
class ExecuteControl {
 public:
  /// `signs`: where others see that it is paused or to end.
  explicit ExecuteControl(RunSigns* signs = nullptr);

  /// The first reason stays.
  void stop(StopReason reason);
  void setPaused(bool paused);
  void skipItem();

  StopReason stopReason() const { return mStop; }
  /// How a run ends that is to end; nothing when it may go on. `gone`: which volume, in words.
  std::optional<ExecuteEnd> endOfStop(const std::string& gone) const;
  bool isPaused() const { return mPaused; }
  /// Whether an item is to be skipped; asking forgets it.
  bool takeSkip() { return mSkip.exchange(false); }

  /// A program that only speaks when it gets on has said something.
  void noteNews() const {
    if (mSigns) ++mSigns->news;
  }

  /// Blocks during a pause; whether nothing wants an end.
  bool waitWhilePaused();

  /// Blocks for so many seconds, or until something is wanted; whether it is no end.
  bool waitFor(double seconds);

  /// Readable when something was asked for since the last `clearWake`.
  int wakeDescriptor() const { return mWake.get(); }
  void clearWake();

 private:
  void wake();

  std::atomic<StopReason> mStop = StopReason::none;
  std::atomic<bool> mPaused = false;
  std::atomic<bool> mSkip = false;
  RunSigns* mSigns;
  ZAN_Descriptor mWake;
};

}  // namespace corvana
