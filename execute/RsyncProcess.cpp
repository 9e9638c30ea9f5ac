#include "execute/RsyncProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <optional>
#include <utility>

namespace corvana {
namespace {

constexpr auto kPatience = std::chrono::seconds(10);

class Descriptor {
 public:
  Descriptor() = default;
  explicit Descriptor(int fd) : mFd(fd) {}
  Descriptor(Descriptor&& other) noexcept : mFd(std::exchange(other.mFd, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    close();
    mFd = std::exchange(other.mFd, -1);
    return *this;
  }
  ~Descriptor() { close(); }
  int get() const { return mFd; }
  void close() {
    if (mFd >= 0) ::close(std::exchange(mFd, -1));
  }

 private:
  int mFd = -1;
};

struct Pipe {
  Descriptor read, write;
};

std::optional<Pipe> makePipe() {
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return std::nullopt;
  return Pipe{Descriptor(ends[0]), Descriptor(ends[1])};
}

Error systemError(const std::string& what) {
  return Error{ErrorKind::unavailable, what + ": " + std::strerror(errno)};
}

// Between fork and exec only what is safe after a fork in a program with threads.
[[noreturn]] void becomeProgram(char* const* words, int output, int errors, int failure,
                                pid_t parent) {
  ::setpgid(0, 0);
  ::prctl(PR_SET_PDEATHSIG, SIGTERM);
  if (::getppid() != parent) ::_exit(127);
  sigset_t none;
  ::sigemptyset(&none);
  ::sigprocmask(SIG_SETMASK, &none, nullptr);
  ::signal(SIGPIPE, SIG_DFL);
  const int input = ::open("/dev/null", O_RDONLY | O_CLOEXEC);
  ::dup2(input, STDIN_FILENO);
  ::dup2(output, STDOUT_FILENO);
  ::dup2(errors, STDERR_FILENO);
  ::execv(words[0], words);
  const int code = errno;
  [[maybe_unused]] const auto written = ::write(failure, &code, sizeof code);
  ::_exit(127);
}

/// The child's process group, and what is wanted of it.
class Group {
 public:
  explicit Group(pid_t pid) : mPid(pid) {}

  void obey(ExecuteControl& control) {
    const bool paused = control.isPaused() && !mStopped;
    if (paused != mPaused) {
      mPaused = paused;
      signal(paused ? SIGSTOP : SIGCONT);
    }
    if (mStopped) return;
    if (control.takeSkip()) mSkipWanted = true;
    if (control.stopReason() != StopReason::none || mSkipWanted) end();
  }

  void killWhenLate() {
    if (mStopped && !mKilled && std::chrono::steady_clock::now() >= mDeadline) {
      mKilled = true;
      signal(SIGKILL);
    }
  }

  bool isEnding() const { return mStopped; }
  bool skipWanted() const { return mSkipWanted; }

 private:
  void end() {
    mStopped = true;
    mDeadline = std::chrono::steady_clock::now() + kPatience;
    signal(SIGTERM);
    signal(SIGCONT);
  }
  void signal(int number) const { ::kill(-mPid, number); }

  pid_t mPid;
  bool mPaused = false;
  bool mStopped = false;
  bool mKilled = false;
  bool mSkipWanted = false;
  std::chrono::steady_clock::time_point mDeadline;
};

}  // namespace

Result<RsyncProcess::End> RsyncProcess::run(const std::vector<std::string>& arguments,
                                            ExecuteControl& control, RsyncOutput& output,
                                            const std::function<void()>& onProgress) {
  auto outputPipe = makePipe();
  auto errorPipe = makePipe();
  auto failurePipe = makePipe();
  if (!outputPipe || !errorPipe || !failurePipe) return systemError(arguments[0]);
  std::vector<char*> words;
  for (const auto& argument : arguments) words.push_back(const_cast<char*>(argument.c_str()));
  words.push_back(nullptr);

  const pid_t self = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) return systemError(arguments[0]);
  if (pid == 0) {
    becomeProgram(words.data(), outputPipe->write.get(), errorPipe->write.get(),
                  failurePipe->write.get(), self);
  }
  ::setpgid(pid, pid);
  outputPipe->write.close();
  errorPipe->write.close();
  failurePipe->write.close();
  if (int code = 0; ::read(failurePipe->read.get(), &code, sizeof code) == sizeof code) {
    ::waitpid(pid, nullptr, 0);
    errno = code;
    return systemError(arguments[0]);
  }

  Group group(pid);
  std::array<Descriptor, 2> streams{std::move(outputPipe->read), std::move(errorPipe->read)};
  while (streams[0].get() >= 0 || streams[1].get() >= 0) {
    group.obey(control);
    std::array<pollfd, 3> waits{{{streams[0].get(), POLLIN, 0},
                                 {streams[1].get(), POLLIN, 0},
                                 {control.wakeDescriptor(), POLLIN, 0}}};
    ::poll(waits.data(), waits.size(), group.isEnding() ? 200 : -1);
    group.killWhenLate();
    if ((waits[2].revents & POLLIN) != 0) control.clearWake();
    for (std::size_t i = 0; i < streams.size(); ++i) {
      if (waits[i].revents == 0) continue;
      std::array<char, 1 << 14> buffer;
      const auto count = ::read(streams[i].get(), buffer.data(), buffer.size());
      if (count > 0) {
        const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
        i == 0 ? output.readOutput(bytes) : output.readErrors(bytes);
      } else if (count == 0 || errno != EINTR) {
        streams[i].close();
      }
    }
    onProgress();
  }
  output.finish();
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  End end;
  end.signalled = WIFSIGNALED(status);
  end.status = end.signalled ? WTERMSIG(status) : WEXITSTATUS(status);
  end.skipWanted = group.skipWanted();
  return end;
}

}  // namespace corvana
