#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/ExecuteControl.h"
#include "execute/RsyncOutput.h"

namespace corvana {

/// One run of rsync as a child with a process group of its own, obeying an ExecuteControl: a pause
/// holds it still, a stop asks it to end and kills it 10 s later. It does not outlive the thread
/// that runs it.
class RsyncProcess {
 public:
  struct End {
    int status = 0;  ///< rsync's exit code, or the number of the signal that ended it
    bool signalled = false;
    bool skipWanted = false;  ///< it was ended because the current item is to be left out
  };

  /// Runs `arguments[0]` (a full path) to its end and blocks until then; `output` takes in what it
  /// says, and `onProgress` is called after each piece of it. An error when it cannot be started.
  static Result<End> run(const std::vector<std::string>& arguments, ExecuteControl& control,
                         RsyncOutput& output, const std::function<void()>& onProgress);
};

}  // namespace corvana
