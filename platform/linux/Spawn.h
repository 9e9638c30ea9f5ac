#pragma once

#include <sys/types.h>

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

}  // namespace corvana
