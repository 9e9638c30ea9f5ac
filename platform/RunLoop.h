#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace corvana {

/// The main thread's loop: everything of the agent runs in it, one thing after another.
class RunLoop {
 public:
  using TimerId = std::uint64_t;  ///< never 0

  /// Runs what it is handed on a thread of its own, one thing after another. Where the system has
  /// no thread, the main one runs it from its loop. Its end waits for what it has begun, and runs
  /// what it was handed and has not. Thread: main.
  class Worker {
   public:
    virtual ~Worker() = default;
    virtual void perform(std::function<void()> body) = 0;
  };

  virtual ~RunLoop() = default;

  /// Performs once on the main thread, `delay` seconds from now or later. Equal dates keep their
  /// order. Thread: main.
  virtual TimerId performAfter(double delay, std::function<void()> body) = 0;
  /// Performs every `interval` seconds; occasions missed by a blocked or sleeping machine are not
  /// made up. Thread: main.
  virtual TimerId repeat(double interval, std::function<void()> body) = 0;
  /// A timer that has fired, was cancelled or is 0 is ignored. Thread: main.
  virtual void cancel(TimerId timer) = 0;

  /// Performs on the main thread after what already waits there, without waiting for it. Thread:
  /// any.
  virtual void performOnMain(std::function<void()> body) = 0;
  /// Runs `body` on a thread of its own; it hands results back by performOnMain. The loop joins all
  /// such threads before it is destroyed, so `body` must end by itself. The main thread waits for
  /// such a thread, if it must, by Clock::sleep between looks, not on a lock or a condition.
  /// Thread: any.
  virtual void detachThread(const std::string& name, std::function<void()> body) = 0;

  /// A worker whose thread is there from now on, so that it is when the system has none left; as a
  /// default one that has a thread only while there is something to do. It must go before the loop.
  /// Thread: main.
  virtual std::unique_ptr<Worker> worker(const std::string& name);

  /// Runs until `quit`; returns its code. Thread: main.
  virtual int run() = 0;
  /// Ends `run` after what is being performed now. Thread: main.
  virtual void quit(int code) = 0;
};

}  // namespace corvana
