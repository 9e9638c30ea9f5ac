#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <time.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "platform/linux/SystemClock.h"

namespace corvana {

namespace {

/// A program that starts others forks first: for that long a process may still be on its way.
constexpr double kYoung = 5;
/// Every so many listings each process is looked at once.
constexpr std::uint64_t kTurns = 16;

std::string contents(const std::string& path) {
  const ZAN_Descriptor file(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  std::string text;
  std::array<char, 4096> buffer{};
  for (;;) {
    const ssize_t count = file ? read(file.get(), buffer.data(), buffer.size()) : 0;
    if (count <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

}  // namespace

ProcessTable::ProcessTable(std::string home, std::string folder)
    : mHome(std::move(home)), mFolder(std::move(folder)) {
  timespec sinceBoot{};
  clock_gettime(CLOCK_BOOTTIME, &sinceBoot);
  mBoot = SystemClock().now() - static_cast<double>(sinceBoot.tv_sec) -
          static_cast<double>(sinceBoot.tv_nsec) / 1e9;
}

template <class Body>
void ProcessTable::eachProcess(Body body) const {
  const std::unique_ptr<DIR, int (*)(DIR*)> folder(opendir(mFolder.c_str()), closedir);
  if (!folder) return;
  while (const dirent* entry = readdir(folder.get())) {
    char* end = nullptr;
    const long pid = std::strtol(entry->d_name, &end, 10);
    if (pid > 0 && *end == '\0') body(static_cast<pid_t>(pid), entry->d_ino);
  }
}

std::vector<RunningProcess> ProcessTable::list() {
  ++mRound;
  const double now = SystemClock().monotonic();
  std::vector<RunningProcess> running;
  eachProcess([&](pid_t pid, std::uint64_t inode) {
    const auto [found, added] = mKnown.try_emplace(pid);
    Known& known = found->second;
    known.round = mRound;
    if (added || known.inode != inode) {
      // The folder of a living process may get another number, too.
      if (added || originOf(pid).startTicks != known.startTicks) {
        known = {.firstSeen = now, .round = mRound, .process = {}};
      }
      known.inode = inode;
      look(pid, known);
    } else if (!known.process.bundlePath.empty() || now - known.firstSeen < kYoung ||
               (static_cast<std::uint64_t>(pid) + mRound) % kTurns == 0) {
      look(pid, known);
    }
    if (!known.counts) return;
    if (!known.process.bundlePath.empty()) known.process.isDying = isDying(pid);
    running.push_back(known.process);
  });
  std::erase_if(mKnown, [&](const auto& one) { return one.second.round != mRound; });
  return running;
}

bool ProcessTable::isOwn(pid_t pid) const {
  struct stat status {};
  return stat(pathOf(pid, "").c_str(), &status) == 0 && status.st_uid == geteuid();
}

std::vector<pid_t> ProcessTable::childrenOf(pid_t parent) const {
  std::vector<pid_t> children;
  bool areListed = false;
  std::error_code gone;
  // It may end meanwhile.
  for (std::filesystem::directory_iterator thread(pathOf(parent, "/task"), gone), end;
       !gone && thread != end; thread.increment(gone)) {
    const std::string list = thread->path() / "children";
    areListed |= access(list.c_str(), R_OK) == 0;
    std::istringstream pids(contents(list));
    for (pid_t pid = 0; pids >> pid;) children.push_back(pid);
  }
  if (areListed) return children;
  eachProcess([&](pid_t pid, std::uint64_t) {
    if (originOf(pid).parent == parent) children.push_back(pid);
  });
  return children;
}

std::optional<long> ProcessTable::ticksOf(const std::string& process) const {
  const std::string text = contents(mFolder + "/" + process + "/stat");
  const std::size_t name = text.rfind(')');
  if (name == std::string::npos) return std::nullopt;
  std::istringstream fields(text.substr(name + 1));
  constexpr int kFieldsBefore = 11;
  std::string skipped;
  for (int i = 0; i < kFieldsBefore; ++i) fields >> skipped;
  long ours = 0;
  long system = 0;
  fields >> ours >> system;
  return fields ? std::optional(ours + system) : std::nullopt;
}

void ProcessTable::look(pid_t pid, Known& known) const {
  const std::string executable = executableOf(pid);
  if (executable == known.process.executable) return;
  known.process.executable = executable;
  known.process.bundlePath = bundlePathOfExecutable(executable);
  known.process.bundleExecutable = executable.substr(executable.rfind('/') + 1);
  // One that has ended and was not waited for has no executable any more.
  const std::string environment = contents(pathOf(pid, "/environ"));
  // In the middle of becoming another program a process shows no environment: it is asked again.
  if (environment.empty()) known.process.executable.clear();
  known.counts = !executable.empty() && isOwn(pid) && hasSameHome(environment) &&
                 (known.process.bundlePath.empty() || !isPart(pid, executable));
  if (!known.counts || known.startTicks != 0) return;
  known.startTicks = originOf(pid).startTicks;
  known.counts = known.startTicks != 0;
  known.process.pid = pid;
  known.process.start =
      mBoot + static_cast<double>(known.startTicks) / static_cast<double>(sysconf(_SC_CLK_TCK));
}

ProcessTable::Origin ProcessTable::originOf(pid_t pid) const {
  const std::string text = contents(pathOf(pid, "/stat"));
  // The name in parentheses may hold blanks and parentheses itself.
  const std::size_t name = text.rfind(')');
  if (name == std::string::npos) return {};
  std::istringstream fields(text.substr(name + 1));
  std::string state;
  Origin origin;
  fields >> state >> origin.parent;
  constexpr int kFieldsBetween = 17;
  std::string skipped;
  for (int i = 0; i < kFieldsBetween; ++i) fields >> skipped;
  fields >> origin.startTicks;
  return fields ? origin : Origin{};
}

/// A process that a program has made of itself is no other program.
bool ProcessTable::isPart(pid_t pid, const std::string& executable) const {
  const pid_t parent = originOf(pid).parent;
  return parent > 0 && executableOf(parent) == executable;
}

/// A signal that cannot be refused waits for it. The name in the first line of the file cannot
/// hold a line end.
bool ProcessTable::isDying(pid_t pid) const {
  const std::string text = contents(pathOf(pid, "/status"));
  for (const std::string_view name : {"\nSigPnd:\t", "\nShdPnd:\t"}) {
    const std::size_t at = text.find(name);
    if (at == std::string::npos) continue;
    const auto pending = std::strtoull(text.c_str() + at + name.size(), nullptr, 16);
    if ((pending >> (SIGKILL - 1) & 1) != 0) return true;
  }
  return false;
}

std::string ProcessTable::executableOf(pid_t pid) const {
  std::array<char, 4096> buffer{};
  const ssize_t size = readlink(pathOf(pid, "/exe").c_str(), buffer.data(), buffer.size());
  if (size <= 0) return {};
  return std::string(
      withoutDeletedMark(std::string_view(buffer.data(), static_cast<std::size_t>(size))));
}

bool ProcessTable::hasSameHome(std::string_view environment) const {
  constexpr std::string_view kName = "HOME=";
  std::string_view rest = environment;
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('\0'), rest.size());
    const std::string_view entry = rest.substr(0, end);
    if (entry.starts_with(kName)) return entry.substr(kName.size()) == mHome;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return false;
}

std::string ProcessTable::pathOf(pid_t pid, const char* name) const {
  return mFolder + "/" + std::to_string(pid) + name;
}

namespace {

/// A program that is being started takes its name a moment after its file was opened.
constexpr double kFirstLook = 0.2;
/// On a busy machine it takes longer.
constexpr double kSecondLook = 2.0;
constexpr double kWithoutEvents = 5.0;

constexpr std::uint32_t kStructure = IN_CREATE | IN_MOVE | IN_ONLYDIR | IN_MASK_ADD;

timespec timespecOf(double seconds) {
  const double whole = std::floor(seconds);
  return {static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
}

}  // namespace

void ProgramWatch::observe(std::vector<std::string> bundlePaths, std::function<void()> changed) {
  stop();
  mBundlePaths = std::move(bundlePaths);
  mChanged = std::move(changed);
  mTimer = ZAN_Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!mTimer) return;
  mWatchingTimer =
      mLoop.watch(mTimer.get(), DescriptorWatch::Event::readable, [this] { timerRang(); });
  mFiles = ZAN_Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!mFiles) {
    setTimer(kWithoutEvents, kWithoutEvents);
    return;
  }
  mWatchingFiles =
      mLoop.watch(mFiles.get(), DescriptorWatch::Event::readable, [this] { somethingHappened(); });
  watchFolders();
}

void ProgramWatch::stop() {
  mLoop.unwatch(std::exchange(mWatchingFiles, 0));
  mLoop.unwatch(std::exchange(mWatchingTimer, 0));
  mFiles.close();
  mTimer.close();
  mLooks = 0;
}

/// From the folder that holds the bundle, or the nearest one above that is there, down to the
/// folder of its programs, since any of them may come, go or be replaced.
void ProgramWatch::watchFolders() const {
  namespace fs = std::filesystem;
  const auto watch = [this](const fs::path& folder, std::uint32_t mask) {
    return inotify_add_watch(mFiles.get(), folder.c_str(), kStructure | mask) >= 0;
  };
  for (const fs::path bundle : mBundlePaths) {
    fs::path above = bundle.parent_path();
    while (!watch(above, 0) && above.has_relative_path()) above = above.parent_path();
    const fs::path contents = bundle / "Contents";
    // What appears meanwhile lies in a folder that is watched already.
    watch(bundle, 0);
    watch(contents, 0);
    watch(contents / "MacOS", IN_OPEN | IN_CLOSE);
  }
}

void ProgramWatch::somethingHappened() {
  std::array<char, 4096> events{};
  while (read(mFiles.get(), events.data(), events.size()) > 0) {
  }
  watchFolders();
  if (mLooks == 2) return;
  mLooks = 2;
  setTimer(kFirstLook, kSecondLook);
}

void ProgramWatch::timerRang() {
  std::uint64_t times = 0;
  if (read(mTimer.get(), &times, sizeof times) < 0) return;
  if (mFiles && --mLooks == 0) setTimer(0, 0);
  const auto changed = mChanged;
  if (changed) changed();
}

void ProgramWatch::setTimer(double first, double then) {
  const itimerspec when{timespecOf(then), timespecOf(first)};
  timerfd_settime(mTimer.get(), 0, &when, nullptr);
}

}  // namespace corvana
