#include "platform/simulated/SimulatedProcesses.h"

#include <algorithm>
#include <cmath>
#include <csignal>
#include <utility>

namespace corvana {

namespace {

constexpr std::int64_t kOwnPid = 1000;

std::string executableIn(const std::string& bundlePath) {
  const std::size_t slash = bundlePath.rfind('/');
  const std::size_t first = slash == std::string::npos ? 0 : slash + 1;
  std::string name = bundlePath.substr(first);
  if (name.ends_with(".app")) name.resize(name.size() - 4);
  return bundlePath + "/Contents/MacOS/" + name;
}

}  // namespace

struct SimulatedProcesses::Child {
  std::shared_ptr<StartedChild> record;
  ChildObserver observer;
  bool held = true;    ///< the agent still has the handle
  std::string unread;  ///< output that was not yet taken
  bool delivering = false;
  RunningProcess process;
};

namespace {

class SimulatedChildProcess final : public ChildProcess {
 public:
  SimulatedChildProcess(SimulatedProcesses& processes,
                        std::shared_ptr<SimulatedProcesses::Child> child)
      : mProcesses(processes), mChild(std::move(child)) {}
  ~SimulatedChildProcess() override {
    mChild->held = false;
    mChild->observer = {};
  }

  std::int64_t pid() const override { return mChild->record->pid; }
  bool isRunning() override { return mChild->record->running; }
  int terminationStatus() override { return mChild->record->status; }
  void terminate() override { mProcesses.terminate(pid()); }
  void kill() override { mProcesses.kill(pid()); }
  void write(std::string_view data) override {
    StartedChild& record = *mChild->record;
    if (!record.standardInput || !record.running) return;
    record.input.append(data);
    if (record.script.onInput) record.script.onInput(data);
  }
  std::string readAvailable() override { return std::exchange(mChild->unread, {}); }

 private:
  SimulatedProcesses& mProcesses;
  std::shared_ptr<SimulatedProcesses::Child> mChild;
};

}  // namespace

SimulatedProcesses::SimulatedProcesses(VirtualTime& time, SimulatedRunLoop& runLoop,
                                       const std::string& ownExecutable)
    : mTime(time), mRunLoop(runLoop), mLastPid(kOwnPid - 1), mOwn(make(ownExecutable)) {}

RunningProcess SimulatedProcesses::make(const std::string& executable) {
  return {++mLastPid, mTime.now(), executable, bundlePathOfExecutable(executable),
          executable.substr(executable.rfind('/') + 1)};
}

ChildScript SimulatedProcesses::scriptFor(const std::vector<std::string>& arguments) {
  if (!mNext.empty()) {
    ChildScript script = std::move(mNext.front());
    mNext.erase(mNext.begin());
    return script;
  }
  return mScript ? mScript(arguments) : ChildScript{};
}

Result<std::unique_ptr<ChildProcess>> SimulatedProcesses::start(
    const std::vector<std::string>& arguments, bool standardInput, ChildObserver observer) {
  if (mStartError) {
    const Error error = *std::exchange(mStartError, std::nullopt);
    return error;
  }
  if (arguments.empty()) return Error{ErrorKind::refused, "no program to start"};
  auto child = std::make_shared<Child>();
  child->process = make(arguments.front());
  child->observer = std::move(observer);
  child->record = std::make_shared<StartedChild>();
  StartedChild& record = *child->record;
  record.arguments = arguments;
  record.standardInput = standardInput;
  record.date = mTime.now();
  record.pid = child->process.pid;
  record.script = scriptFor(arguments);
  starts.push_back(child->record);

  if (record.script.onStart) record.script.onStart(record);
  mChildren[record.pid] = child;
  tellOf(child->process);
  write(child, record.script.output);
  for (auto& [seconds, body] : record.script.steps) {
    schedule(child, seconds, [child, body = body] { body(*child->record); });
  }
  if (std::isfinite(record.script.seconds)) {
    schedule(child, record.script.seconds, [this, child] {
      if (child->record->script.onEnd) child->record->script.onEnd(*child->record);
      end(child, child->record->script.status);
    });
  }
  return std::unique_ptr<ChildProcess>(std::make_unique<SimulatedChildProcess>(*this, child));
}

void SimulatedProcesses::schedule(const std::shared_ptr<Child>& child, double seconds,
                                  std::function<void()> body) {
  const std::int64_t date = mTime.nanoseconds() + VirtualTime::toNanoseconds(seconds);
  mTime.add(VirtualTime::Kind::world, date, [child, body = std::move(body)] {
    if (child->record->running) body();
  });
}

void SimulatedProcesses::write(const std::shared_ptr<Child>& child, const std::string& text) {
  if (text.empty() || !child->held) return;
  child->unread += text;
  if (std::exchange(child->delivering, true)) return;
  mRunLoop.performOnMain([child] {
    child->delivering = false;
    const std::string chunk = std::exchange(child->unread, {});
    const auto output = child->observer.output;
    if (output && !chunk.empty()) output(chunk);
  });
}

void SimulatedProcesses::end(const std::shared_ptr<Child>& child, int status) {
  StartedChild& record = *child->record;
  if (!record.running) return;
  write(child, record.script.farewell);
  record.running = false;
  record.status = status;
  mChildren.erase(record.pid);
  tellOf(child->process);
  mRunLoop.performOnMain([child] {
    const auto outputEnded = child->observer.outputEnded;
    if (outputEnded) outputEnded();
    const auto ended = child->observer.ended;
    if (ended) ended();
  });
}

void SimulatedProcesses::endChild(std::int64_t pid, int status) {
  const auto found = mChildren.find(pid);
  if (found == mChildren.end()) return;
  const std::shared_ptr<Child> child = found->second;
  end(child, status);
}

Result<std::string> SimulatedProcesses::runTool(const std::vector<std::string>& arguments, double) {
  if (arguments.empty()) return Error{ErrorKind::refused, "no program to run"};
  toolRuns.push_back(arguments);
  const auto found = mTools.find(arguments.front());
  if (found == mTools.end()) {
    return Error{ErrorKind::absent, arguments.front() + ": no such program"};
  }
  const Tool tool = found->second;
  if (beforeTool) beforeTool(arguments);
  return tool(arguments);
}

Result<std::string> SimulatedProcesses::askExpendable(const std::function<std::string()>& work,
                                                      double) {
  if (mHoldsExpendables) return Error{ErrorKind::unavailable, "no answer"};
  return work();
}

std::vector<RunningProcess> SimulatedProcesses::running() {
  std::vector<RunningProcess> list{mOwn};
  for (const auto& application : mApplications) list.push_back(application.second);
  for (const auto& child : mChildren) list.push_back(child.second->process);
  return list;
}

void SimulatedProcesses::terminate(std::int64_t pid) {
  terminations.push_back(pid);
  const auto child = mChildren.find(pid);
  if (child == mChildren.end()) return;
  child->second->record->terminated = true;
  if (!child->second->record->script.ignoresTerminate) endChild(pid, SIGTERM);
}

void SimulatedProcesses::kill(std::int64_t pid) {
  kills.push_back(pid);
  if (const auto application = mApplications.extract(pid)) tellOf(application.mapped());
  const auto child = mChildren.find(pid);
  if (child == mChildren.end()) return;
  child->second->record->killed = true;
  child->second->process.isDying = true;
  if (!child->second->record->script.ignoresKill) endChild(pid, SIGKILL);
}

Outcome SimulatedProcesses::open(const std::string& path) {
  opened.push_back(path);
  if (openError) return *openError;
  if (path.ends_with(".app")) startApplication(path);
  return {};
}

Error SimulatedProcesses::relaunch(const std::string& path) {
  relaunches.push_back(path);
  if (relaunchError) return *relaunchError;
  mOwn.start = mTime.now();
  mRunLoop.endByReplacement();
  return {ErrorKind::unavailable, path + ": the loop does not run"};
}

std::int64_t SimulatedProcesses::startApplication(const std::string& bundlePath) {
  return addProcess(executableIn(bundlePath));
}

std::int64_t SimulatedProcesses::addProcess(const std::string& executable) {
  const RunningProcess process = make(executable);
  mApplications[process.pid] = process;
  tellOf(process);
  return process.pid;
}

void SimulatedProcesses::quitApplication(const std::string& bundlePath) {
  std::erase_if(mApplications, [&](const auto& one) {
    if (one.second.bundlePath != bundlePath) return false;
    tellOf(one.second);
    return true;
  });
}

void SimulatedProcesses::tellOf(const RunningProcess& process) {
  if (!mChanged || std::ranges::find(mObserved, process.bundlePath) == mObserved.end()) return;
  mRunLoop.performOnMain([this] {
    const auto changed = mChanged;
    if (changed) changed();
  });
}

bool SimulatedProcesses::isRunning(const std::string& bundlePath) {
  for (const RunningProcess& process : running()) {
    if (process.bundlePath == bundlePath) return true;
  }
  return false;
}

}  // namespace corvana
