#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// A running program of the same user and the same home, as the workspace lists it.
struct RunningProcess {
  std::int64_t pid = 0;
  ReferenceTime start = 0;
  std::string executable;  ///< full path; a trailing " (deleted)" is cut
  /// The innermost enclosing "X.app" when the executable lies in its Contents/MacOS, else empty.
  std::string bundlePath;
  std::string bundleExecutable;  ///< last path component of the executable
  /// Of a program in a bundle: it was killed, and the system cannot yet end it.
  bool isDying = false;
};

/// A child process. It is passive: nothing happens to the child when the object goes, or this whole
/// program, except that its input is closed; what it then writes is lost. Thread: main.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;
  virtual std::int64_t pid() const = 0;
  virtual bool isRunning() = 0;
  /// The exit code, or the number of the signal that ended it; 0 while it runs.
  virtual int terminationStatus() = 0;
  virtual void terminate() = 0;
  /// Ends it for good, and what it has started itself unless that went its own way. One that waits
  /// for a device which does not answer runs on until it does.
  virtual void kill() = 0;
  /// Ignored when the child has no standard input or has closed it.
  virtual void write(std::string_view data) = 0;
  /// What the child has written to its standard output and error so far and was not yet taken,
  /// without waiting; empty when there is nothing.
  virtual std::string readAvailable() = 0;
};

/// Call-backs of a child, all on the main thread.
struct ChildObserver {
  std::function<void(std::string_view)>
      output;  ///< standard output and standard error in one stream
  std::function<void()> outputEnded = {};
  /// The child itself has ended, before or after its output; `isRunning` is false from now on.
  std::function<void()> ended = {};
};

class Processes {
 public:
  virtual ~Processes() = default;

  /// Starts `arguments[0]` (a full path, no shell, no search) with the rest as its arguments.
  /// Standard input is a pipe when asked for, else empty. Thread: main.
  virtual Result<std::unique_ptr<ChildProcess>> start(const std::vector<std::string>& arguments,
                                                      bool standardInput,
                                                      ChildObserver observer) = 0;

  /// Starts a tool, waits for its end (`seconds` at most, then it is killed) and returns its
  /// output; an error when it cannot be started, does not end in time or ends with a status other
  /// than 0. Blocks. Thread: any.
  virtual Result<std::string> runTool(const std::vector<std::string>& arguments,
                                      double seconds) = 0;

  /// Does `work` in a child that can be lost: for what a file system may never answer. It uses
  /// files and memory only, and nothing that another thread may have locked. Its answer;
  /// `unavailable` when there is none within `seconds`, another error when there can be no child or
  /// it ends without one. Blocks. Thread: any.
  virtual Result<std::string> askExpendable(const std::function<std::string()>& work,
                                            double seconds) = 0;

  /// Every process of this user with the same home, in no particular order; what was known before
  /// is taken from a cache by id and start time, so a call costs a listing. Thread: main.
  virtual std::vector<RunningProcess> running() = 0;
  /// From now on `changed` is called from the loop soon after a program in one of these bundles has
  /// started or ended, whoever started it, and now and then for nothing. A second call-back
  /// replaces the first; an empty one ends it. Thread: main.
  virtual void observe(std::vector<std::string> bundlePaths, std::function<void()> changed) = 0;
  virtual std::int64_t ownPid() const = 0;
  virtual ReferenceTime ownStart() const = 0;
  /// Asks a process to end; ignored when it is gone or not ours.
  virtual void terminate(std::int64_t pid) = 0;
  /// Ends a process for good; ignored when it is gone or not ours.
  virtual void kill(std::int64_t pid) = 0;
  /// Starts an application or opens a document or folder, detached from the agent.
  virtual Outcome open(const std::string& path) = 0;
  /// A descriptor that the next `relaunch` leaves open for the fresh run.
  virtual void handOn(int descriptor) = 0;
  /// What the run before this one has handed on, once; nothing at an ordinary start.
  virtual std::optional<int> takeHandedOn() = 0;
  /// Replaces this process by a fresh run of the program at `path`; returns only when that fails.
  virtual Error relaunch(const std::string& path) = 0;
};

/// The innermost "X.app" in whose Contents/MacOS the executable lies, as a full path; empty outside
/// of any.
std::string bundlePathOfExecutable(std::string_view executable);

/// A running program's path as the system gives it, without the mark of a file that was replaced
/// meanwhile.
std::string_view withoutDeletedMark(std::string_view executable);

}  // namespace corvana
