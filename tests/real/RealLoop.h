#pragma once

#include <QCoreApplication>
#include <functional>

#include "platform/linux/SystemClock.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

/// Qt's event loop for one test, with an end in sight.
class RealLoop {
 public:
  /// Runs until the condition holds; false when it still does not after `seconds`. It is looked at
  /// after whatever happens and every few milliseconds.
  bool runUntil(const std::function<bool()>& condition, double seconds = 30) {
    const double end = clock.monotonic() + seconds;
    const auto poll = loop.repeat(0.005, [&] {
      if (condition() || clock.monotonic() > end) loop.quit(0);
    });
    loop.run();
    loop.cancel(poll);
    return condition();
  }

 private:
  int mCount = 1;
  char mName[5] = "test";
  char* mArguments[2] = {mName, nullptr};
  QCoreApplication mApplication{mCount, mArguments};

 public:
  QtRunLoop loop;
  SystemClock clock{&loop};
};

}  // namespace corvana
