// Holds one alarm that wakes the machine. The right to do so, CAP_WAKE_ALARM, comes with the file;
// it is given up as soon as the alarm is set. The program stays behind, alone, until the alarm goes
// off or is cancelled. Which alarm it holds stands in a file that it keeps locked, so that the lock
// ends with it and names its process. There is one alarm for a folder, and folders in which others
// can write have none.

#include <fcntl.h>
#include <linux/capability.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace {

constexpr int kWrongWords = 2;
constexpr const char* kFile = "Wakeup";

int failed(const std::string& what, int error) {
  std::fprintf(stderr, "%s: %s\n", what.c_str(), std::strerror(error));
  return 1;
}

/// A process that was killed needs a moment to be gone.
void waitAMoment() {
  const timespec moment{0, 5'000'000};
  nanosleep(&moment, nullptr);
}

/// The process that holds the alarm, 0 without one.
pid_t holderOf(int file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(file, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : 0;
}

bool takeLock(int file) {
  struct flock lock {};
  lock.l_type = F_WRLCK;
  lock.l_whence = SEEK_SET;
  return fcntl(file, F_SETLK, &lock) == 0;
}

std::int64_t timeIn(int file) {
  std::array<char, 32> text{};
  const ssize_t size = pread(file, text.data(), text.size(), 0);
  std::int64_t time = 0;
  if (size > 0) std::from_chars(text.data(), text.data() + size, time);
  return time;
}

bool end(int file, pid_t holder) {
  // On a folder that machines share, the holder may be a process of another one.
  if (holder <= 0) return false;
  if (kill(holder, SIGTERM) != 0 && errno != ESRCH) return false;
  for (int tries = 0; tries < 400 && holderOf(file) == holder; ++tries) waitAMoment();
  return holderOf(file) != holder;
}

/// A file that nobody else may have meant: no link of either kind, and the user's own.
bool isOurs(int file) {
  struct stat status;
  return fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_uid == getuid() &&
         status.st_nlink == 1;
}

/// Below 0 with `errno` when it is not there, or when others can put something in it.
int openFolder(const std::string& path) {
  const int folder = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  struct stat status;
  if (folder < 0 || fstat(folder, &status) != 0) return -1;
  if (status.st_uid == getuid() && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0) return folder;
  close(folder);
  errno = EPERM;
  return -1;
}

int cancel(std::int64_t time, const std::string& path) {
  const int folder = openFolder(path);
  const int file = folder < 0 ? -1 : openat(folder, kFile, O_RDWR | O_CLOEXEC | O_NOFOLLOW);
  if (file < 0) return errno == ENOENT ? 0 : failed(path, errno);
  const pid_t holder = holderOf(file);
  if (holder == 0 || timeIn(file) != time) return 0;
  if (!end(file, holder)) return failed(path, EBUSY);
  return 0;
}

void giveUpRights() {
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  std::array<__user_cap_data_struct, 2> none{};
  syscall(SYS_capset, &header, none.data());
}

std::string ownPath() {
  std::array<char, PATH_MAX> path{};
  const ssize_t size = readlink("/proc/self/exe", path.data(), path.size());
  return size > 0 ? std::string(path.data(), static_cast<std::size_t>(size)) : "wakeup";
}

/// An errno, 0 when the alarm is set.
int arm(int timer, std::int64_t time) {
  itimerspec when{};
  when.it_value.tv_sec = static_cast<time_t>(time);
  return timerfd_settime(timer, TFD_TIMER_ABSTIME, &when, nullptr) == 0 ? 0 : errno;
}

/// In the process that stays: says by `report` how it went (an errno) and waits for the alarm.
[[noreturn]] void hold(int timer, int folder, int file, std::int64_t time, int report) {
  setsid();
  int error = takeLock(file) ? arm(timer, time) : errno;
  const std::string text = std::to_string(time) + "\n";
  if (error == 0 && (ftruncate(file, 0) != 0 || pwrite(file, text.data(), text.size(), 0) !=
                                                    static_cast<ssize_t>(text.size())))
    error = errno;
  giveUpRights();
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    close(stream);
    open("/dev/null", O_RDWR);
  }
  [[maybe_unused]] const ssize_t told = write(report, &error, sizeof error);
  close(report);
  if (error != 0 || chdir("/") != 0) _exit(1);
  std::uint64_t times = 0;
  while (read(timer, &times, sizeof times) < 0 && errno == EINTR) {
  }
  unlinkat(folder, kFile, 0);
  _exit(0);
}

int set(std::int64_t time, const std::string& path) {
  const int timer = timerfd_create(CLOCK_REALTIME_ALARM, TFD_CLOEXEC);
  if (timer < 0) {
    if (errno != EPERM) return failed("the alarm", errno);
    std::fprintf(stderr,
                 "it may not wake the machine; allow it: sudo setcap cap_wake_alarm+ep '%s'\n",
                 ownPath().c_str());
    return 1;
  }
  const int folder = openFolder(path);
  if (folder < 0) return failed(path, errno);
  const int file = openat(folder, kFile, O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
  if (file < 0) return failed(path, errno);
  if (!isOurs(file)) return failed(path, EPERM);
  if (const pid_t holder = holderOf(file); holder != 0) {
    if (timeIn(file) == time) return 0;
    if (!end(file, holder)) return failed(path, EBUSY);
  }
  std::array<int, 2> report{};
  if (pipe2(report.data(), O_CLOEXEC) != 0) return failed("a pipe", errno);
  const pid_t child = fork();
  if (child < 0) return failed("a process", errno);
  if (child == 0) {
    close(report[0]);
    hold(timer, folder, file, time, report[1]);
  }
  close(report[1]);
  int error = EIO;
  if (read(report[0], &error, sizeof error) != sizeof error) error = EIO;
  return error == 0 ? 0 : failed("the alarm", error);
}

}  // namespace

int main(int count, char** arguments) {
  // The one that stays holds nothing of whoever started it.
  close_range(STDERR_FILENO + 1, ~0U, 0);
  const std::string_view verb = count == 4 ? arguments[1] : "";
  const std::string_view number = count == 4 ? arguments[2] : "";
  std::int64_t time = 0;
  const auto parsed = std::from_chars(number.data(), number.data() + number.size(), time);
  const bool isTime = parsed.ec == std::errc() && parsed.ptr == number.data() + number.size();
  if ((verb != "set" && verb != "cancel") || !isTime || time <= 0) {
    std::fputs("Usage: wakeup set|cancel SECONDS-SINCE-1970 FOLDER\n", stderr);
    return kWrongWords;
  }
  return verb == "set" ? set(time, arguments[3]) : cancel(time, arguments[3]);
}
