#include "core/work/ExecuteSupervisor.h"

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "actions/TaskRequest.h"
#include "core/record/Records.h"
#include "core/work/Announce.h"
#include "core/work/TriggerEvaluation.h"

namespace corvana {
namespace {

constexpr const char* kUsualExecutePath =
    "/Applications/Corvana 9.app/Contents/Resources/Corvana 9 Execute.app";
constexpr std::string_view kCrashPath = "Corvana 9 CurrentPath.txt";
constexpr std::uint64_t kLongestCrashPath = 1 << 16;
constexpr std::size_t kMaximumPaths = 500;
/// So much output is gathered for one entry of the debug log.
constexpr std::size_t kMostUnlogged = 1 << 14;
constexpr double kRetryOfMissingProgram = 60.0;
/// So long after its launch a child is looked at for the first time.
constexpr double kSeenAfter = 1.0;
/// What the execute program ends with when it could not store what it has told.
constexpr int kNotRecorded = 1;
/// In an action's settings: its own value of the preference.
constexpr std::string_view kNoProgressMinutes = "OptionsNoProgressMinutes";
constexpr double kRetryBesideOther = 5.0;
constexpr double kRetryOfTree = 5.0;
/// No longer than the next step is held back after an execution.
constexpr double kPatienceWithStopped = 2.0;

bool exists(const std::string& path) {
  std::error_code failure;
  return std::filesystem::exists(path, failure);
}

std::string iconOf(const std::string& path, FileTypes& types) {
  if (path.ends_with('/')) return "folder";
  const std::string type = types.getTypeForExtension(ZAN_FilesUtils::pathExtension(path));
  if (type == "Image") return "image-x-generic";
  if (type == "Video") return "video-x-generic";
  if (type == "Audio") return "audio-x-generic";
  return type == "Document" ? "x-office-document" : "text-x-generic";
}

}  // namespace

ExecuteSupervisor::ExecuteSupervisor(Records& records, ActionQueue& queue,
                                     TriggerEvaluation& evaluation, Announce& announce)
    : m(records),
      mQueue(queue),
      mEvaluation(evaluation),
      mAnnounce(announce),
      mSeenFrom(m.state.deadlines),
      mWatch(m.platform.clock),
      mStop(m.platform.clock) {
  m.state.deadlines.whenMoved([this](double jump, ReferenceTime) {
    if (mStartOfCurrentAction != 0) mStartOfCurrentAction += jump;
  });
}

// What the child has written is taken by the other members.
ExecuteSupervisor::~ExecuteSupervisor() {
  if (mProcessTask) mProcessTask->letGo();
  mProcessTask.reset();
}

LaunchResult ExecuteSupervisor::launchNextAction() {
  if (mExecutionMode != 0 && !m.platform.userInterface.isWindowVisible(Window::executionSurvey))
    mExecutionMode = 0;
  if (mQueue.empty()) return LaunchResult::queueEmpty;
  if (m.siblingWatch.isExecuteAppLaunched()) return otherExecution();
  mSaidOtherExecution = false;
  const QueueRecord record = mQueue.head();
  mEstimateSize = record.estimateSize;

  m.tree.releaseRootItem();
  const ProgrammedAction* const action = m.tree.rootItem().actionForReference(record.ref);
  if (action == nullptr || !action->getSettings().isDictionary())
    return m.tree.isThere() ? LaunchResult::actionGone : treeUnreadable();
  mSaidTreeUnreadable = false;
  if (record.isTask() && !ZAN_FilesUtils::exists(mQueue.requestPath(record)))
    return LaunchResult::taskGone;
  const std::string title = mQueue.titleOf(record);

  std::string program = m.store.installPaths().installPathForCode(InstallPaths::executeExecutable);
  m.state.mStatusTitle = m.texts.text("CurrentAction", {title});
  m.changes.note(Change::execution);
  if (!exists(program)) return programMissing(program + ": there is no such program");
  if (action->getExecuteWithAdminPrivileges() != 0 && exists(program + " Admin"))
    program += " Admin";

  mCrashPathBefore = ZAN_FilesUtils::identity(m.store.folder().pathOf(kCrashPath));
  std::vector<std::string> words{program,
                                 std::to_string(record.ref),
                                 std::to_string(m.preferences.mPrefShowActionProgress),
                                 std::to_string(m.preferences.mPrefShowMountMessage),
                                 "1",
                                 std::to_string(record.retry),
                                 std::to_string(mExecutionMode),
                                 "",
                                 std::to_string(record.estimateSize),
                                 std::to_string(m.preferences.mPrefSetFrontProcess)};
  if (record.isTask()) words.push_back(mQueue.requestPath(record));
  auto task = std::make_unique<ZAN_TaskWrapper>(
      m.platform.processes, static_cast<TaskController&>(*this), std::move(words));
  const ReferenceTime now = m.platform.clock.now();
  mQueue.headBegins(now);
  if (const Outcome started = task->startProcess(true); !started) {
    mQueue.headBegins(std::nullopt);
    return programMissing(started.error().text);
  }
  mProcessTask = std::move(task);
  mLatestExecuteCurrentPath.clear();
  mSaidProgramMissing = false;
  beginWatch(action->getSettings());
  m.state.mExecuting = true;
  m.state.mProcessStatus = 2;
  mLaunchTime = now;
  mSeenFrom.set(now + kSeenAfter);
  mQueue.setHeadIsRunning(true);
  m.state.holdBackUntil(now + kSeenAfter);

  if (!record.isTask()) {
    m.log.addSchedulerLog(ZAN_Value::dictionary({{"R", record.ref},
                                                 {"N", title},
                                                 {"C", LogCode::launched},
                                                 {"D", ZAN_Value::date(record.plannedDate())}}));
    m.history.counters().incrementCounter(ExecutionCounters::kExecutions, record.ref);
  }
  m.store.texts().addToReportFile(
      m.texts.text("ReportExecuteAction", {title, action->actionType(), record.ref}));

  m.state.updateMenu();
  m.executionStatusChanged();
  m.changes.note(Change::queue);
  const auto running = m.platform.processes.running();
  m.store.activity().saveActivity(0, m.siblingWatch.isMainAppAmong(running), true, std::nullopt,
                                  running);
  return LaunchResult::launched;
}

LaunchResult ExecuteSupervisor::programMissing(const std::string& cause) {
  m.state.holdBackUntil(m.platform.clock.now() + kRetryOfMissingProgram);
  if (!std::exchange(mSaidProgramMissing, true)) {
    m.platform.systemLog.write("The execute program cannot be started: " + cause);
    m.messages.displayStandardMessage(m.texts.text("ExecuteProgramMissing", {cause}),
                                      LogCode::message);
  }
  return LaunchResult::programMissing;
}

/// An action that is not found may come back with the file.
LaunchResult ExecuteSupervisor::treeUnreadable() {
  m.state.holdBackUntil(m.platform.clock.now() + kRetryOfTree);
  if (!std::exchange(mSaidTreeUnreadable, true))
    m.messages.displayStandardMessage(
        m.texts.text("TreeUnreadable", {m.store.folder().pathOf(DataFolder::kActions)}),
        LogCode::message);
  return LaunchResult::treeUnreadable;
}

/// Two at once could write into the same destination.
LaunchResult ExecuteSupervisor::otherExecution() {
  m.state.holdBackUntil(m.platform.clock.now() + kRetryBesideOther);
  if (!std::exchange(mSaidOtherExecution, true))
    m.platform.systemLog.write(
        "An execution runs that this agent has not started: the next one waits for its end");
  return LaunchResult::otherExecution;
}

void ExecuteSupervisor::supervise() {
  if (const auto stage = mStop.takeNext()) performStop(*stage);
  if (!mProcessTask) return;
  writeOutputToDebugLog();
  if (m.state.mProcessStatus == 2) {
    m.state.mProcessStatus = 3;
    if (mProcessTask->isRunning()) {
      mStartOfCurrentAction = m.platform.clock.now();
      stopIfActionIsGone();
      return;
    }
    // It ended before it could be seen running.
    mStartOfCurrentAction = mLaunchTime;
  }
  if (m.state.mProcessStatus == 3 && !mProcessTask->isRunning()) return endOfExecution();
  tellStall();
}

/// Half an hour is the least for a run to be long; a preference of 0 switches the watch off.
void ExecuteSupervisor::beginWatch(const ZAN_Value& settings) {
  constexpr double kMinute = 60;
  constexpr double kMostMinutes = 10'080;
  mStop.forget();
  mToldStall.reset();
  mIsOurOwn = ActionsTools::isExecutedByUs(settings);
  const double minutes = settings.contains(kNoProgressMinutes)
                             ? settings[kNoProgressMinutes].doubleValue()
                             : m.preferences.mPrefNoProgressMinutes;
  mWatch.begin(minutes > 0 ? std::min(minutes, kMostMinutes) * kMinute : 0, mIsOurOwn);
  mWatch.setPaused(m.state.mPause);
}

std::optional<Stall> ExecuteSupervisor::stall() const {
  return mProcessTask ? mWatch.stall() : std::nullopt;
}

void ExecuteSupervisor::tellStall() {
  if (mWatch.wantsUsual() && !mQueue.empty()) {
    m.history.reloadProgrammedHistoryList();
    const RunDurations durations(m.history.getProgrammedHistoryList());
    // No two restores are of one size.
    mWatch.setUsual(mQueue.head().isTask() ? std::nullopt
                                           : durations.knownSecondsOf(mQueue.head().ref));
  }
  const std::optional<Stall> stall = mWatch.stall();
  if (stall == mToldStall) return;
  mToldStall = stall;
  m.changes.note(Change::execution);
  if (!stall || mStop.isWanted()) return;
  m.messages.displayStandardMessage(stallText(), LogCode::message);
  m.log.showErrorState(LogCode::message);
}

std::string ExecuteSupervisor::stallText() const {
  constexpr std::size_t kNamed = 3;
  const std::optional<Stall> stall = this->stall();
  if (!stall || mQueue.empty()) return {};
  const bool quiet = stall->kind == Stall::Kind::noProgress;
  std::string text =
      m.texts.text(quiet ? "StuckNoProgress" : "StuckLong",
                   {mQueue.titleOf(mQueue.head()), m.strings.getShortTimeDate(stall->since)});
  const auto& queue = mQueue.actionsList();
  std::string waiting;
  for (std::size_t i = 1; i < std::min(queue.size(), kNamed + 1); ++i) {
    if (i > 1) waiting += ", ";
    waiting += m.texts.text("WhyTitle", {mQueue.titleOf(queue[i])});
  }
  if (queue.size() > kNamed + 1)
    waiting = m.texts.text("StuckWaitingMore", {waiting, queue.size() - kNamed - 1});
  if (!waiting.empty()) text += " " + m.texts.text("StuckWaiting", {waiting});
  return text;
}

std::string ExecuteSupervisor::runningTitle() const {
  return mProcessTask && !mQueue.empty() ? mQueue.titleOf(mQueue.head()) : std::string();
}

void ExecuteSupervisor::endOfExecution() {
  m.platform.clock.sleep(0.01);
  const std::int64_t ref = mQueue.empty() ? 0 : mQueue.head().ref;
  // The child has noted the date of this execution.
  (void)m.tree.updateActionsWithChanges(false);
  ProgrammedAction* const action = m.tree.rootItem().actionForReference(ref);
  if (action != nullptr && mEstimateSize == 0) {
    action->setLastBackupExecutionDate();
    m.channel.postToMainApp("ActionListChanged");
  }
  const int status = mProcessTask->terminationStatus();
  if (status != 0 && mStop.isWanted()) {
    recordStop(ref, {});
  } else if (status == kNotRecorded || (status != 0 && !hasToldItsEnd())) {
    answerCrash(ref, status);
    return;
  }
  clearFinishedProcess();
  m.state.mProcessStatus = 0;
}

/// Whether it was killed after it had recorded how it ended, which is all but its last deed.
bool ExecuteSupervisor::hasToldItsEnd() const {
  if (mQueue.empty()) return false;
  const QueueRecord& record = mQueue.head();
  const ZAN_Value log = m.history.log().readLogList();
  for (std::size_t index = log.size(); index-- > 0;) {
    const ZAN_Value& entry = log.at(index);
    if (entry["M"].asDate().value_or(0) < mLaunchTime) break;
    if (entry.integer("R") != record.ref || entry.string(TaskRequest::kTaskKey) != record.task)
      continue;
    // What comes before its own start is of the try before.
    const std::int64_t code = entry.integer("C");
    return code != LogCode::launched && code != LogCode::crashed;
  }
  return false;
}

void ExecuteSupervisor::answerCrash(std::int64_t ref, int status) {
  const ProgrammedAction* const action = m.tree.rootItem().actionForReference(ref);
  const QueueRecord record = mQueue.empty() ? QueueRecord{.ref = ref} : mQueue.head();
  const std::string title = mQueue.titleOf(record);
  const std::int64_t type = action != nullptr ? action->actionType() : 0;
  m.messages.sendUserNotification(m.texts.text("ExecuteTerminatedCrash", {title}));
  ZAN_Value entry = ZAN_Value::dictionary({{"R", ref},
                                           {"N", m.tree.nameOf(ref)},
                                           {"P", crashPath().value_or("???")},
                                           {"S", status},
                                           {"C", LogCode::crashed}});
  if (record.isTask()) entry.setValue(TaskRequest::kTaskKey, record.task);
  m.log.addSchedulerLog(entry);

  const auto elapsed = static_cast<std::int64_t>(m.platform.clock.now() - mStartOfCurrentAction);
  const bool retry =
      retryNb() < 1 && (!record.isTask() || ZAN_FilesUtils::exists(mQueue.requestPath(record)));
  std::string report =
      m.texts.text(retry ? "ExecuteTerminatedCrashRedo" : "ExecuteTerminatedCrashAfter",
                   {title, type, ref, elapsed});
  mProcessTask->takeRemainingOutput();
  logLines(mOutput.finish());
  for (const std::string& line : mOutput.lastLines()) report += "\n" + line;
  m.store.texts().addToReportFile(report);
  if (retry) mQueue.insertCopyOfHead();
  clearFinishedProcess();
  m.state.mProcessStatus = 0;

  m.messages.showMessage(m.texts.text("ExecuteBadTerminatedTitle"),
                         m.texts.text("ExecuteBadTerminatedMessage", {title}), 15.0, true);
  m.state.holdBackUntil(m.platform.clock.now() + 15.0, SchedulerState::HeldBack::afterCrash);
  if (!retry) return;
  m.messages.showMessage(m.texts.text("ExecuteBadTerminatedRetryTitle"),
                         m.texts.text("ExecuteBadTerminatedRetryNoPathMessage", {title}), 10.0,
                         true);
  m.state.holdBackUntil(m.platform.clock.now() + 25.0, SchedulerState::HeldBack::afterCrash);
}

std::optional<std::string> ExecuteSupervisor::crashPath() const {
  const auto file =
      ZAN_FilesUtils::readFile(m.store.folder().pathOf(kCrashPath), kLongestCrashPath);
  if (file && !file->bytes.empty() && file->identity != mCrashPathBefore) return file->bytes;
  if (mLatestExecuteCurrentPath.empty()) return std::nullopt;
  return mLatestExecuteCurrentPath.front()["CurrentPath"].asString();
}

void ExecuteSupervisor::executionDidEnd() {
  // Released first, so that whoever asks during the bookkeeping sees no execution.
  if (auto task = std::exchange(mProcessTask, nullptr)) {
    task->stopProcess();
    task.reset();
    m.state.mExecuting = false;
    mQueue.setHeadIsRunning(false);
    m.executionStatusChanged();
  }
  mWatch.end();
  mStop.forget();
  m.state.mProcessStatus = 0;
  m.state.mProgress = {};
  m.changes.note(Change::progress);
  const ReferenceTime now = m.platform.clock.now();
  if (!mQueue.empty()) {
    m.state.holdBackUntil(now + 2.0);
    mStartOfCurrentAction = 0;
    mQueue.removeHead();
  }
  if (mQueue.empty()) m.state.mCanHideMenubarIcon.set(now + 5.0);
  m.state.updateMenu();
  mAnnounce.closeAnnounceWindow();
  mEvaluation.checkActionsToLaunch();
  m.changes.note(Change::history);
  m.channel.postToMainApp("UpdateHistory");
}

void ExecuteSupervisor::clearFinishedProcess() {
  if (mProcessTask && !mProcessTask->isRunning()) executionDidEnd();
}

void ExecuteSupervisor::stopAndClearProcess() {
  if (!mProcessTask) return;
  const auto running = m.platform.processes.running();
  const auto child = std::ranges::find(running, mProcessTask->pid(), &RunningProcess::pid);
  if (child != running.end()) {
    // One that does not listen must not go on beside the next one.
    m.platform.runLoop.performAfter(kPatienceWithStopped, [this, child = *child] {
      const auto now = m.platform.processes.running();
      const auto same = std::ranges::find(now, child.pid, &RunningProcess::pid);
      if (same != now.end() && same->start == child.start) m.platform.processes.kill(child.pid);
    });
  }
  mProcessTask->stopProcess();
  executionDidEnd();
}

void ExecuteSupervisor::stopExecution() {
  m.state.mMenuWasUsed = true;
  if (mProcessTask && !mProcessTask->isRunning()) {
    clearFinishedProcess();
    m.state.mProcessStatus = 0;
  }
  m.channel.postToExecute("ActionStop");
  if (mProcessTask || m.siblingWatch.isExecuteAppLaunched()) {
    mStop.want(mProcessTask != nullptr && mIsOurOwn);
    m.changes.note(Change::execution);
  }
}

void ExecuteSupervisor::agentEnds() {
  if (mProcessTask && mStop.isWanted()) mProcessTask->terminate();
}

void ExecuteSupervisor::stopWasAsked() {
  if (mProcessTask && !mStop.isWanted()) mStop.want(mIsOurOwn);
}

void ExecuteSupervisor::stopIfActionIsGone() {
  if (!mProcessTask || mStop.isWanted()) return;
  const bool isThere =
      !mQueue.empty() && m.tree.rootItem().actionForReference(mQueue.head().ref) != nullptr;
  if (!isThere && m.tree.isThere()) stopExecution();
}

void ExecuteSupervisor::performStop(ExecutionStop::Stage stage) {
  using Stage = ExecutionStop::Stage;
  m.changes.note(Change::execution);
  if (stage == Stage::givenUp) return giveUp();
  const bool kills = stage == Stage::killed;
  m.platform.systemLog.write(kills ? "The execution does not end: it is killed"
                                   : "The execution has not ended yet: it is told to by a signal");
  if (mProcessTask) return kills ? mProcessTask->kill() : mProcessTask->terminate();
  const auto others = m.siblingWatch.executeApps();
  if (others.empty()) return mStop.forget();
  Processes& processes = m.platform.processes;
  for (const std::int64_t pid : others) kills ? processes.kill(pid) : processes.terminate(pid);
}

/// Killed, it will never run on: as soon as the system lets go of it, it is gone.
void ExecuteSupervisor::giveUp() {
  if (!mProcessTask) return mStop.forget();
  if (!mProcessTask->isRunning()) return;
  const std::int64_t ref = mQueue.empty() ? 0 : mQueue.head().ref;
  const std::string text = m.texts.text("StopGivenUp", {m.tree.nameOf(ref)});
  recordStop(ref, "it could not be ended and is held by the system");
  mProcessTask->letGo();
  executionDidEnd();
  m.messages.displayStandardMessage(text, LogCode::message);
  m.log.showErrorState(LogCode::message);
}

/// Of an execution that could not record its own end.
void ExecuteSupervisor::recordStop(std::int64_t ref, const std::string& reason) {
  const std::string task = mQueue.empty() ? std::string() : mQueue.head().task;
  ZAN_Value entry = ZAN_Value::dictionary({{"R", ref},
                                           {"N", m.tree.nameOf(ref)},
                                           {"S", mProcessTask->terminationStatus()},
                                           {"C", LogCode::abortedByUser}});
  if (!reason.empty()) entry.setValue("F", reason);
  if (!task.empty()) entry.setValue(TaskRequest::kTaskKey, task);
  m.log.addSchedulerLog(entry);
  m.store.texts().addToReportFile(ActionLog::messageForEntry(entry));
  m.history.reloadProgrammedHistoryList();
  const ZAN_Value list = m.history.getProgrammedHistoryList();
  if (list.size() < 2) return;
  ZAN_Value last = list.at(list.size() - 1);
  if (last.integer("Ref") != ref || last.integer("C") != LogCode::launched ||
      last.string(TaskRequest::kTaskKey) != task)
    return;
  last.setValue("EndDate", ZAN_Value::date(m.platform.clock.now()));
  last.setValue("C", LogCode::abortedByUser);
  m.history.addHistoryEntry(last);
}

void ExecuteSupervisor::killExecute() {
  for (const RunningProcess& process : m.platform.processes.running())
    if (process.bundlePath == kUsualExecutePath) m.platform.processes.kill(process.pid);
}

void ExecuteSupervisor::doSurvey5Seconds() {
  const bool running = m.siblingWatch.isExecuteAppLaunched();
  if (!running) showExecuteReply({});
  const std::string& state = m.texts.text(!running       ? "SurveyExecuteNoExecuteProcess"
                                          : mProcessTask ? "SurveyExecuteExecuteProcessLaunched"
                                                         : "SurveyExecuteNoTask");
  mSurveyLine = m.strings.getShortTimeWithSeconds(m.platform.clock.now()) + " " + state;
  m.changes.note(Change::survey);
  if (running) m.channel.postToExecute("AskExecuteReply");
}

void ExecuteSupervisor::showExecuteReply(std::string reply) {
  constexpr std::size_t kLongest = 10'000;
  if (reply.size() > kLongest) reply = ZAN_StringUtils::format("%@…", {reply.substr(0, kLongest)});
  if (reply == mExecuteReply) return;
  mExecuteReply = std::move(reply);
  m.changes.note(Change::survey);
}

void ExecuteSupervisor::takeProgress(const ZAN_Value& report) {
  mWatch.takeReport(report);
  while (mLatestExecuteCurrentPath.size() > kMaximumPaths) mLatestExecuteCurrentPath.pop_front();
  if (report.contains("CurrentPath")) {
    ZAN_Value kept = report;
    kept.setValue("CurrentIcon", iconOf(report.string("CurrentPath"), m.store.fileTypes()));
    mLatestExecuteCurrentPath.push_back(std::move(kept));
    m.changes.note(Change::survey);
  }
  if (!report.contains("ProgressValue")) return;
  m.state.mProgress = {
      .value = report["ProgressValue"].doubleValue(),
      .sizeCopied = static_cast<std::int64_t>(report["SizeCopied"].unsignedValue()),
      .filesCopied = report.integer("FilesCopied"),
      .errors = report.integer("ErrorsCounter")};
  m.changes.note(Change::progress);
}

ReferenceTime ExecuteSupervisor::nextSupervision() const {
  const ReferenceTime stop = mStop.nextStage();
  if (!mProcessTask) return stop;
  if (m.state.mProcessStatus == 2) return std::min(stop, mSeenFrom.passing());
  if (!mUnloggedOutput.empty() || !mProcessTask->isRunning()) return kAtOnce;
  if (mWatch.stall() != mToldStall || mWatch.wantsUsual()) return kAtOnce;
  return std::min(stop, mWatch.nextLook());
}

void ExecuteSupervisor::sendDataToProcess(std::string_view data) {
  if (mProcessTask) mProcessTask->sendDataToProcess(data);
}

void ExecuteSupervisor::processStarted() { mOutput.clear(); }

void ExecuteSupervisor::appendOutput(std::string_view data) { logLines(mOutput.append(data)); }

void ExecuteSupervisor::allDataReceived() {
  logLines(mOutput.finish());
  writeOutputToDebugLog();
}

void ExecuteSupervisor::processFinished() { m.changes.touch(); }

void ExecuteSupervisor::logLines(const std::string& lines) {
  if (lines.empty()) return;
  if (!mUnloggedOutput.empty()) mUnloggedOutput += '\n';
  mUnloggedOutput += lines;
  m.changes.touch();
  if (mUnloggedOutput.size() >= kMostUnlogged) writeOutputToDebugLog();
}

/// Once a tick: each entry rewrites the whole debug log, and a child may write line by line.
void ExecuteSupervisor::writeOutputToDebugLog() {
  if (mUnloggedOutput.empty()) return;
  m.debugLog.logMessage("Execute: " + std::exchange(mUnloggedOutput, {}), true);
}

}  // namespace corvana
