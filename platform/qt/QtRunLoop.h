#pragma once

#include <exception>

#include <QObject>

#include "platform/RunLoop.h"
#include "platform/linux/DescriptorWatch.h"

class QEvent;
class QCoreApplication;

namespace corvana {

/// One of Qt's application objects, out of whose events no exception gets: it would end the
/// program, and what Qt has not delivered yet would be lost. Thread: main.
template <class Application>
class GuardedApplication final : public Application {
 public:
  using Application::Application;

  /// Without it an exception ends the program.
  std::function<void(const std::exception&)> onException;

  bool notify(QObject* receiver, QEvent* event) override {
    try {
      return Application::notify(receiver, event);
    } catch (const std::exception& exception) {
      if (!onException) throw;
      onException(exception);
      return true;
    }
  }
};

/// The main loop on Qt's event loop. One application object of Qt must live around it. Delays are
/// measured with the clock that stands still while the machine sleeps. What is performed and
/// throws, on a thread too, ends nothing where `onException` is set.
class QtRunLoop final : public RunLoop, public DescriptorWatch {
 public:
  QtRunLoop();
  QtRunLoop(const QtRunLoop&) = delete;
  QtRunLoop& operator=(const QtRunLoop&) = delete;
  /// Waits for the detached threads; what still waits to be performed is dropped.
  ~QtRunLoop() override;

  /// Told on the main thread. Without it an exception ends the program.
  std::function<void(const std::exception&)> onException;

  TimerId performAfter(double delay, std::function<void()> body) override;
  TimerId repeat(double interval, std::function<void()> body) override;
  void cancel(TimerId timer) override;
  void performOnMain(std::function<void()> body) override;
  void detachThread(const std::string& name, std::function<void()> body) override;
  std::unique_ptr<Worker> worker(const std::string& name) override;
  /// Returns at once when `quit` was called before.
  int run() override;
  /// Waits for the detached threads, `seconds` at most; whether all have ended.
  bool joinThreads(double seconds);
  void quit(int code) override;

  WatchId watch(int descriptor, Event event, std::function<void()> body) override;
  void unwatch(WatchId watch) override;

 private:
  class Private;
  class OwnThread;
  std::unique_ptr<Private> mPrivate;
};

/// Sees to it that Qt's application object is there while it lives; makes one only when nobody else
/// has. Thread: main.
class QtApplication {
 public:
  QtApplication();
  QtApplication(const QtApplication&) = delete;
  QtApplication& operator=(const QtApplication&) = delete;
  ~QtApplication();

 private:
  struct Own;
  std::unique_ptr<Own> mOwn;
};

}  // namespace corvana
