#pragma once

#include <iosfwd>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "platform/Volumes.h"
#include "platform/linux/MountTable.h"

namespace corvana {

/// A disk, a partition, or what is made of them (an unlocked or a logical volume).
struct Disk {
  std::string name;  ///< the kernel's, "sdb1"
  std::string path;  ///< "/dev/sdb1", "/dev/mapper/backup"
  std::string type;  ///< "disk", "part", "crypt", "lvm", "loop", "rom"
  std::string fileSystem;
  std::string label;
  std::string uuid;
  std::string partitionMap;   ///< of a whole disk: "gpt", "dos"
  std::string partitionType;  ///< "EFI System"
  std::string connection;
  std::string model;
  std::string vendor;
  std::uint64_t size = 0;
  bool isRemovable = false;
  bool isReadOnly = false;
  std::vector<std::string> mountPoints;  ///< where it can be seen, first mounted first
  std::vector<Disk> parts;

  bool isWhole() const { return type == "disk" || type == "loop" || type == "rom"; }
  /// Holds files that can be mounted.
  bool isVolume() const;
  /// Its label, else what it is mounted as, else its UUID; empty for what is no volume.
  std::string volumeName() const;
  /// The partition map, the file system, or the kind of partition.
  std::string content() const;
};

/// All disks of the machine. Thread: any.
class DiskList {
 public:
  using Identify = std::function<DeviceFacts::Identity(const std::string& device)>;

  /// From what lsblk prints as JSON. `identify` is asked where lsblk knows no file system. Disks of
  /// no size, memory, and images of programs are left out.
  static Result<DiskList> parse(std::string_view json, const Identify& identify);
  /// Of this machine, by lsblk.
  static Result<DiskList> read();

  const std::vector<Disk>& disks() const { return mDisks; }
  /// By kernel name, device path or mount point, null when there is none; with the whole disk it is
  /// on.
  struct Found {
    const Disk* disk = nullptr;
    const Disk* whole = nullptr;
  };
  Found find(const std::string& nameOrPath) const;

  /// The property list of all of them: "AllDisks", "AllDisksAndPartitions", "VolumesFromDisks",
  /// "WholeDisks".
  ZAN_Value propertyList() const;
  /// That of one of them.
  static ZAN_Value propertyList(const Found& found);

 private:
  std::vector<Disk> mDisks;
};

/// The system tool for disks, in the words that the agent speaks.
///
///     list [-plist]                     all disks and partitions
///     info [-plist] NAME|PATH           one of them
///     mount NAME                        below the volumes folder
///     unmount [force] NAME|PATH         `force`: even while files are open
///     eject PATH                        as the user lets a volume go
///
/// Root mounts and unmounts by itself; other users have it done by UDisks2, and shares by what
/// mounted them. It ends with 0 when done, 1 when it could not, with the reason, and 2 for wrong
/// words.
class DiskTool {
 public:
  DiskTool(std::ostream& out, std::ostream& err);

  int run(const std::vector<std::string>& words);

  /// Mounts a device unless it is mounted; its place.
  Result<std::string> mount(const Disk& disk) const;
  /// Unmounts what is at a place. `force`: even while files are open there.
  Outcome unmount(const std::string& target, bool force) const;
  const std::string& volumesFolder() const { return mVolumesFolder; }

 private:
  int list(bool asPropertyList) const;
  int info(const std::string& nameOrPath, bool asPropertyList) const;
  int mountNamed(const std::string& name) const;
  int unmountNamed(const std::string& nameOrPath, bool force) const;
  int failed(const Error& error) const;
  std::vector<Mount> mounts() const;
  Result<std::string> makePlace(const Disk& disk) const;

  std::ostream& mOut;
  std::ostream& mErr;
  std::string mHome;
  std::string mVolumesFolder;
  bool mIsRoot;
};

}  // namespace corvana
