#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "platform/RunLoop.h"

namespace corvana {

class SystemLog;

/// Ends work that throws without ending the program: the exception is written to the system log
/// with its name and its reason, once for each of them. Thread: main.
class ExceptionGuard {
 public:
  explicit ExceptionGuard(SystemLog& log) : mLog(log) {}

  /// Whether the work came to its end.
  template <class Work>
  bool run(const Work& work) {
    try {
      work();
      return true;
    } catch (const std::exception& exception) {
      tell(exception);
      return false;
    }
  }

  void tell(const std::exception& exception);

  /// The type of the exception as the source names it.
  static std::string nameOf(const std::exception& exception);

 private:
  SystemLog& mLog;
  std::set<std::string, std::less<>> mTold;
};

/// A run loop in which no exception of what is performed gets out. Threads are the loop's to guard.
class GuardedRunLoop final : public RunLoop {
 public:
  GuardedRunLoop(RunLoop& loop, ExceptionGuard& guard) : mLoop(loop), mGuard(guard) {}

  /// Something has been performed.
  std::function<void()> onPerformed;

  TimerId performAfter(double delay, std::function<void()> body) override {
    return mLoop.performAfter(delay, guarded(std::move(body)));
  }
  TimerId repeat(double interval, std::function<void()> body) override {
    return mLoop.repeat(interval, guarded(std::move(body)));
  }
  void cancel(TimerId timer) override { mLoop.cancel(timer); }
  void performOnMain(std::function<void()> body) override {
    mLoop.performOnMain(guarded(std::move(body)));
  }
  void detachThread(const std::string& name, std::function<void()> body) override {
    mLoop.detachThread(name, std::move(body));
  }
  std::unique_ptr<Worker> worker(const std::string& name) override { return mLoop.worker(name); }
  int run() override { return mLoop.run(); }
  void quit(int code) override { mLoop.quit(code); }

 private:
  std::function<void()> guarded(std::function<void()> body) {
    return [this, body = std::move(body)] {
      mGuard.run(body);
      if (onPerformed) onPerformed();
    };
  }

  RunLoop& mLoop;
  ExceptionGuard& mGuard;
};

}  // namespace corvana
