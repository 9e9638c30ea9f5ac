#pragma once

#include <sys/types.h>

#include <csignal>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/engine/ExecuteControl.h"

namespace corvana {

/// One run of a program as a child with a process group of its own, obeying an ExecuteControl: a
/// pause holds it still, a stop asks it to end and kills it later; when it cannot be killed either,
/// since a file system holds it, it is given up. It does not outlive the thread that runs it, gives
/// way to other programs, and is the last to get the disk.
class ChildProgram {
 public:
  struct End {
    int status = 0;  ///< exit code, or the number of the signal that ended it
    bool signalled = false;
    bool skipWanted = false;  ///< it was ended because the current item is to be left out
    bool isGivenUp = false;   ///< it is still there, and nobody waits for it
  };
  struct Task {
    std::vector<std::string> arguments;      ///< the first is the full path of the program
    std::vector<std::string> environment{};  ///< "NAME=value", besides this process's own
    std::vector<int> descriptors{};          ///< that it gets
    int input = -1;                          ///< what it reads, or nothing
    int stopSignal = SIGTERM;                ///< asks it to end, also when this process dies
    int patience = 10;                       ///< seconds from that to SIGKILL
    bool obeysSkip = true;                   ///< wanted of it, it is asked to end
    std::function<void(pid_t)> onStart{};    ///< gets its number once it has begun
    int watched = -1;                        ///< a descriptor; what POLLPRI on it calls is
    std::function<void()> onWatched{};
    std::function<void(std::string_view)> onOutput{};  ///< gets what it says as it comes
    std::function<void(std::string_view)> onErrors{};
    std::function<void()> onNews{};    ///< after each piece of it, and of what is watched
    std::function<bool()> isInVain{};  ///< then, too; when it is, it is asked to end
  };

  /// Runs it to its end and blocks until then. An error when it cannot be started.
  static Result<End> run(const Task& task, ExecuteControl& control);
};

}  // namespace corvana
