// What the tick costs while nothing is due, in an agent that is kept awake: the usual one, and the
// one that lists the processes to note the activity. The processes are real, 400 of this home.
#include <benchmark/benchmark.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <thread>
#include <vector>

#include "platform/linux/ProcessTable.h"
#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

constexpr int kProcesses = 400;
constexpr int kActions = 100;

/// Real processes to be listed, everything else simulated.
class ListedProcesses final : public Processes {
 public:
  ListedProcesses(Processes& others, const std::string& home) : mOthers(others), mTable(home) {
    ::setenv("HOME", home.c_str(), 1);
    for (int i = 0; i < kProcesses; ++i) {
      const pid_t pid = ::fork();
      if (pid == 0) ::execlp("sleep", "sleep", "600", nullptr);
      if (pid == 0) ::_exit(1);
      mChildren.push_back(pid);
    }
  }
  ~ListedProcesses() override {
    for (const pid_t pid : mChildren) ::kill(pid, SIGKILL);
    for (const pid_t pid : mChildren) ::waitpid(pid, nullptr, 0);
  }

  Result<std::unique_ptr<ChildProcess>> start(const std::vector<std::string>& arguments,
                                              bool standardInput, ChildObserver observer) override {
    return mOthers.start(arguments, standardInput, std::move(observer));
  }
  Result<std::string> runTool(const std::vector<std::string>& arguments, double seconds) override {
    return mOthers.runTool(arguments, seconds);
  }
  Result<std::string> askExpendable(const std::function<std::string()>& work,
                                    double seconds) override {
    return mOthers.askExpendable(work, seconds);
  }
  std::vector<RunningProcess> running() override {
    ++listings;
    return mTable.list();
  }
  void observe(std::vector<std::string> bundlePaths, std::function<void()> changed) override {
    mOthers.observe(std::move(bundlePaths), std::move(changed));
  }
  std::int64_t ownPid() const override { return mOthers.ownPid(); }
  ReferenceTime ownStart() const override { return mOthers.ownStart(); }
  void terminate(std::int64_t pid) override { mOthers.terminate(pid); }
  void kill(std::int64_t pid) override { mOthers.kill(pid); }
  Outcome open(const std::string& path) override { return mOthers.open(path); }
  void handOn(int descriptor) override { mOthers.handOn(descriptor); }
  std::optional<int> takeHandedOn() override { return mOthers.takeHandedOn(); }
  Error relaunch(const std::string& path) override { return mOthers.relaunch(path); }

  int listings = 0;

 private:
  Processes& mOthers;
  ProcessTable mTable;
  std::vector<pid_t> mChildren;
};

/// Of this program; what others do beside it does not count.
double processorTime() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

struct IdleAgent {
  IdleAgent() {
    for (int i = 0; i < kActions; ++i)
      day.action("Action", daily(day.timeOfDay("11:00"), day.machine.clock.now()));
    day.writeTree();
    const Platform p = day.machine.platform();
    day.agent = std::make_unique<MainScheduler>(
        Platform{p.clock, p.runLoop, p.machine, p.power, processes, p.input, p.userInterface,
                 p.notifications, p.systemLog, p.volumes, p.network, p.services, p.serverSockets});
    day.agent->applicationDidFinishLaunching();
    day.agent->timer().setSleeps(false);
    day.agent->store().saveInBackground(p.runLoop);
    day.runFor(200);
    // Young processes are looked at more often than those that are there for long.
    std::this_thread::sleep_for(std::chrono::seconds(6));
    day.runFor(200);
  }
  ~IdleAgent() { day.kill(); }

  /// Half a second of two calls of the timer, one of which has a tick. How many listings it took.
  int pass(double& seconds) {
    const int before = processes.listings;
    const double start = processorTime();
    day.machine.runLoop.runFor(0.5);
    seconds = processorTime() - start;
    return processes.listings - before;
  }

  Scenario day;
  ListedProcesses processes{day.machine.processes, day.machine.folder.path()};
};

/// `range`: how many listings of the processes the tick makes.
void idleTick(benchmark::State& state) {
  IdleAgent agent;
  for (auto _ : state) {
    double seconds = 0;
    while (agent.pass(seconds) != state.range(0)) {
    }
    state.SetIterationTime(seconds);
  }
}
BENCHMARK(idleTick)
    ->ArgName("listings")
    ->DenseRange(0, 1)
    ->UseManualTime()
    ->Iterations(100)
    ->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace corvana
