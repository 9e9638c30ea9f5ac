#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/RunLoop.h"
#include "platform/Volumes.h"
#include "platform/linux/DeviceFacts.h"

namespace corvana {

/// Asks mounts in threads of their own, so that one that never answers holds up nobody: whoever
/// asked waits a moment at most, and nobody waits for it again until it has answered. Threads that
/// wait for ever are left behind at the end. Thread: main.
class VolumeReader {
 public:
  /// Seconds that a question may take.
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
  /// Asks ahead; `answered` is called in `loop` when the mount has answered, however late, unless
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

}  // namespace corvana
