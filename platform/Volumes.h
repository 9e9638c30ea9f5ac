#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// One entry of the system's mount table.
struct Mount {
  /// The system gives it to another mount as soon as this one is gone; 0 for a share that the
  /// desktop mounts.
  std::uint64_t id = 0;
  std::uint64_t device = 0;  ///< number of the file system; bind mounts share it
  std::string target;        ///< the path where it is seen
  std::string root = "/";    ///< which folder of the file system is seen there; "/" is the whole
  std::string source;        ///< what is mounted: "/dev/sdb1", "host:/export", "smb://host/share"
  std::string fileSystem;    ///< "ext4", "cifs"
  std::string name = {};     ///< the name that the system gives it; empty: see its label
  bool writable = true;
  bool isVolume = false;  ///< a disk or a share as the user sees it, not a part of the system
  bool isServer = false;  ///< on another machine
  /// It may stop answering at any time, so it is asked only through `Volumes`.
  bool isForeign = false;

  /// Tells whether it is still the same one: being writable may change.
  auto key() const { return std::tie(id, device, target, source, root); }
  /// The device's name in the system, the last component of `source`; empty for what is no device.
  std::string bsdName() const {
    if (!source.starts_with("/dev/")) return {};
    return source.substr(source.rfind('/') + 1);
  }
};

/// The mount that is seen at the path: the deepest that holds it, of several at one place the last.
/// Text only. Null when none does.
const Mount* mountAt(const std::vector<Mount>& mounts, std::string_view path);
/// The path with its links followed as long as they lie on what is not foreign: no foreign mount is
/// asked. Thread: any.
std::string withLinksFollowed(const std::vector<Mount>& mounts, const std::string& path);

/// What a mounted file system says of itself.
struct VolumeInformation {
  std::uint64_t totalSize = 0;     ///< bytes
  std::uint64_t freeSize = 0;      ///< bytes that the user may still fill
  std::uint64_t creationDate = 0;  ///< seconds since 2001; 0: unknown
  std::string uuid;                ///< empty: none, or not to be found out without rights
  std::string label;
  bool readOnly = false;
};

/// The hardware and the partition table behind a device; what is not known is empty.
struct DiskInformation {
  std::string disk;          ///< the whole disk that the partition is part of, such as "sdb"
  bool isInternal = false;   ///< neither removable nor on a bus that is plugged
  std::string connection;    ///< "usb", "sata", "nvme"
  std::string partitionMap;  ///< "gpt", "dos"
  std::string model;
  std::string vendor;
};

/// The mounted volumes. Nothing here ever waits long for a mount: answers come from memory or
/// within a fraction of a second, and a mount that does not answer counts as unreadable until it
/// does. Thread: main, except where said.
class Volumes {
 public:
  static constexpr double kAnyAge = 1e12;

  struct Observer {
    std::function<void(const Mount&)> mounted;    ///< and has answered for the first time
    std::function<void(const Mount&)> unmounted;  ///< as it was; only one that was told before
  };

  virtual ~Volumes() = default;

  /// The folder below which volumes are mounted, looked up at each call. Thread: any.
  virtual std::string volumesFolder() const = 0;
  /// The whole table as it is now, oldest first, with the shares that the desktop mounts; of
  /// several mounts at one place the last is seen. Touches no mount. Thread: any.
  virtual std::vector<Mount> mounts() const = 0;
  /// What the mount says of itself, not older than `maxAge` seconds unless it takes its time;
  /// nothing when it does not answer or is gone.
  virtual std::optional<VolumeInformation> information(const Mount& mount,
                                                       double maxAge = kAnyAge) = 0;
  /// Touches no mount.
  virtual DiskInformation diskInformation(const Mount& mount) = 0;
  /// Whether something is at the path; what cannot be asked is not there.
  virtual bool exists(const std::string& path) = 0;

  /// Whether a server of that name can be found and a way leads to it. Blocks; thread: any.
  virtual bool isReachable(const std::string& host) = 0;
  /// The names of everything in the volumes folder, sorted by their bytes. Empty when it cannot be
  /// read, and for a folder that must not be taken for it: "/", a home, a folder of the system, the
  /// mount point of something else.
  virtual std::vector<std::string> volumesFolderContents() const = 0;
  /// Asked before each thing that is to be deleted, with how many have gone; false: no more.
  using GoesOn = std::function<bool(std::uint64_t gone)>;
  /// Deletes what has that name in the volumes folder, with everything in it. Nothing beyond a
  /// mount point or a link is ever touched, even when it is mounted meanwhile: it ends at the first
  /// thing that is not to be deleted, or cannot be. Takes its time where there is much in it;
  /// thread: any.
  virtual Outcome removeFromVolumesFolder(const std::string& name, const GoesOn& goesOn) = 0;
  /// Takes what has that name out of the way and loses nothing: a folder that is empty is removed,
  /// anything else is moved into the hidden folder `kMovedAside` of the volumes folder, under a
  /// name that is free there. Its path by then; empty for what was removed or had gone. What is
  /// mounted, or holds something that is, stays. Thread: any.
  virtual Result<std::string> moveAsideInVolumesFolder(const std::string& name) = 0;
  static constexpr const char* kMovedAside = ".Moved aside";
  /// How much there is: everything but folders is counted, with its size.
  struct Contents {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
  };
  /// Of what has that name in the volumes folder, without looking behind mount points and links.
  /// Takes its time where there is much in it; thread: any.
  virtual Result<Contents> measureInVolumesFolder(const std::string& name,
                                                  const GoesOn& goesOn) const = 0;

  /// From now on volumes (`isVolume`) that come and go are told from the loop, one after another. A
  /// second observer replaces the first; an empty one ends it.
  virtual void observe(Observer observer) = 0;
};

}  // namespace corvana
