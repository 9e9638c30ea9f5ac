#pragma once

#include <sys/types.h>

#include <cstring>
#include <functional>
#include <optional>
#include <type_traits>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// What a started program gets for its standard streams; -1 is /dev/null. `detached`: a session of
/// its own, else a process group of its own, so that an interrupt at the terminal is not for it.
struct SpawnStreams {
  int input = -1;
  int output = -1;
  int error = -1;
  bool detached = false;
};

/// Starts `arguments[0]`, a full path, with nothing of ours but the environment: no descriptor, no
/// blocked or ignored signal. An error names the program. Thread: any.
Result<pid_t> spawn(const std::vector<std::string>& arguments, const SpawnStreams& streams);

/// A child's wait status as its exit code, or the signal that ended it.
int statusOfWait(int waitStatus);

/// Starts a tool, waits `seconds` at most for its end, then kills it and what it has started. Its
/// standard output when it ended with 0; else an error that holds the last line of its standard
/// error. Output of more than 16 MiB is an error too. Thread: any.
Result<std::string> runToolBlocking(const std::vector<std::string>& arguments, double seconds);

/// Does in a child process what a file system may hold up for ever. A thread that waits for a dead
/// mount can neither be ended nor left behind: the process can no longer end or become another
/// program. A child can be lost.
///
/// The child is a copy of this process without its descriptors, and with no other thread: its work
/// uses files and memory, and nothing that another thread may have locked. It ends with the thread
/// that asked. Thread: any.
class ExpendableChild {
 public:
  ExpendableChild() = delete;

  static constexpr double kAsLongAsItTakes = 1e9;

  /// The answer of `work`. `unavailable` when it takes more than `seconds`, in which the machine is
  /// awake; the child is killed then, and nobody waits for its end. Another error when there can be
  /// no child, or it ends without an answer. Blocks.
  static Result<std::string> ask(const std::function<std::string()>& work, double seconds);

  /// The same for an answer that is a plain value; nothing without one.
  template <class Work>
  static auto valueOf(const Work& work, double seconds) {
    using Value = decltype(work());
    static_assert(std::is_trivially_copyable_v<Value>);
    const auto bytes = ask(
        [&] {
          const Value value = work();
          return std::string(reinterpret_cast<const char*>(&value), sizeof value);
        },
        seconds);
    std::optional<Value> answer;
    if (bytes && bytes->size() == sizeof(Value))
      std::memcpy(&answer.emplace(), bytes->data(), sizeof(Value));
    return answer;
  }

  /// Waits for a child that was killed, on a thread that ends with it: it may take for ever. Where
  /// the system has no thread the child stays in its table until this process ends.
  static void reapSometime(pid_t pid);

  /// Runs on a thread that nobody waits for; false when the system has none. The thread must not be
  /// left by an exception.
  static bool runDetached(std::function<void()> body);
};

}  // namespace corvana
