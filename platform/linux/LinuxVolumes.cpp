#include "platform/linux/LinuxVolumes.h"

#include <fcntl.h>
#include <netdb.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/statvfs.h>

#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <map>
#include <tuple>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/Spawn.h"
#include "platform/linux/VolumesFolderAccess.h"

namespace corvana {

namespace {

/// How often a device is asked who it is until it has a UUID to tell, and how old that answer is
/// then, in seconds.
constexpr int kIdentityReadings = 4;
constexpr double kUnidentified = 1;

using SteadyClock = std::chrono::steady_clock;
using Key = std::tuple<std::uint64_t, std::uint64_t, std::string>;

Key keyOf(const Mount& mount) { return {mount.id, mount.device, mount.target}; }

/// What a mount says of itself.
struct Sayings {
  struct statx times {};
  struct statvfs space {};
  bool isThere = false;
};

/// Blocks as long as the mount does.
Sayings listen(const char* target) {
  Sayings heard;
  const ZAN_Descriptor place(::open(target, O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  heard.isThere =
      place &&
      ::statx(place.get(), "", AT_EMPTY_PATH, STATX_BTIME | STATX_MNT_ID, &heard.times) == 0 &&
      ::fstatvfs(place.get(), &heard.space) == 0;
  return heard;
}

/// Blocks as long as the mount does, but can be left at it. `known` when it could not be asked,
/// which the system's own can be without a child. Nothing when the place shows something else
/// meanwhile.
std::optional<VolumeInformation> answerOf(const Mount& mount,
                                          const std::optional<VolumeInformation>& known) {
  auto heard = ExpendableChild::valueOf([&] { return listen(mount.target.c_str()); },
                                        ExpendableChild::kAsLongAsItTakes);
  if (!heard && !mount.isForeign) heard = listen(mount.target.c_str());
  if (!heard) return known;
  if (!heard->isThere) return std::nullopt;
  const auto& [times, space, isThere] = *heard;
  const bool isShared = mount.id == 0;  // by the desktop, below a mount of its own
  if (!isShared && (times.stx_mask & STATX_MNT_ID) != 0 && times.stx_mnt_id != mount.id)
    return std::nullopt;
  VolumeInformation information;
  information.totalSize = static_cast<std::uint64_t>(space.f_blocks) * space.f_frsize;
  information.freeSize = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
  information.readOnly = (space.f_flag & ST_RDONLY) != 0;
  if ((times.stx_mask & STATX_BTIME) != 0 &&
      static_cast<double>(times.stx_btime.tv_sec) > kReferenceEpochInUnixTime) {
    information.creationDate = static_cast<std::uint64_t>(times.stx_btime.tv_sec) -
                               static_cast<std::uint64_t>(kReferenceEpochInUnixTime);
  }
  return information;
}

}  // namespace

struct VolumeReader::Slot {
  std::optional<VolumeInformation> information;
  DeviceFacts::Identity identity;  ///< the device's: it stays
  int identityReadings = 0;
  SteadyClock::time_point at;
  SteadyClock::time_point asked;
  int waiting = 0;      ///< children that are with the mount
  bool isLate = false;  ///< one of them is there for longer than anybody waits
  std::function<void()> answered;

  struct Reading {
    std::optional<VolumeInformation> answer;
    DeviceFacts::Identity identity;
    bool identifies = false;
  };

  /// Under the lock.
  void ended() {
    if (--waiting == 0) isLate = false;
  }
  /// Under the lock.
  void take(Reading reading) {
    if (reading.answer) {
      if (reading.identifies) ++identityReadings;
      if (!reading.identity.uuid.empty() || !reading.identity.label.empty())
        identity = std::move(reading.identity);
      reading.answer->uuid = identity.uuid;
      reading.answer->label = identity.label;
    }
    information = std::move(reading.answer);
    at = SteadyClock::now();
    ended();
  }
  bool wantsIdentity(const Mount& mount) const {
    return identity.uuid.empty() && identityReadings < kIdentityReadings &&
           mount.source.starts_with("/dev/");
  }
};

struct VolumeReader::Shared {
  std::mutex mutex;
  std::condition_variable changed;
  std::map<Key, std::shared_ptr<Slot>> slots;
  RunLoop* loop = nullptr;

  /// Under the lock.
  std::shared_ptr<Slot> slotOf(const Mount& mount) {
    auto& slot = slots[keyOf(mount)];
    if (!slot) slot = std::make_shared<Slot>();
    return slot;
  }
};

/// Under the lock.
void VolumeReader::startReading(const std::shared_ptr<Slot>& slot, const Mount& mount) {
  ++slot->waiting;
  slot->asked = SteadyClock::now();
  const auto read = [mount, identify = mIdentify, known = slot->information,
                     identifies = slot->wantsIdentity(mount)] {
    Slot::Reading reading{answerOf(mount, known), {}, identifies};
    if (reading.answer && identifies) reading.identity = identify(mount.source);
    return reading;
  };
  const bool isStarted = ExpendableChild::runDetached([shared = mShared, slot, read] {
    auto reading = read();
    const std::lock_guard lock(shared->mutex);
    slot->take(std::move(reading));
    shared->changed.notify_all();
    if (slot->answered && shared->loop)
      shared->loop->performOnMain(std::exchange(slot->answered, nullptr));
  });
  if (isStarted) return;
  // What may keep its reader stays as it is known, and who comes next asks again.
  if (mount.isForeign)
    slot->ended();
  else
    slot->take(read());
  if (slot->answered && mShared->loop)
    mShared->loop->performOnMain(std::exchange(slot->answered, nullptr));
}

VolumeReader::VolumeReader(Identify identify)
    : mIdentify(std::move(identify)), mShared(std::make_shared<Shared>()) {}

VolumeReader::~VolumeReader() {
  const std::lock_guard lock(mShared->mutex);
  mShared->loop = nullptr;
  mShared->slots.clear();
}

std::optional<VolumeInformation> VolumeReader::information(const Mount& mount, double maxAge) {
  std::unique_lock lock(mShared->mutex);
  const auto slot = mShared->slotOf(mount);
  if (slot->isLate) return std::nullopt;
  const auto now = SteadyClock::now();
  const double age = std::chrono::duration<double>(now - slot->at).count();
  if (slot->information && age <= maxAge && !(age > kUnidentified && slot->wantsIdentity(mount)))
    return slot->information;
  if (slot->waiting == 0) startReading(slot, mount);
  const auto end = slot->asked + std::chrono::duration_cast<SteadyClock::duration>(
                                     std::chrono::duration<double>(mLimit));
  slot->isLate =
      !mShared->changed.wait_until(lock, end, [&] { return slot->waiting == 0 || slot->at > now; });
  return slot->isLate ? std::nullopt : slot->information;
}

void VolumeReader::ask(const Mount& mount) {
  const std::lock_guard lock(mShared->mutex);
  startReading(mShared->slotOf(mount), mount);
}

void VolumeReader::prepare(const Mount& mount, RunLoop& loop, std::function<void()> answered) {
  const std::lock_guard lock(mShared->mutex);
  mShared->loop = &loop;
  const auto slot = mShared->slotOf(mount);
  slot->answered = std::move(answered);
  startReading(slot, mount);
}

bool VolumeReader::exists(const Mount& mount, const std::string& path) {
  std::unique_lock lock(mShared->mutex);
  const auto slot = mShared->slotOf(mount);
  if (slot->isLate) return false;
  const auto answer = std::make_shared<std::optional<bool>>();
  const auto look = [path, isForeign = mount.isForeign](double seconds) {
    const auto access = [&] { return ::access(path.c_str(), F_OK) == 0; };
    const auto isThere = ExpendableChild::valueOf(access, seconds);
    return isThere || isForeign ? isThere.value_or(false) : access();
  };
  ++slot->waiting;
  const bool isStarted = ExpendableChild::runDetached([shared = mShared, slot, look, answer] {
    const bool isThere = look(ExpendableChild::kAsLongAsItTakes);
    const std::lock_guard guard(shared->mutex);
    *answer = isThere;
    slot->ended();
    shared->changed.notify_all();
  });
  if (!isStarted) {
    slot->ended();
    return look(mLimit);
  }
  slot->isLate = !mShared->changed.wait_for(lock, std::chrono::duration<double>(mLimit),
                                            [&] { return answer->has_value(); });
  return !slot->isLate && **answer;
}

void VolumeReader::forget(const Mount& mount) {
  const std::lock_guard lock(mShared->mutex);
  mShared->slots.erase(keyOf(mount));
}

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

void LinuxVolumes::askAll() {
  for (const Mount& mount : mounts()) {
    if (mount.isVolume) mReader.ask(mount);
  }
}

DiskInformation LinuxVolumes::diskInformation(const Mount& mount) {
  return mount.source.starts_with("/dev/") ? DeviceFacts::diskInformation(mount.source)
                                           : DiskInformation();
}

bool LinuxVolumes::exists(const std::string& path) {
  const auto table = mounts();
  const std::string real = withLinksFollowed(table, path);
  const Mount* mount = mountAt(table, real);
  if (mount && mount->isForeign) return mReader.exists(*mount, real);
  return ::access(real.c_str(), F_OK) == 0;
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

Result<std::string> LinuxVolumes::moveAsideInVolumesFolder(const std::string& name) {
  return VolumesFolderAccess(volumesFolder(), mHome).moveAside(name);
}

Result<Volumes::Contents> LinuxVolumes::measureInVolumesFolder(const std::string& name,
                                                               const GoesOn& goesOn) const {
  return VolumesFolderAccess(volumesFolder(), mHome).measure(name, goesOn);
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
