#include "platform/linux/LinuxVolumes.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/DeviceFacts.h"
#include "platform/linux/VolumesFolderAccess.h"

namespace corvana {

LinuxVolumes::LinuxVolumes(std::string loginName, std::string home)
    : mLoginName(std::move(loginName)), mHome(std::move(home)) {}

LinuxVolumes::LinuxVolumes(std::string loginName, std::string home, RunLoop& loop,
                           DescriptorWatch& watch)
    : mLoginName(std::move(loginName)), mHome(std::move(home)), mLoop(&loop), mWatch(&watch) {}

LinuxVolumes::~LinuxVolumes() { stopWatching(); }

std::string LinuxVolumes::volumesFolder(const std::string& loginName) {
  if (const char* folder = std::getenv("CORVANA9_VOLUMES"); folder && *folder == '/') {
    std::string chosen = folder;
    while (chosen.size() > 1 && chosen.ends_with('/')) chosen.pop_back();
    return chosen;
  }
  std::string first = "/run/media/" + loginName;
  return ZAN_FilesUtils::isFolder(first) ? first : "/media/" + loginName;
}

Outcome LinuxVolumes::checkChosenFolder() const {
  if (std::getenv("CORVANA9_VOLUMES") == nullptr) return {};
  return VolumesFolderAccess(volumesFolder(), mHome).check();
}

std::string LinuxVolumes::volumesFolder() const { return volumesFolder(mLoginName); }

std::vector<Mount> LinuxVolumes::mounts() const {
  auto mounts = MountTable::read({volumesFolder(), mHome});
  const std::lock_guard lock(mSharesMutex);
  mounts.insert(mounts.end(), mShares.begin(), mShares.end());
  return mounts;
}

std::optional<VolumeInformation> LinuxVolumes::information(const Mount& mount, double maxAge) {
  return mReader.information(mount, maxAge);
}

DiskInformation LinuxVolumes::diskInformation(const Mount& mount) {
  return mount.source.starts_with("/dev/") ? DeviceFacts::diskInformation(mount.source)
                                           : DiskInformation();
}

bool LinuxVolumes::exists(const std::string& path) {
  const auto table = mounts();
  const Mount* mount = MountTable::at(table, path);
  if (mount && mount->isForeign) return mReader.exists(*mount, path);
  return ::access(path.c_str(), F_OK) == 0;
}

bool LinuxVolumes::isReachable(const std::string& host) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_DGRAM;
  addrinfo* found = nullptr;
  if (::getaddrinfo(host.c_str(), "9", &wanted, &found) != 0) return false;
  const std::unique_ptr<addrinfo, decltype(&::freeaddrinfo)> list(found, ::freeaddrinfo);
  for (const addrinfo* one = list.get(); one; one = one->ai_next) {
    const ZAN_Descriptor way(::socket(one->ai_family, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    // Nothing is sent: only the way is looked up.
    if (way && ::connect(way.get(), one->ai_addr, one->ai_addrlen) == 0) return true;
  }
  return false;
}

std::vector<std::string> LinuxVolumes::volumesFolderContents() const {
  return VolumesFolderAccess(volumesFolder(), mHome).names();
}

Outcome LinuxVolumes::removeFromVolumesFolder(const std::string& name, const GoesOn& goesOn) {
  return VolumesFolderAccess(volumesFolder(), mHome).remove(name, goesOn);
}

void LinuxVolumes::observe(Observer observer) {
  stopWatching();
  mObserver = std::move(observer);
  if (!mLoop || !mWatch || (!mObserver.mounted && !mObserver.unmounted)) return;
  mTable = ZAN_Descriptor(::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC));
  if (mTable)
    mWatching =
        mWatch->watch(mTable.get(), DescriptorWatch::Event::exceptional, [this] { look(); });
  for (auto& mount : mounts()) {
    if (!mount.isVolume) continue;
    mReader.prepare(mount, *mLoop, {});
    mSeen.push_back({std::move(mount), true});
  }
}

void LinuxVolumes::setShares(std::vector<Mount> shares) {
  {
    const std::lock_guard lock(mSharesMutex);
    mShares = std::move(shares);
  }
  if (mWatching != 0) look();
}

/// Something was mounted, unmounted or changed.
void LinuxVolumes::look() {
  std::vector<Mount> now = mounts();
  std::vector<Mount> gone;
  // One that is covered by another mount has not gone: it is seen again when that goes.
  std::erase_if(mSeen, [&](const Seen& seen) {
    if (std::ranges::any_of(now, [&](const Mount& one) { return one.key() == seen.mount.key(); }))
      return false;
    mReader.forget(seen.mount);
    if (seen.isTold) gone.push_back(seen.mount);
    return true;
  });
  std::erase_if(now, [&](const Mount& mount) {
    return !mount.isVolume || std::ranges::any_of(mSeen, [&](const Seen& seen) {
      return seen.mount.key() == mount.key();
    });
  });
  for (const Mount& mount : now) {
    mSeen.push_back({mount, false});
    mReader.prepare(mount, *mLoop, [this, mount, alive = std::weak_ptr<int>(mAlive)] {
      if (!alive.expired()) tell(mount);
    });
  }
  for (const Mount& mount : gone) {
    if (mObserver.unmounted) mObserver.unmounted(mount);
  }
}

void LinuxVolumes::tell(const Mount& mount) {
  const auto seen =
      std::ranges::find_if(mSeen, [&](const Seen& one) { return one.mount.key() == mount.key(); });
  if (seen == mSeen.end() || seen->isTold) return;
  seen->isTold = true;
  if (mObserver.mounted) mObserver.mounted(mount);
}

void LinuxVolumes::stopWatching() {
  if (mWatch) mWatch->unwatch(std::exchange(mWatching, 0));
  mTable.close();
  mSeen.clear();
}

}  // namespace corvana
