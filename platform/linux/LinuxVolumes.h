#pragma once

#include <mutex>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/RunLoop.h"
#include "platform/linux/DescriptorWatch.h"
#include "platform/linux/MountTable.h"

namespace corvana {

/// Asks mounts in child processes, so that one that never answers holds up nobody: whoever asked
/// waits a moment at most, and nobody waits for it again until it has answered. One child stays
/// with such a mount, and a thread that waits for it and can be ended at any time. Thread: main.
class VolumeReader {
 public:
  /// Seconds that a question may take, from when it was asked.
  void setLimit(double seconds) { mLimit = seconds; }

  /// What is known of a device; blocks, thread: any.
  using Identify = std::function<DeviceFacts::Identity(const std::string& device)>;

  explicit VolumeReader(Identify identify = DeviceFacts::identity);
  ~VolumeReader();
  VolumeReader(const VolumeReader&) = delete;
  VolumeReader& operator=(const VolumeReader&) = delete;

  /// What the mount says of itself, from memory when that is not older than `maxAge` seconds. A
  /// device without a UUID is looked at some more times, whoever asks: the system learns of it a
  /// moment after it is mounted.
  std::optional<VolumeInformation> information(const Mount& mount, double maxAge);
  /// Asks ahead, so that several mounts can take their time at once.
  void ask(const Mount& mount);
  /// The same; `answered` is called in `loop` when the mount has answered, however late, unless
  /// it is forgotten before.
  void prepare(const Mount& mount, RunLoop& loop, std::function<void()> answered);
  /// Whether something is at a path on that mount.
  bool exists(const Mount& mount, const std::string& path);
  /// The mount is gone.
  void forget(const Mount& mount);

 private:
  struct Slot;
  struct Shared;
  void startReading(const std::shared_ptr<Slot>& slot, const Mount& mount);
  Identify mIdentify;
  std::shared_ptr<Shared> mShared;
  double mLimit = 0.2;
};

/// Volumes by the kernel's mount table, which says itself when it changes, and by what the desktop
/// tells of its shares. Thread: main, except where the interface says more.
class LinuxVolumes final : public Volumes {
 public:
  /// For one look around: nothing is watched.
  LinuxVolumes(std::string loginName, std::string home);
  /// The loop and the watch outlive this object.
  LinuxVolumes(std::string loginName, std::string home, RunLoop& loop, DescriptorWatch& watch);
  ~LinuxVolumes() override;

  std::string volumesFolder() const override;
  std::vector<Mount> mounts() const override;
  std::optional<VolumeInformation> information(const Mount& mount,
                                               double maxAge = kAnyAge) override;
  DiskInformation diskInformation(const Mount& mount) override;
  bool exists(const std::string& path) override;
  bool isReachable(const std::string& host) override;
  std::vector<std::string> volumesFolderContents() const override;
  Outcome removeFromVolumesFolder(const std::string& name, const GoesOn& goesOn) override;
  Result<std::string> moveAsideInVolumesFolder(const std::string& name) override;
  Result<Contents> measureInVolumesFolder(const std::string& name,
                                          const GoesOn& goesOn) const override;
  void observe(Observer observer) override;

  /// How many seconds a mount may take to answer; a fraction of one at first.
  void setPatience(double seconds) { mReader.setLimit(seconds); }
  /// Asks all volumes at once: together they then take no longer than one of them.
  void askAll();
  /// The shares that the desktop shows as folders, as they are now (`id` 0).
  void setShares(std::vector<Mount> shares);

  /// $CORVANA9_VOLUMES if set, else the user's folder below /run/media or /media, the first that is
  /// there; the latter when neither is.
  static std::string volumesFolder(const std::string& loginName);
  /// Why nothing is looked for or deleted in the folder that $CORVANA9_VOLUMES names.
  Outcome checkChosenFolder() const;

 private:
  struct Seen {
    Mount mount;
    bool isTold = false;
  };

  void look();
  void tell(const Mount& mount);
  void stopWatching();

  std::string mLoginName;
  std::string mHome;
  RunLoop* mLoop = nullptr;
  DescriptorWatch* mWatch = nullptr;
  ZAN_Descriptor mTable;
  DescriptorWatch::WatchId mWatching = 0;
  VolumeReader mReader;
  Observer mObserver;
  mutable std::mutex mSharesMutex;
  std::vector<Mount> mShares;
  std::vector<Seen> mSeen;
  std::shared_ptr<int> mAlive = std::make_shared<int>();
};

}  // namespace corvana
