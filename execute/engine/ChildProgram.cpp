#include "execute/engine/ChildProgram.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

namespace corvana {

namespace {

struct Pipe {
  ZAN_Descriptor read, write;
};

std::optional<Pipe> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  return Pipe{ZAN_Descriptor(ends[0]), ZAN_Descriptor(ends[1])};
}

/// A program that says much in small pieces would else wake this one for each of them: what it says
/// is let gather for so long, in pipes with room for it.
constexpr int kGathered = 20;  // ms
constexpr int kRoom = 1 << 20;
constexpr std::size_t kMuch = 1 << 15;

Error systemError(const std::string& what) {
  return Error{ErrorKind::unavailable, what + ": " + std::strerror(errno)};
}

// Between fork and exec only what is safe after a fork in a program with threads.
[[noreturn]] void becomeProgram(char* const* words, char* const* environment,
                                const ChildProgram::Task& task, int output, int errors, int failure,
                                pid_t parent) {
  constexpr int kGivesWay = 10;
  constexpr int kProcess = 1;         // IOPRIO_WHO_PROCESS
  constexpr int kWhenIdle = 3 << 13;  // IOPRIO_CLASS_IDLE
  ::setpgid(0, 0);
  ::setpriority(PRIO_PROCESS, 0, kGivesWay);
  ::syscall(SYS_ioprio_set, kProcess, 0, kWhenIdle);
  for (const int descriptor : task.descriptors) ::fcntl(descriptor, F_SETFD, 0);
  ::prctl(PR_SET_PDEATHSIG, task.stopSignal);
  if (::getppid() != parent) ::_exit(127);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  const int nothing = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(task.input >= 0 ? task.input : nothing, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  ::execve(words[0], words, environment);
  const int code = errno;
  [[maybe_unused]] const auto written = ::write(failure, &code, sizeof code);
  ::_exit(127);
}

/// The child's process group, and what is wanted of it.
class Group {
 public:
  Group(pid_t pid, int stopSignal, std::chrono::seconds patience)
      : mPid(pid), mStopSignal(stopSignal), mPatience(patience) {}

  void obey(ExecuteControl& control, bool obeysSkip, bool isInVain) {
    const bool paused = control.isPaused() && !mStopped;
    if (paused != mPaused) {
      mPaused = paused;
      signal(paused ? SIGSTOP : SIGCONT);
    }
    if (mStopped) return;
    if (obeysSkip && control.takeSkip()) mSkipWanted = true;
    if (control.stopReason() != StopReason::none || mSkipWanted || isInVain) end();
  }

  void killWhenLate() {
    if (!mStopped || std::chrono::steady_clock::now() < mDeadline) return;
    if (mKilled) mGivenUp = true;
    mKilled = true;
    mDeadline = std::chrono::steady_clock::now() + mPatience;
    signal(SIGKILL);
  }
  /// It has been killed and does not go.
  bool isGivenUp() const { return mGivenUp; }

  bool isEnding() const { return mStopped; }
  bool skipWanted() const { return mSkipWanted; }

 private:
  void end() {
    mStopped = true;
    mDeadline = std::chrono::steady_clock::now() + mPatience;
    signal(mStopSignal);
    signal(SIGCONT);
  }
  void signal(int number) const { ::kill(-mPid, number); }

  pid_t mPid;
  int mStopSignal;
  std::chrono::seconds mPatience;
  bool mPaused = false;
  bool mStopped = false;
  bool mKilled = false;
  bool mGivenUp = false;
  bool mSkipWanted = false;
  std::chrono::steady_clock::time_point mDeadline;
};

}  // namespace

Result<ChildProgram::End> ChildProgram::run(const Task& task, ExecuteControl& control) {
  const auto& arguments = task.arguments;
  auto outputPipe = makePipe();
  auto errorPipe = makePipe();
  auto failurePipe = makePipe();
  if (!outputPipe || !errorPipe || !failurePipe) return systemError(arguments[0]);
  std::vector<char*> words;
  for (const auto& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);
  std::vector<char*> environment;
  if (!task.environment.empty()) {
    for (char** word = environ; *word; ++word) {
      const std::string_view own(*word);
      const auto name = own.substr(0, own.find('=') + 1);
      if (std::ranges::none_of(task.environment,
                               [&](const std::string& other) { return other.starts_with(name); }))
        environment.push_back(*word);
    }
    for (const auto& word : task.environment)
      environment.push_back(const_cast<char*>(word.c_str()));
    environment.push_back(nullptr);
  }

  const pid_t self = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) return systemError(arguments[0]);
  if (pid == 0) {
    becomeProgram(words.data(), environment.empty() ? environ : environment.data(), task,
                  outputPipe->write.get(), errorPipe->write.get(), failurePipe->write.get(), self);
  }
  ::setpgid(pid, pid);
  ::fcntl(outputPipe->read.get(), F_SETPIPE_SZ, kRoom);
  outputPipe->write.close();
  errorPipe->write.close();
  failurePipe->write.close();
  if (int code = 0; ::read(failurePipe->read.get(), &code, sizeof code) == sizeof code) {
    ::waitpid(pid, nullptr, 0);
    errno = code;
    return systemError(arguments[0]);
  }

  if (task.onStart) task.onStart(pid);
  Group group(pid, task.stopSignal, std::chrono::seconds(task.patience));
  bool isInVain = false;
  std::array<ZAN_Descriptor, 2> streams{std::move(outputPipe->read), std::move(errorPipe->read)};
  std::vector<char> buffer(kMuch * 2);
  bool gathers = false;
  while (streams[0].get() >= 0 || streams[1].get() >= 0) {
    group.obey(control, task.obeysSkip, isInVain);
    // Without events an end of the stream is told all the same.
    const short wanted = gathers ? 0 : POLLIN;
    std::array<pollfd, 4> waits{{{streams[0].get(), wanted, 0},
                                 {streams[1].get(), wanted, 0},
                                 {control.wakeDescriptor(), POLLIN, 0},
                                 {task.watched, POLLPRI, 0}}};
    ::poll(waits.data(), waits.size(), gathers ? kGathered : group.isEnding() ? 200 : -1);
    group.killWhenLate();
    if (group.isGivenUp()) break;
    if ((waits[2].revents & POLLIN) != 0) control.clearWake();
    if (waits[3].revents != 0 && task.onWatched) task.onWatched();
    std::size_t taken = 0;
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (waits[i].revents == 0) continue;
      const auto count = ::read(streams[i].get(), buffer.data(), buffer.size());
      if (count > 0) {
        const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
        taken += bytes.size();
        if (const auto& reader = i == 0 ? task.onOutput : task.onErrors; reader) reader(bytes);
      } else if (count == 0 || errno != EINTR) {
        streams[i].close();
      }
    }
    gathers = taken > 0 && taken < kMuch;
    if (task.onNews) task.onNews();
    isInVain = isInVain || (task.isInVain && task.isInVain());
  }
  End end;
  end.isGivenUp = group.isGivenUp();
  int status = 0;
  while (::waitpid(pid, &status, end.isGivenUp ? WNOHANG : 0) < 0 && errno == EINTR) {
  }
  end.signalled = WIFSIGNALED(status);
  end.status = end.signalled ? WTERMSIG(status) : WEXITSTATUS(status);
  end.skipWanted = group.skipWanted();
  return end;
}

}  // namespace corvana
