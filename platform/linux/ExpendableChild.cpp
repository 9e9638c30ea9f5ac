#include "platform/linux/ExpendableChild.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
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
