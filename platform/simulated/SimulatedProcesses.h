#pragma once

#include <limits>

#include "platform/Processes.h"
#include "platform/simulated/SimulatedRunLoop.h"

namespace corvana {

struct StartedChild;

/// How a simulated child behaves.
struct ChildScript {
  static constexpr double kUntilStopped = std::numeric_limits<double>::infinity();

  double seconds = 1;         ///< how long it runs; kUntilStopped: until it is stopped
  int status = 0;             ///< its exit code, or the signal number that ends it
  std::string output = {};    ///< written at its start
  std::string farewell = {};  ///< written at its end
  bool ignoresTerminate = false;
  bool ignoresKill = false;                         ///< as one that waits for a device
  std::function<void(StartedChild&)> onStart = {};  ///< before anything else of the agent runs
  /// Just before it is gone; may change the status in its script.
  std::function<void(StartedChild&)> onEnd = {};
  std::function<void(std::string_view)> onInput = {};  ///< what is written to its standard input
  /// Things it does on the way, each so many seconds after its start.
  std::vector<std::pair<double, std::function<void(StartedChild&)>>> steps = {};
};

/// The record of one start, kept for ever.
struct StartedChild {
  std::vector<std::string> arguments;
  bool standardInput = false;
  ReferenceTime date = 0;  ///< of the start
  std::int64_t pid = 0;
  ChildScript script;
  bool running = true;
  bool terminated = false;  ///< `terminate` was called
  bool killed = false;
  int status = 0;     ///< once it no longer runs
  std::string input;  ///< everything written to its standard input
};

/// Children that follow a script, applications that start and quit when the test says so, tools
/// that are functions. Everything that was asked for is kept.
class SimulatedProcesses final : public Processes {
 public:
  using Tool = std::function<Result<std::string>(const std::vector<std::string>& arguments)>;

  SimulatedProcesses(VirtualTime& time, SimulatedRunLoop& runLoop,
                     const std::string& ownExecutable);

  Result<std::unique_ptr<ChildProcess>> start(const std::vector<std::string>& arguments,
                                              bool standardInput, ChildObserver observer) override;
  Result<std::string> runTool(const std::vector<std::string>& arguments, double seconds) override;
  /// At once, or never where the test wants that.
  Result<std::string> askExpendable(const std::function<std::string()>& work,
                                    double seconds) override;
  /// Itself, the applications and the children that run.
  std::vector<RunningProcess> running() override;
  void observe(std::vector<std::string> bundlePaths, std::function<void()> changed) override {
    mObserved = std::move(bundlePaths);
    mChanged = std::move(changed);
  }
  std::int64_t ownPid() const override { return mOwn.pid; }
  ReferenceTime ownStart() const override { return mOwn.start; }
  void terminate(std::int64_t pid) override;
  void kill(std::int64_t pid) override;
  /// Opening an application puts it on the list of running ones.
  Outcome open(const std::string& path) override;
  void handOn(int) override {}
  std::optional<int> takeHandedOn() override { return {}; }
  /// Kept in `relaunches`; inside the loop everything of the old program is unwound and the loop's
  /// `run…` returns, so that the test can make the next one.
  Error relaunch(const std::string& path) override;

  /// How children behave: the scripts given to `next` one after another, then what `script` says
  /// for the program, then the default.
  void next(ChildScript script) { mNext.push_back(std::move(script)); }
  void script(std::function<ChildScript(const std::vector<std::string>& arguments)> script) {
    mScript = std::move(script);
  }
  /// The next start fails so.
  void failNextStart(Error error) { mStartError = std::move(error); }
  /// What a program does when it is run as a tool; one that is not set is absent.
  void tool(const std::string& program, Tool tool) { mTools[program] = std::move(tool); }
  /// Called before each tool, which may take its time there.
  std::function<void(const std::vector<std::string>& arguments)> beforeTool;

  /// From now on no file system answers.
  void holdExpendables() { mHoldsExpendables = true; }

  std::int64_t startApplication(const std::string& bundlePath);
  void quitApplication(const std::string& bundlePath);
  std::int64_t addProcess(const std::string& executable);
  bool isRunning(const std::string& bundlePath);
  /// Ends a child now, as a crash does.
  void endChild(std::int64_t pid, int status);

  std::vector<std::shared_ptr<StartedChild>> starts;
  std::vector<std::vector<std::string>> toolRuns;
  std::vector<std::int64_t> terminations;
  std::vector<std::int64_t> kills;
  std::vector<std::string> opened;
  std::optional<Error> openError;
  std::vector<std::string> relaunches;
  std::optional<Error> relaunchError;

  /// One running or ended child, shared by its handle and the events of its script.
  struct Child;

 private:
  RunningProcess make(const std::string& executable);
  void end(const std::shared_ptr<Child>& child, int status);
  void write(const std::shared_ptr<Child>& child, const std::string& text);
  void schedule(const std::shared_ptr<Child>& child, double seconds, std::function<void()> body);
  void tellOf(const RunningProcess& process);
  ChildScript scriptFor(const std::vector<std::string>& arguments);

  VirtualTime& mTime;
  SimulatedRunLoop& mRunLoop;
  std::int64_t mLastPid = 1000;
  RunningProcess mOwn;
  std::map<std::int64_t, RunningProcess> mApplications;
  std::map<std::int64_t, std::shared_ptr<Child>> mChildren;
  std::vector<ChildScript> mNext;
  std::function<ChildScript(const std::vector<std::string>&)> mScript;
  std::optional<Error> mStartError;
  std::map<std::string, Tool> mTools;
  bool mHoldsExpendables = false;
  std::vector<std::string> mObserved;
  std::function<void()> mChanged;
};

}  // namespace corvana
