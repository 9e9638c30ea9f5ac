#include "platform/linux/ProcessTable.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <memory>
#include <sstream>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/BundlePath.h"
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
    if (known.counts) running.push_back(known.process);
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
  eachProcess([&](pid_t pid, std::uint64_t) {
    if (originOf(pid).parent == parent) children.push_back(pid);
  });
  return children;
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
  known.counts = !executable.empty() && isOwn(pid) && hasSameHome(environment);
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

}  // namespace corvana
