#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

class ChildProcess;
class Processes;

/// The end of what a child has written, by lines. Bounded whatever the child writes. Thread: main.
class ChildOutput {
 public:
  static constexpr std::size_t kMaximumLines = 200;
  static constexpr std::size_t kMaximumLineLength = 4096;  ///< a longer one is broken, in bytes

  /// Takes what was written; returns the lines that are now complete, joined by line ends.
  std::string append(std::string_view data);
  /// No more comes: completes the last line and returns it, empty when there is none.
  std::string finish();
  void clear();

  const std::deque<std::string>& lastLines() const { return mLines; }

 private:
  void complete(std::string& completed);

  std::deque<std::string> mLines;
  std::string mUnfinished;
};

/// Who is told of a child's life. Thread: main.
class TaskController {
 public:
  virtual ~TaskController() = default;
  virtual void processStarted() = 0;
  virtual void appendOutput(std::string_view data) = 0;
  virtual void allDataReceived() = 0;
  /// It has been stopped, or has ended by itself.
  virtual void processFinished() = 0;
};

/// One child process and its pipes, held for as long as its execution is looked after. Releasing a
/// wrapper stops the child first, unless it was let go. Thread: main.
class ZAN_TaskWrapper {
 public:
  /// `arguments[0]` is the full path of the program. The controller outlives the wrapper.
  ZAN_TaskWrapper(Processes& processes, TaskController& controller,
                  std::vector<std::string> arguments);
  ~ZAN_TaskWrapper();
  ZAN_TaskWrapper(const ZAN_TaskWrapper&) = delete;
  ZAN_TaskWrapper& operator=(const ZAN_TaskWrapper&) = delete;

  /// Starts the child, with a pipe as its standard input when asked for, or says why it does not
  /// start.
  Outcome startProcess(bool standardInput);
  /// Ends the child, takes the output that is still in its pipe and tells the controller that it is
  /// finished; nothing the second time.
  void stopProcess();
  /// Asks the child to end, or ends it for good; it stays held until it has ended.
  void terminate();
  void kill();
  /// Takes the output that is there and then forgets the child, which goes on without its pipes.
  void letGo();
  /// Hands what the child has written so far and was not yet handed to the controller.
  void takeRemainingOutput();
  std::int64_t pid() const;  ///< 0 without a child
  bool isRunning() const;
  /// The exit code, or the number of the signal that ended the child; 0 without a child.
  int terminationStatus() const;
  /// Ignored without a child or without standard input.
  void sendDataToProcess(std::string_view data);

 private:
  void drainInto(TaskController& controller);

  Processes& mProcesses;
  TaskController* mController;
  std::vector<std::string> mArguments;
  std::unique_ptr<ChildProcess> mTask;
};

}  // namespace corvana
