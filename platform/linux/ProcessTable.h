#pragma once

#include <sys/types.h>

#include <unordered_map>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/Processes.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// The processes of this user with the same HOME, read from /proc. What a process is stays known as
/// long as it lives, so that a listing costs little more than reading one folder; because a process
/// can become another program, the young ones and applications are looked at anew each time, the
/// others in turn. Thread: main.
class ProcessTable {
 public:
  /// `home` is compared with the HOME of the others; `folder` is where the system shows its
  /// processes.
  explicit ProcessTable(std::string home, std::string folder = "/proc");

  std::vector<RunningProcess> list();
  /// Whether it runs and belongs to this user.
  bool isOwn(pid_t pid) const;
  /// The children of a process, ended ones that nobody has waited for included. Reads every
  /// process where the system does not list them.
  std::vector<pid_t> childrenOf(pid_t parent) const;
  /// How much of the processor a process has used, or a thread of one ("71/task/72"), in ticks;
  /// nothing when it is gone.
  std::optional<long> ticksOf(const std::string& process) const;

 private:
  struct Known {
    std::uint64_t inode = 0;  ///< of its folder: another one may be another process
    double firstSeen = 0;     ///< monotonic
    std::uint64_t round = 0;  ///< of the latest listing that had it
    std::uint64_t startTicks = 0;
    bool counts = false;  ///< of this user, with the same home
    RunningProcess process;
  };
  struct Origin {
    pid_t parent = 0;
    std::uint64_t startTicks = 0;  ///< 0: gone
  };

  /// Whether it still runs the same program; only another one is asked who it is.
  void look(pid_t pid, Known& known) const;
  Origin originOf(pid_t pid) const;
  bool isPart(pid_t pid, const std::string& executable) const;
  bool isDying(pid_t pid) const;
  std::string executableOf(pid_t pid) const;
  bool hasSameHome(std::string_view environment) const;
  std::string pathOf(pid_t pid, const char* name) const;
  template <class Body>
  void eachProcess(Body body) const;

  std::string mHome;
  std::string mFolder;
  double mBoot = 0;  ///< reference time of the system's start
  std::unordered_map<pid_t, Known> mKnown;
  std::uint64_t mRound = 0;
};

/// Tells when a program of certain bundles may have started or ended: whoever starts it opens its
/// file, and the system closes that at its end. Where the system does not tell of files, it calls
/// back every few seconds instead. Thread: main.
class ProgramWatch {
 public:
  explicit ProgramWatch(DescriptorWatch& loop) : mLoop(loop) {}
  ProgramWatch(const ProgramWatch&) = delete;
  ProgramWatch& operator=(const ProgramWatch&) = delete;
  ~ProgramWatch() { stop(); }

  /// The bundles need not be there yet. `changed` is called when the list of processes shows what
  /// has happened, sometimes for nothing.
  void observe(std::vector<std::string> bundlePaths, std::function<void()> changed);
  void stop();

 private:
  void watchFolders() const;
  void somethingHappened();
  void timerRang();
  void setTimer(double first, double then);

  DescriptorWatch& mLoop;
  std::vector<std::string> mBundlePaths;
  std::function<void()> mChanged;
  ZAN_Descriptor mFiles;
  ZAN_Descriptor mTimer;
  DescriptorWatch::WatchId mWatchingFiles = 0;
  DescriptorWatch::WatchId mWatchingTimer = 0;
  int mLooks = 0;  ///< still to come after what has happened
};

}  // namespace corvana
