#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "core/record/Deadline.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecutionWatch.h"
#include "core/work/ZAN_TaskWrapper.h"

namespace corvana {

class Announce;
class TriggerEvaluation;
struct Records;

/// What a launch of the head came to.
enum class LaunchResult {
  launched,
  queueEmpty,
  actionGone,      ///< the action or its settings are no longer there: the head is to go
  taskGone,        ///< the task was taken back by who asked for it: the head is to go
  treeUnreadable,  ///< the file with the actions cannot be read at the moment: the head stays
  programMissing,  ///< the execute program is not there or does not start: the head stays, tried
                   ///< again later
  otherExecution,  ///< an execute program runs that is not held here: the head waits for its end
};

/// Runs the head of the queue in the execute application, one child at a time: starts it, sees it
/// run and end, tells a crash from a normal end and makes one new try after a crash; tells the user
/// when it is stuck, and stops it when the user wants that. Thread: main.
class ExecuteSupervisor : private TaskController {
 public:
  ExecuteSupervisor(Records& records, ActionQueue& queue, TriggerEvaluation& evaluation,
                    Announce& announce);
  /// An execution that still runs goes on by itself and keeps its own records.
  ~ExecuteSupervisor() override;

  /// Launches the head of the queue. When the program is missing or does not start this is said
  /// once, with its cause, and the next step is held back for 60 s. While an execution runs that
  /// another agent or somebody by hand has started, the next step is held back for 5 s.
  LaunchResult launchNextAction();
  /// To be called from `nextSupervision` on: sees the child start and end, answers a crash.
  void supervise();
  /// The bookkeeping at the end of an execution: releases the child, removes the head, holds the
  /// next step back for 2 s, tells the siblings and runs the evaluation. Harmless without an
  /// execution.
  void executionDidEnd();
  /// Ends the bookkeeping of an execution whose child no longer runs.
  void clearFinishedProcess();
  /// Stops the child of a held execution and ends its bookkeeping. A child that still runs 2 s
  /// later is killed.
  void stopAndClearProcess();
  /// The user's stop: asks the execute application to end; its end is then seen by `supervise`. An
  /// execution whose child has already gone is cleared at once. Our own execute program is given
  /// 10 s, then told by the system to end, killed after 20 s more, and given up when even that does
  /// not end it: it then no longer counts as running. With another one that needs a second stop. It
  /// is also for an execution that was started elsewhere.
  void stopExecution();
  /// Somebody else has asked the execute application to end: its end is no crash.
  void stopWasAsked();
  /// Stops the execution of an action that the tree no longer has.
  void stopIfActionIsGone();
  void pauseChanged(bool paused) { mWatch.setPaused(paused); }
  /// That the execution is stuck, and since when.
  std::optional<Stall> stall() const;
  /// The same in words, with who waits behind it; empty when it is not.
  std::string stallText() const;
  /// Of the action that runs; empty when none does.
  std::string runningTitle() const;
  /// The agent ends: what is being stopped is told by the system to end too, as nobody will follow
  /// it any more.
  void agentEnds();
  /// How far the stop of the execution has got.
  ExecutionStop::Stage stopStage() const { return mStop.stage(); }
  /// Ends every process of the execute application at its usual place under /Applications.
  void killExecute();
  /// Refreshes the execution survey and asks the execute application for its state.
  void doSurvey5Seconds();
  /// The answer, for the execution survey.
  void showExecuteReply(std::string reply);
  /// The last answer; empty when no execute application runs.
  const std::string& executeReply() const { return mExecuteReply; }
  /// What runs, as the execution survey saw it last, and when.
  const std::string& surveyLine() const { return mSurveyLine; }

  /// Whether an execution is held, its child running or not yet cleared.
  bool isExecuting() const { return mProcessTask != nullptr; }
  /// From when on `supervise` has something to do, if nothing else happens; kAtOnce, kNever. A
  /// child is first looked at a second after its launch.
  ReferenceTime nextSupervision() const;
  /// The last try to launch found an execution that was started elsewhere.
  bool waitsForOtherExecution() const { return mSaidOtherExecution && !mQueue.empty(); }
  /// The last try to launch found no execute program that starts.
  bool missesProgram() const { return mSaidProgramMissing && !mQueue.empty(); }
  /// The last try to launch found no readable file with the actions.
  bool missesTree() const { return mSaidTreeUnreadable && !mQueue.empty(); }
  ReferenceTime startOfCurrentAction() const { return mStartOfCurrentAction; }  ///< 0 when none
  /// New tries of the head after a crash so far.
  int retryNb() const { return mQueue.empty() ? 0 : mQueue.head().retry; }
  std::int64_t estimateSize() const { return mEstimateSize; }
  /// How the execution survey wants the next execution run; back to 0 when its window is hidden.
  int executionMode() const { return mExecutionMode; }
  void setExecutionMode(int mode) { mExecutionMode = mode; }

  /// The latest progress reports of this execution, or of the last one, oldest first.
  const std::deque<ZAN_Value>& latestExecuteCurrentPath() const {
    return mLatestExecuteCurrentPath;
  }
  /// A report of the execute application: how far it is, and the path it works on. The path is kept
  /// with "CurrentIcon" added, the name that desktops give the icon of such a file, told by the
  /// path alone, as the disk may be one that does not answer. Kept reports are trimmed to 500
  /// first.
  void takeProgress(const ZAN_Value& report);

  /// Writes to the standard input of the running child; ignored without one.
  void sendDataToProcess(std::string_view data);

 private:
  void processStarted() override;
  void appendOutput(std::string_view data) override;
  void allDataReceived() override;
  void processFinished() override;

  LaunchResult programMissing(const std::string& cause);
  void beginWatch(const ZAN_Value& settings);
  void tellStall();
  void performStop(ExecutionStop::Stage stage);
  void giveUp();
  void recordStop(std::int64_t ref, const std::string& reason);
  void endOfExecution();
  bool hasToldItsEnd() const;
  void answerCrash(std::int64_t ref, int status);
  std::optional<std::string> crashPath() const;
  LaunchResult treeUnreadable();
  LaunchResult otherExecution();
  void logLines(const std::string& lines);
  void writeOutputToDebugLog();

  Records& m;
  ActionQueue& mQueue;
  TriggerEvaluation& mEvaluation;
  Announce& mAnnounce;
  std::unique_ptr<ZAN_TaskWrapper> mProcessTask;
  ReferenceTime mLaunchTime = 0;
  Deadline mSeenFrom;
  ReferenceTime mStartOfCurrentAction = 0;
  std::int64_t mEstimateSize = 0;
  int mExecutionMode = 0;
  std::deque<ZAN_Value> mLatestExecuteCurrentPath;
  /// Of the file with the path of a crash when the child was launched: unchanged, it tells of an
  /// earlier one.
  std::optional<ZAN_FileIdentity> mCrashPathBefore;
  ChildOutput mOutput;
  std::string mUnloggedOutput;
  std::string mExecuteReply;
  std::string mSurveyLine;
  ExecutionWatch mWatch;
  ExecutionStop mStop;
  bool mIsOurOwn = false;           ///< the execution is one of our own execute program
  std::optional<Stall> mToldStall;  ///< as the user was told last
  bool mSaidProgramMissing = false;
  bool mSaidTreeUnreadable = false;
  bool mSaidOtherExecution = false;
};

}  // namespace corvana
