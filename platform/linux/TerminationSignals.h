#pragma once

#include <signal.h>

#include <optional>
#include <utility>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/RunLoop.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// A signal that this process was to end by.
struct TerminationSignal {
  int number = 0;
  std::int64_t sender = 0;  ///< the process that sent it; 0: the system
  /// Whether it came because the session of the user or the system itself ends, and not because
  /// somebody wants an end of this program. Asked while the sender is there.
  bool endsSession() const;
};

/// Turns SIGTERM, SIGINT and SIGHUP into a call-back of the loop.
class TerminationSignals {
 public:
  /// Blocks the signals from now on; to be made before the first thread, which inherits that.
  /// `ignoredToo`: also one that was ignored when the process began, as under nohup; without it
  /// that one stays ignored.
  explicit TerminationSignals(bool ignoredToo);
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  /// For who has no loop: readable when there is one to take. Where the system had no descriptor it
  /// is -1, and `take` is to be asked now and then.
  int descriptor() const { return mDescriptor.get(); }
  /// The next that came; nothing when there is none.
  std::optional<TerminationSignal> take() const;
  /// `body` is called once a signal, by the loop, which is the watch as well. Both must live as
  /// long as signals may come.
  template <class Loop>
  void watch(Loop& loop, std::function<void(const TerminationSignal&)> body) {
    watch(loop, loop, std::move(body));
  }

 private:
  void watch(DescriptorWatch& watch, RunLoop& loop,
             std::function<void(const TerminationSignal&)> body);

  sigset_t mSignals;
  ZAN_Descriptor mDescriptor;
};

}  // namespace corvana
