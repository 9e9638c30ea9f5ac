#pragma once

#include <atomic>

namespace corvana {

/// Why a run is to end before it is done.
enum class StopReason { none, user, volumeGone };

/// What others want of a running copy: stop it, pause it, leave the current item out. Asked for on
/// the main thread, by messages and signals, and obeyed by the thread that copies. Thread: any.
class ExecuteControl {
 public:
  ExecuteControl();
  ~ExecuteControl();
  ExecuteControl(const ExecuteControl&) = delete;
  ExecuteControl& operator=(const ExecuteControl&) = delete;

  /// The first reason stays.
  void stop(StopReason reason);
  void setPaused(bool paused);
  void skipItem();

  StopReason stopReason() const { return mStop; }
  bool isPaused() const { return mPaused; }
  /// Whether an item is to be skipped; asking forgets it.
  bool takeSkip() { return mSkip.exchange(false); }

  /// Readable when something was asked for since the last `clearWake`.
  int wakeDescriptor() const { return mWake; }
  void clearWake();

 private:
  void wake();

  std::atomic<StopReason> mStop = StopReason::none;
  std::atomic<bool> mPaused = false;
  std::atomic<bool> mSkip = false;
  int mWake = -1;
};

}  // namespace corvana
