/// Loaded before a program, it lets calls into the system fail. In the environment:
///   CORVANA_FAULT     "KIND NUMBER once" or "KIND NUMBER always": the call of that kind with that
///                     number, from 1 on, and those after it; "KIND NUMBER kill": the process is
///                     killed instead
///   CORVANA_FAULT_IN  name of the program that it is meant for; others go untouched
///   CORVANA_FAULT_COUNT  a file that grows by a byte with each call of that kind
///   CORVANA_FAULT_SYNCED  a file that gets a line for each file that was synchronised: its device,
///                     its number and its size then
/// Kinds: thread, fork, pipe, descriptor, open, write (of files), fsync, rename (and link), lock.

#include <dirent.h>
#include <dlfcn.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <spawn.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/inotify.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

struct Plan {
  std::array<char, 16> kind{};
  long number = 0;
  bool always = false;
  bool kills = false;
  int count = -1;
  int synced = -1;

  Plan() {
    const char* const fault = std::getenv("CORVANA_FAULT");
    if (fault == nullptr || !isMeant()) return;
    std::array<char, 16> often{};
    if (std::sscanf(fault, "%15s %ld %15s", kind.data(), &number, often.data()) != 3) return;
    always = std::strcmp(often.data(), "always") == 0;
    kills = std::strcmp(often.data(), "kill") == 0;
    count = opened("CORVANA_FAULT_COUNT");
    synced = opened("CORVANA_FAULT_SYNCED");
  }

  static int opened(const char* variable) {
    const char* const file = std::getenv(variable);
    if (file == nullptr) return -1;
    return static_cast<int>(
        ::syscall(SYS_openat, AT_FDCWD, file, O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600));
  }

  static bool isMeant() {
    const char* const wanted = std::getenv("CORVANA_FAULT_IN");
    if (wanted == nullptr) return true;
    std::array<char, 4096> path{};
    if (::readlink("/proc/self/exe", path.data(), path.size() - 1) < 0) return false;
    const char* const name = std::strrchr(path.data(), '/');
    return name != nullptr && std::strcmp(name + 1, wanted) == 0;
  }
};

const Plan& plan() {
  static const Plan kPlan;
  return kPlan;
}

std::atomic<long> calls{0};

bool fails(const char* kind, int code) {
  const Plan& wanted = plan();
  if (std::strcmp(wanted.kind.data(), kind) != 0) return false;
  const int before = errno;
  if (wanted.count >= 0) ::syscall(SYS_write, wanted.count, ".", 1);
  const long number = ++calls;
  const bool isHit = wanted.always ? number >= wanted.number : number == wanted.number;
  if (isHit && wanted.kills) ::kill(::getpid(), SIGKILL);
  errno = isHit ? code : before;
  return isHit;
}

template <class Function>
Function real(Function, const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool isFile(int file) {
  struct stat status;
  const int before = errno;
  const bool is = ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
  errno = before;
  return is;
}

int noteSynced(int result, int file) {
  struct stat status;
  const int before = errno;
  if (result == 0 && plan().synced >= 0 && ::fstat(file, &status) == 0 && S_ISREG(status.st_mode)) {
    std::array<char, 64> line{};
    const int length = std::snprintf(line.data(), line.size(), "%lu %lu %ld\n", status.st_dev,
                                     status.st_ino, status.st_size);
    ::syscall(SYS_write, plan().synced, line.data(), static_cast<size_t>(length));
  }
  errno = before;
  return result;
}

/// Qt waits without end for a thread of its own that it could not start, which cannot be helped
/// once it has begun: the programs ask for one themselves before.
bool isQt(const void* caller) {
  Dl_info place{};
  return ::dladdr(caller, &place) != 0 && place.dli_fname != nullptr &&
         std::strstr(place.dli_fname, "libQt6") != nullptr;
}

mode_t modeOf(int flags, va_list arguments) {
  return (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
}

}  // namespace

#define REAL(name) static const auto next = real(&::name, #name)

extern "C" {

int pthread_create(pthread_t* thread, const pthread_attr_t* attributes, void* (*body)(void*),
                   void* argument) {
  REAL(pthread_create);
  const bool isTried = !isQt(__builtin_return_address(0));
  return isTried && fails("thread", EAGAIN) ? EAGAIN : next(thread, attributes, body, argument);
}

pid_t fork() noexcept {
  REAL(fork);
  return fails("fork", EAGAIN) ? -1 : next();
}
int posix_spawn(pid_t* pid, const char* path, const posix_spawn_file_actions_t* actions,
                const posix_spawnattr_t* attributes, char* const* words, char* const* environment) {
  REAL(posix_spawn);
  return fails("fork", EAGAIN) ? EAGAIN : next(pid, path, actions, attributes, words, environment);
}

int pipe(int* ends) noexcept {
  REAL(pipe);
  return fails("pipe", EMFILE) ? -1 : next(ends);
}
int pipe2(int* ends, int flags) noexcept {
  REAL(pipe2);
  return fails("pipe", EMFILE) ? -1 : next(ends, flags);
}

int socket(int domain, int type, int protocol) noexcept {
  REAL(socket);
  return fails("descriptor", EMFILE) ? -1 : next(domain, type, protocol);
}
int socketpair(int domain, int type, int protocol, int* ends) noexcept {
  REAL(socketpair);
  return fails("descriptor", EMFILE) ? -1 : next(domain, type, protocol, ends);
}
int signalfd(int file, const sigset_t* signals, int flags) noexcept {
  REAL(signalfd);
  return fails("descriptor", EMFILE) ? -1 : next(file, signals, flags);
}
int timerfd_create(clockid_t clock, int flags) noexcept {
  REAL(timerfd_create);
  return fails("descriptor", EMFILE) ? -1 : next(clock, flags);
}
int inotify_init1(int flags) noexcept {
  REAL(inotify_init1);
  return fails("descriptor", EMFILE) ? -1 : next(flags);
}
int epoll_create1(int flags) noexcept {
  REAL(epoll_create1);
  return fails("descriptor", EMFILE) ? -1 : next(flags);
}

int open(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  REAL(open);
  return fails("open", EMFILE) ? -1 : next(path, flags, mode);
}
int open64(const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  REAL(open64);
  return fails("open", EMFILE) ? -1 : next(path, flags, mode);
}
int openat(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  REAL(openat);
  return fails("open", EMFILE) ? -1 : next(folder, path, flags, mode);
}
int openat64(int folder, const char* path, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = modeOf(flags, arguments);
  va_end(arguments);
  REAL(openat64);
  return fails("open", EMFILE) ? -1 : next(folder, path, flags, mode);
}
FILE* fopen(const char* path, const char* mode) {
  REAL(fopen);
  return fails("open", EMFILE) ? nullptr : next(path, mode);
}
FILE* fopen64(const char* path, const char* mode) {
  REAL(fopen64);
  return fails("open", EMFILE) ? nullptr : next(path, mode);
}
DIR* opendir(const char* path) {
  REAL(opendir);
  return fails("open", EMFILE) ? nullptr : next(path);
}

ssize_t write(int file, const void* bytes, size_t count) {
  REAL(write);
  return isFile(file) && fails("write", ENOSPC) ? -1 : next(file, bytes, count);
}
ssize_t writev(int file, const iovec* pieces, int count) {
  REAL(writev);
  return isFile(file) && fails("write", ENOSPC) ? -1 : next(file, pieces, count);
}
ssize_t pwrite64(int file, const void* bytes, size_t count, off64_t offset) {
  REAL(pwrite64);
  return isFile(file) && fails("write", ENOSPC) ? -1 : next(file, bytes, count, offset);
}

int fsync(int file) {
  REAL(fsync);
  return fails("fsync", EIO) ? -1 : noteSynced(next(file), file);
}
int fdatasync(int file) {
  REAL(fdatasync);
  return fails("fsync", EIO) ? -1 : noteSynced(next(file), file);
}

int rename(const char* from, const char* to) noexcept {
  REAL(rename);
  return fails("rename", ENOSPC) ? -1 : next(from, to);
}
int renameat(int folder, const char* from, int other, const char* to) noexcept {
  REAL(renameat);
  return fails("rename", ENOSPC) ? -1 : next(folder, from, other, to);
}
int renameat2(int folder, const char* from, int other, const char* to, unsigned flags) noexcept {
  REAL(renameat2);
  return fails("rename", ENOSPC) ? -1 : next(folder, from, other, to, flags);
}
int link(const char* from, const char* to) noexcept {
  REAL(link);
  return fails("rename", ENOSPC) ? -1 : next(from, to);
}

/// Of the calls without a name of their own those that open files.
long syscall(long number, ...) noexcept {
  va_list arguments;
  va_start(arguments, number);
  std::array<long, 6> words{};
  for (long& word : words) word = va_arg(arguments, long);
  va_end(arguments);
  REAL(syscall);
  if (number == SYS_openat2 && fails("open", EMFILE)) return -1;
  return next(number, words[0], words[1], words[2], words[3], words[4], words[5]);
}

int flock(int file, int operation) noexcept {
  REAL(flock);
  return fails("lock", ENOLCK) ? -1 : next(file, operation);
}

}  // extern "C"
