#include "platform/linux/VolumeReader.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <tuple>
#include <utility>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

namespace {

/// How often a device is asked who it is until it has a UUID to tell, and how old that answer is
/// then, in seconds.
constexpr int kIdentityReadings = 4;
constexpr double kUnidentified = 1;

using SteadyClock = std::chrono::steady_clock;
using Key = std::tuple<std::uint64_t, std::uint64_t, std::string>;

Key keyOf(const Mount& mount) { return {mount.id, mount.device, mount.target}; }

/// Blocks as long as the mount does. Nothing when the place shows something else meanwhile.
std::optional<VolumeInformation> ask(const Mount& mount) {
  const ZAN_Descriptor place(
      ::open(mount.target.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC | O_NOFOLLOW));
  struct statx times {};
  struct statvfs space {};
  if (!place || ::statx(place.get(), "", AT_EMPTY_PATH, STATX_BTIME | STATX_MNT_ID, &times) != 0 ||
      ::fstatvfs(place.get(), &space) != 0)
    return std::nullopt;
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
  int waiting = 0;      ///< threads that are with the mount
  bool isLate = false;  ///< one of them is there for longer than anybody waits
  std::function<void()> answered;

  /// Under the lock.
  void ended() {
    if (--waiting == 0) isLate = false;
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
  std::thread([shared = mShared, slot, mount, identify = mIdentify,
               identifies = slot->wantsIdentity(mount)] {
    auto answer = ask(mount);
    DeviceFacts::Identity identity;
    if (answer && identifies) identity = identify(mount.source);
    const std::lock_guard lock(shared->mutex);
    if (answer) {
      if (identifies) ++slot->identityReadings;
      if (!identity.uuid.empty() || !identity.label.empty()) slot->identity = std::move(identity);
      answer->uuid = slot->identity.uuid;
      answer->label = slot->identity.label;
    }
    slot->information = std::move(answer);
    slot->at = SteadyClock::now();
    slot->ended();
    shared->changed.notify_all();
    if (slot->answered && shared->loop)
      shared->loop->performOnMain(std::exchange(slot->answered, nullptr));
  }).detach();
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
  slot->isLate = !mShared->changed.wait_for(lock, std::chrono::duration<double>(mLimit),
                                            [&] { return slot->waiting == 0 || slot->at > now; });
  return slot->isLate ? std::nullopt : slot->information;
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
  ++slot->waiting;
  std::thread([shared = mShared, slot, path, answer] {
    const bool isThere = ::access(path.c_str(), F_OK) == 0;
    const std::lock_guard guard(shared->mutex);
    *answer = isThere;
    slot->ended();
    shared->changed.notify_all();
  }).detach();
  slot->isLate = !mShared->changed.wait_for(lock, std::chrono::duration<double>(mLimit),
                                            [&] { return answer->has_value(); });
  return !slot->isLate && **answer;
}

void VolumeReader::forget(const Mount& mount) {
  const std::lock_guard lock(mShared->mutex);
  mShared->slots.erase(keyOf(mount));
}

}  // namespace corvana
