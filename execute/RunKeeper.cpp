#include "execute/RunKeeper.h"

#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <new>
#include <set>
#include <vector>

#include "platform/linux/MountTable.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/TerminationSignals.h"

namespace corvana {

namespace {

/// What waits for a pipe wakes up now and then and uses less than that.
constexpr long kSignOfLife = 2;  // ticks of the processor, of 10 ms
constexpr double kShortestLook = 0.05;
constexpr double kLongestLook = 5;

/// Also those that were started by its children.
std::vector<pid_t> descendantsOf(const ProcessTable& table, pid_t process) {
  std::vector<pid_t> all = table.childrenOf(process);
  for (std::size_t i = 0; i < all.size(); ++i) {
    for (const pid_t child : table.childrenOf(all[i])) all.push_back(child);
  }
  return all;
}

/// What the disks with the volumes that a process has opened have read and written so far. It may
/// wait for a slow one for long after its last write.
std::string countsOfDisks(pid_t process) {
  std::set<std::uint64_t> opened;
  std::error_code gone;
  const std::string place = "/proc/" + std::to_string(process) + "/fdinfo";
  // It closes some meanwhile, and may end; what reads words of a stream takes that for its end.
  for (std::filesystem::directory_iterator descriptor(place, gone), end; !gone && descriptor != end;
       descriptor.increment(gone)) {
    std::ifstream lines(descriptor->path());
    for (std::string word; lines >> word;) {
      std::uint64_t id = 0;
      if (word == "mnt_id:" && lines >> id) opened.insert(id);
    }
  }
  const char* const home = std::getenv("HOME");
  std::string counts;
  for (const Mount& mount : MountTable::read({.volumesFolder = {}, .home = home ? home : ""})) {
    // Those of the system and of the home are never at rest.
    if (!mount.isForeign || !opened.contains(mount.id)) continue;
    std::ifstream facts("/sys/dev/block/" + std::to_string(major(mount.device)) + ':' +
                        std::to_string(minor(mount.device)) + "/stat");
    // Requests and sectors, read and written; the times in between grow while a disk hangs, too.
    std::string fact;
    for (int number = 1; number <= 7 && facts >> fact; ++number)
      if (number % 2 == 1) counts += fact + ' ';
  }
  return counts;
}

}  // namespace

RunKeeper::Patience RunKeeper::Patience::usual() {
  Patience patience;
  const char* const wanted = std::getenv("CORVANA9_PATIENCE");
  const double seconds = wanted ? std::strtod(wanted, nullptr) : 0;
  if (seconds > 0) patience.silence = seconds;
  return patience;
}

RunKeeper::RunKeeper(Patience patience)
    : mPatience(patience),
      mSigns(static_cast<RunSigns*>(::mmap(nullptr, sizeof(RunSigns), PROT_READ | PROT_WRITE,
                                           MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {
  if (mSigns == MAP_FAILED) throw std::bad_alloc();
  new (mSigns) RunSigns;
}

RunKeeper::~RunKeeper() { ::munmap(mSigns, sizeof(RunSigns)); }

std::optional<RunKeeper::End> RunKeeper::split() {
  // Blocked in both, so that none is lost before somebody listens.
  const TerminationSignals wishes(true);
  const pid_t self = ::getpid();
  mChild = ::fork();
  if (mChild == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != self) ::_exit(1);
    return std::nullopt;
  }
  // Without a second process this one executes.
  if (mChild < 0) return std::nullopt;
  return keep(wishes);
}

RunKeeper::End RunKeeper::keep(const TerminationSignals& wishes) {
  const ZAN_Descriptor life(static_cast<int>(::syscall(SYS_pidfd_open, mChild, 0)));
  const SystemClock clock;
  mLatestSign = clock.monotonic();
  End end;
  for (;;) {
    const double look = std::clamp(mPatience.silence / 20, kShortestLook, kLongestLook);
    std::array<pollfd, 2> waits{{{life.get(), POLLIN, 0}, {wishes.descriptor(), POLLIN, 0}}};
    ::poll(waits.data(), waits.size(), static_cast<int>(look * 1000));
    if (::waitpid(mChild, &end.status, WNOHANG) == mChild) return end;
    while (const auto wish = wishes.take()) ::kill(mChild, wish->endsSession() ? SIGHUP : SIGTERM);
    const double now = clock.monotonic();
    end.stop = mSigns->stop;
    const bool isStopping = end.stop != StopReason::none;
    if ((mSigns->paused && !isStopping) || hasSigns()) mLatestSign = now;
    const double most =
        isStopping ? std::min(mPatience.stopping, mPatience.silence) : mPatience.silence;
    if (now - mLatestSign < most) continue;
    giveUp();
    end.isSilent = true;
    return end;
  }
}

/// Whether anything of the execution has worked since the last sign of it.
bool RunKeeper::hasSigns() {
  // What copies onto a slow share uses next to no processor and tells how far it is.
  if (const std::uint64_t news = mSigns->news; news != mNews) {
    mNews = news;
    return true;
  }
  const ProcessTable table{std::string()};
  std::map<pid_t, long> used;
  const auto note = [&](const std::string& place, pid_t id) {
    if (const auto ticks = table.ticksOf(place)) used[id] = *ticks;
  };
  // The other threads answer messages, whatever becomes of the execution.
  const pid_t thread = mSigns->thread != 0 ? mSigns->thread.load() : mChild;
  note(std::to_string(mChild) + "/task/" + std::to_string(thread), thread);
  for (const pid_t process : descendantsOf(table, mChild)) note(std::to_string(process), process);
  const auto isSame = [](const auto& one, const auto& other) { return one.first == other.first; };
  long work = 0;
  std::string counts = countsOfDisks(mChild);
  const bool areTheSame = std::ranges::equal(used, mUsed, isSame) && counts == mCounts;
  for (const auto& [id, ticks] : used) work += ticks;
  for (const auto& [id, ticks] : mUsed) work -= ticks;
  if (areTheSame && work < kSignOfLife) return false;
  mUsed = std::move(used);
  mCounts = std::move(counts);
  return true;
}

/// What a file system holds goes when that lets go of it.
void RunKeeper::giveUp() {
  for (const pid_t process : descendantsOf(ProcessTable(std::string()), mChild))
    ::kill(process, SIGKILL);
  ::kill(mChild, SIGKILL);
  const SystemClock clock;
  const double end = clock.monotonic() + mPatience.untilGivenUp;
  while (::waitpid(mChild, nullptr, WNOHANG) == 0 && clock.monotonic() < end)
    SystemClock().sleep(kShortestLook);
}

void RunKeeper::endLike(int status) {
  if (WIFEXITED(status)) ::_exit(WEXITSTATUS(status));
  // One that crashed has left its core already.
  constexpr rlimit kNone{0, 0};
  ::setrlimit(RLIMIT_CORE, &kNone);
  const int number = WTERMSIG(status);
  ::signal(number, SIG_DFL);
  sigset_t one;
  ::sigemptyset(&one);
  ::sigaddset(&one, number);
  ::sigprocmask(SIG_UNBLOCK, &one, nullptr);
  ::raise(number);
  ::_exit(128 + number);
}

}  // namespace corvana
