#pragma once

#include <functional>
#include <thread>

namespace corvana {

/// Turns SIGTERM, SIGINT and SIGHUP into a call-back on a thread of its own for as long as it
/// lives. To be made before any other thread, which then leaves these signals to it.
class SignalWatch {
 public:
  explicit SignalWatch(std::function<void()> onSignal);
  SignalWatch(const SignalWatch&) = delete;
  SignalWatch& operator=(const SignalWatch&) = delete;
  ~SignalWatch();

 private:
  int mSignals = -1;
  int mEnd = -1;
  std::thread mThread;
};

}  // namespace corvana
