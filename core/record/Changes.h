#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "platform/RunLoop.h"
#include "platform/UserInterface.h"

namespace corvana {

/// The one voice for "something has changed". Duties note what has; everybody who listens hears of
/// all of it once, after what the loop is performing now. Thread: main.
class Changes {
 public:
  using Listener = std::function<void(ChangeSet)>;

  /// The loop outlives this object.
  explicit Changes(RunLoop& runLoop) : mRunLoop(runLoop) {}
  ~Changes() { mRunLoop.cancel(mDelivery); }
  Changes(const Changes&) = delete;
  Changes& operator=(const Changes&) = delete;

  void note(Change change) {
    mNoted.add(change);
    touch();
  }
  /// Nothing that anybody sees has changed, but something may be due at another time than before:
  /// listeners hear of an empty set.
  void touch() {
    if (mDelivery == 0) mDelivery = mRunLoop.performAfter(0, [this] { deliver(); });
  }
  /// They are called in the order in which they asked.
  void listen(Listener listener) { mListeners.push_back(std::move(listener)); }

 private:
  void deliver() {
    mDelivery = 0;
    // What a listener notes comes with the next delivery.
    const ChangeSet noted = std::exchange(mNoted, {});
    for (const Listener& listener : mListeners) listener(noted);
  }

  RunLoop& mRunLoop;
  std::vector<Listener> mListeners;
  ChangeSet mNoted;
  RunLoop::TimerId mDelivery = 0;  ///< 0: nothing was noted
};

}  // namespace corvana
