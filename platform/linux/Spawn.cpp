#include "platform/linux/Spawn.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <system_error>
#include <thread>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/linux/SystemClock.h"

namespace corvana {

namespace {

constexpr std::size_t kMostToolOutput = 16UL << 20;
constexpr std::size_t kMostToolErrors = 64UL << 10;

Error errorOf(const std::string& what, int number) {
  const ErrorKind kind = number == ENOENT ? ErrorKind::absent : ErrorKind::refused;
  return {kind, what + ": " + std::strerror(number)};
}

struct Actions {
  Actions() { posix_spawn_file_actions_init(&value); }
  Actions(const Actions&) = delete;
  Actions& operator=(const Actions&) = delete;
  ~Actions() { posix_spawn_file_actions_destroy(&value); }
  void stream(int from, int to) {
    if (from >= 0) {
      posix_spawn_file_actions_adddup2(&value, from, to);
    } else {
      posix_spawn_file_actions_addopen(&value, to, "/dev/null", O_RDWR, 0);
    }
  }
  posix_spawn_file_actions_t value;
};

struct Attributes {
  explicit Attributes(bool detached) {
    posix_spawnattr_init(&value);
    sigset_t none;
    sigemptyset(&none);
    sigset_t all;
    sigfillset(&all);
    posix_spawnattr_setsigmask(&value, &none);
    posix_spawnattr_setsigdefault(&value, &all);
    posix_spawnattr_setpgroup(&value, 0);
    const int group = detached ? POSIX_SPAWN_SETSID : POSIX_SPAWN_SETPGROUP;
    posix_spawnattr_setflags(
        &value, static_cast<short>(POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | group));
  }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  ~Attributes() { posix_spawnattr_destroy(&value); }
  posix_spawnattr_t value;
};

struct Pipe {
  ZAN_Descriptor read;
  ZAN_Descriptor write;
  bool open() {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC) != 0) return false;
    read = ZAN_Descriptor(ends[0]);
    write = ZAN_Descriptor(ends[1]);
    return true;
  }
};

/// Takes what the pipe holds; false at its end. What passes the bound is counted, not kept.
bool drain(const ZAN_Descriptor& pipe, std::string& text, std::size_t most, bool& tooMuch) {
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t count = read(pipe.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return errno == EAGAIN;
    if (count == 0) return false;
    const std::size_t room = most - std::min(most, text.size());
    text.append(buffer.data(), std::min(room, static_cast<std::size_t>(count)));
    if (static_cast<std::size_t>(count) > room) {
      tooMuch = true;
      return true;
    }
  }
}

std::string lastLine(const std::string& text) {
  const std::size_t end = text.find_last_not_of(" \t\r\n");
  if (end == std::string::npos) return {};
  const std::size_t newline = text.rfind('\n', end);
  const std::size_t begin = newline == std::string::npos ? 0 : newline + 1;
  return text.substr(begin, end + 1 - begin);
}

}  // namespace

Result<pid_t> spawn(const std::vector<std::string>& arguments, const SpawnStreams& streams) {
  if (arguments.empty()) return Error{ErrorKind::refused, "no program to start"};
  Actions actions;
  // A stream whose descriptor already has its number would keep close-on-exec; ours are all
  // above 2.
  actions.stream(streams.input, STDIN_FILENO);
  actions.stream(streams.output, STDOUT_FILENO);
  actions.stream(streams.error, STDERR_FILENO);
  posix_spawn_file_actions_addclosefrom_np(&actions.value, 3);
  const Attributes attributes(streams.detached);
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);
  pid_t pid = 0;
  const int failure =
      posix_spawn(&pid, argv[0], &actions.value, &attributes.value, argv.data(), environ);
  if (failure != 0) return errorOf(arguments.front(), failure);
  return pid;
}

int statusOfWait(int waitStatus) {
  return WIFSIGNALED(waitStatus) ? WTERMSIG(waitStatus) : WEXITSTATUS(waitStatus);
}

Result<std::string> runToolBlocking(const std::vector<std::string>& arguments, double seconds) {
  const std::string name = arguments.empty() ? std::string() : arguments.front();
  Pipe output;
  Pipe errors;
  if (!output.open() || !errors.open()) return errorOf(name, errno);
  fcntl(output.read.get(), F_SETFL, O_NONBLOCK);
  fcntl(errors.read.get(), F_SETFL, O_NONBLOCK);
  const auto started =
      spawn(arguments, {.output = output.write.get(), .error = errors.write.get()});
  if (!started) return started.error();
  const pid_t pid = *started;
  output.write.close();
  errors.write.close();
  const ZAN_Descriptor process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));

  const SystemClock clock;
  const double end = clock.monotonic() + seconds;
  std::string text;
  std::string complaint;
  bool tooMuch = false;
  bool tooManyComplaints = false;
  int waitStatus = 0;
  bool ended = false;
  while (!ended && !tooMuch) {
    const double left = end - clock.monotonic();
    if (left <= 0) break;
    // Without a descriptor of the process its end is looked for ten times a second.
    const double wait = process ? left : std::min(left, 0.1);
    std::array<pollfd, 3> waits{{{output.read.get(), POLLIN, 0},
                                 {errors.read.get(), POLLIN, 0},
                                 {process.get(), POLLIN, 0}}};
    poll(waits.data(), waits.size(), static_cast<int>(std::min(wait * 1000 + 1, 1e9)));
    ended = waitpid(pid, &waitStatus, WNOHANG) == pid;
    if (output.read && !drain(output.read, text, kMostToolOutput, tooMuch)) output.read.close();
    if (errors.read && !drain(errors.read, complaint, kMostToolErrors, tooManyComplaints)) {
      errors.read.close();
    }
    // A tool that complains without end is not to be cut short by a full pipe.
    if (tooManyComplaints) complaint.erase(0, complaint.size() / 2);
    tooManyComplaints = false;
  }
  if (!ended) {
    ::kill(-pid, SIGKILL);
    // A device or a mount may hold it still.
    ExpendableChild::reapSometime(pid);
    if (tooMuch) return Error{ErrorKind::limit, name + ": more output than expected"};
    return Error{ErrorKind::unavailable, name + ": did not end in time"};
  }
  const int status = statusOfWait(waitStatus);
  if (status == 0 && !WIFSIGNALED(waitStatus)) return text;
  const std::string line = lastLine(complaint);
  const std::string how = (WIFSIGNALED(waitStatus) ? "ended by signal " : "ended with status ") +
                          std::to_string(status);
  return Error{ErrorKind::refused, name + ": " + how + (line.empty() ? "" : ", " + line)};
}

namespace {

constexpr std::size_t kMostBytes = 16UL << 20;

/// Nothing of ours is held by a child that does not go: no pipe, no lock, no folder.
void letGoOfEverything(int kept) {
  const int nothing = ::open("/dev/null", O_RDWR | O_CLOEXEC);
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) ::dup2(nothing, stream);
  if (kept > STDERR_FILENO + 1)
    ::close_range(STDERR_FILENO + 1, static_cast<unsigned>(kept) - 1, 0);
  ::close_range(static_cast<unsigned>(kept) + 1, ~0U, 0);
  [[maybe_unused]] const int moved = ::chdir("/");
}

[[noreturn]] void answer(const std::function<std::string()>& work, int pipe, pid_t parent) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (::getppid() != parent) ::_exit(1);
  letGoOfEverything(pipe);
  ::signal(SIGPIPE, SIG_DFL);
  const std::string text = work();
  for (std::size_t done = 0; done < text.size();) {
    const ssize_t count = ::write(pipe, text.data() + done, text.size() - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) ::_exit(1);
    done += static_cast<std::size_t>(count);
  }
  ::_exit(0);
}

}  // namespace

Result<std::string> ExpendableChild::ask(const std::function<std::string()>& work, double seconds) {
  const auto failed = [](const char* what) {
    return Error{ErrorKind::refused, std::string(what) + ": " + std::strerror(errno)};
  };
  std::array<int, 2> ends{};
  if (::pipe2(ends.data(), O_CLOEXEC) != 0) return failed("no pipe");
  const ZAN_Descriptor reading(ends[0]);
  ZAN_Descriptor writing(ends[1]);
  const pid_t self = ::getpid();
  const pid_t pid = ::fork();
  if (pid < 0) return failed("no child process");
  if (pid == 0) answer(work, writing.get(), self);
  writing.close();

  const SystemClock clock;
  const double end = clock.monotonic() + seconds;
  std::string text;
  for (;;) {
    const double left = end - clock.monotonic();
    pollfd wait{reading.get(), POLLIN, 0};
    if (left <= 0 || (::poll(&wait, 1, static_cast<int>(std::min(left * 1000 + 1, 1e9))) == 0)) {
      if (left > 0) continue;
      ::kill(pid, SIGKILL);
      if (::waitpid(pid, nullptr, WNOHANG) == 0) reapSometime(pid);
      return Error{ErrorKind::unavailable, "no answer within " + std::to_string(seconds) + " s"};
    }
    std::array<char, 65536> buffer;
    const ssize_t count = ::read(reading.get(), buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0 || text.size() > kMostBytes) break;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  // It has closed its end, so there is nothing left that could hold it.
  int status = 0;
  if (text.size() > kMostBytes) ::kill(pid, SIGKILL);
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return text;
  return Error{ErrorKind::refused, "the child process ended without an answer"};
}

void ExpendableChild::reapSometime(pid_t pid) {
  (void)runDetached([pid] {
    while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
    }
  });
}

bool ExpendableChild::runDetached(std::function<void()> body) {
  try {
    std::thread(std::move(body)).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

}  // namespace corvana
