#include "tools/DiskTool.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr const char* kColumns =
    "NAME,KNAME,PATH,TYPE,SIZE,FSTYPE,LABEL,UUID,MOUNTPOINTS,PTTYPE,PARTTYPENAME,RM,RO,TRAN,MODEL,"
    "VENDOR";
constexpr double kMostSeconds = 30;
/// What carries other volumes, or nothing that a user keeps.
constexpr std::string_view kNoVolumes[] = {
    "swap",      "LVM2_member", "crypto_LUKS", "linux_raid_member", "zfs_member", "bcache",
    "BitLocker", "squashfs",    "erofs"};

Disk diskFrom(const ZAN_Value& entry, const DiskList::Identify& identify) {
  Disk disk;
  disk.name = entry.string("kname");
  if (disk.name.empty()) disk.name = entry.string("name");
  disk.path = entry.string("path");
  disk.type = entry.string("type");
  disk.fileSystem = entry.string("fstype");
  disk.label = entry.string("label");
  disk.uuid = entry.string("uuid");
  disk.partitionMap = entry.string("pttype");
  disk.partitionType = entry.string("parttypename");
  disk.connection = entry.string("tran");
  disk.model = ZAN_StringUtils::trimmed(entry.string("model"));
  disk.vendor = ZAN_StringUtils::trimmed(entry.string("vendor"));
  disk.size = entry["size"].unsignedValue();
  disk.isRemovable = entry["rm"].boolValue();
  disk.isReadOnly = entry["ro"].boolValue();
  for (const ZAN_Value& place : entry["mountpoints"].elements()) {
    const std::string path = place.string();
    if (path.starts_with('/')) disk.mountPoints.push_back(path);
  }
  for (const ZAN_Value& part : entry["children"].elements())
    disk.parts.push_back(diskFrom(part, identify));
  if (disk.fileSystem.empty() && disk.parts.empty() && identify) {
    auto identity = identify(disk.path);
    disk.fileSystem = std::move(identity.fileSystem);
    disk.label = std::move(identity.label);
    disk.uuid = std::move(identity.uuid);
  }
  return disk;
}

bool isOfNoInterest(const Disk& disk) {
  if (disk.size == 0 || disk.name.starts_with("zram") || disk.name.starts_with("ram")) return true;
  return disk.type == "loop" && disk.parts.empty() && !disk.isVolume();
}

std::string partitionMapName(const std::string& map) {
  return map == "gpt" ? "GUID_partition_scheme" : map == "dos" ? "FDisk_partition_scheme" : map;
}

DiskList::Found search(const std::vector<Disk>& disks, const std::string& name, const Disk* whole) {
  for (const Disk& disk : disks) {
    const Disk* above = whole ? whole : &disk;
    if (disk.name == name || disk.path == name || "/dev/" + disk.name == name ||
        std::ranges::find(disk.mountPoints, name) != disk.mountPoints.end())
      return {&disk, above};
    if (const auto found = search(disk.parts, name, above); found.disk) return found;
  }
  return {};
}

void listNames(const Disk& disk, ZAN_Value& names, ZAN_Value& volumes) {
  names.append(disk.name);
  if (!disk.mountPoints.empty()) volumes.append(disk.volumeName());
  for (const Disk& part : disk.parts) listNames(part, names, volumes);
}

ZAN_Value shortEntry(const Disk& disk) {
  ZAN_Value entry = ZAN_Value::dictionary(
      {{"DeviceIdentifier", disk.name}, {"Size", disk.size}, {"Content", disk.content()}});
  const std::string name = disk.volumeName();
  if (!name.empty()) entry.setValue("VolumeName", name);
  if (!disk.uuid.empty() && disk.isVolume()) entry.setValue("VolumeUUID", disk.uuid);
  if (!disk.mountPoints.empty()) entry.setValue("MountPoint", disk.mountPoints.front());
  return entry;
}

/// What lies in a partition, such as an unlocked volume, is listed behind it.
void listParts(const Disk& disk, ZAN_Value& parts) {
  for (const Disk& part : disk.parts) {
    parts.append(shortEntry(part));
    listParts(part, parts);
  }
}

}  // namespace

bool Disk::isVolume() const {
  return !fileSystem.empty() && std::ranges::find(kNoVolumes, fileSystem) == std::end(kNoVolumes);
}

std::string Disk::volumeName() const {
  if (!isVolume() && mountPoints.empty()) return {};
  if (!label.empty()) return label;
  if (!mountPoints.empty())
    return std::string(ZAN_FilesUtils::lastPathComponent(mountPoints.front()));
  if (partitionType == "EFI System") return "EFI";
  return uuid;
}

std::string Disk::content() const {
  if (isWhole() && !partitionMap.empty()) return partitionMapName(partitionMap);
  if (partitionType == "EFI System") return "EFI";
  return fileSystem.empty() ? partitionType : fileSystem;
}

Result<DiskList> DiskList::parse(std::string_view json, const Identify& identify) {
  const auto read = ZAN_Json::valueWithJson(json);
  if (!read) return read.error();
  DiskList list;
  for (const ZAN_Value& entry : (*read)["blockdevices"].elements()) {
    Disk disk = diskFrom(entry, identify);
    if (!isOfNoInterest(disk)) list.mDisks.push_back(std::move(disk));
  }
  return list;
}

Result<DiskList> DiskList::read() {
  const auto output =
      runToolBlocking({"/usr/bin/lsblk", "--json", "--bytes", "--output", kColumns}, kMostSeconds);
  if (!output) return output.error();
  return parse(*output, DeviceFacts::identity);
}

DiskList::Found DiskList::find(const std::string& nameOrPath) const {
  return search(mDisks, nameOrPath, nullptr);
}

ZAN_Value DiskList::propertyList() const {
  ZAN_Value names = ZAN_Value::array();
  ZAN_Value volumes = ZAN_Value::array();
  ZAN_Value wholes = ZAN_Value::array();
  ZAN_Value entries = ZAN_Value::array();
  for (const Disk& disk : mDisks) {
    listNames(disk, names, volumes);
    wholes.append(disk.name);
    ZAN_Value entry = shortEntry(disk);
    if (!disk.parts.empty()) {
      ZAN_Value parts = ZAN_Value::array();
      listParts(disk, parts);
      entry.setValue("Partitions", parts);
    }
    entries.append(std::move(entry));
  }
  return ZAN_Value::dictionary({{"AllDisks", names},
                                {"AllDisksAndPartitions", entries},
                                {"VolumesFromDisks", volumes},
                                {"WholeDisks", wholes}});
}

ZAN_Value DiskList::propertyList(const Found& found) {
  const Disk& disk = *found.disk;
  const Disk& whole = *found.whole;
  ZAN_Value entry =
      ZAN_Value::dictionary({{"DeviceIdentifier", disk.name},
                             {"DeviceNode", disk.path},
                             {"ParentWholeDisk", whole.name},
                             {"WholeDisk", disk.isWhole()},
                             {"TotalSize", disk.size},
                             {"Size", disk.size},
                             {"VolumeName", disk.volumeName()},
                             {"FilesystemType", disk.fileSystem},
                             {"Content", disk.content()},
                             {"BusProtocol", whole.connection},
                             {"MediaName", whole.model},
                             {"Vendor", whole.vendor},
                             {"RemovableMedia", whole.isRemovable},
                             {"Internal", !whole.isRemovable && whole.connection != "usb"},
                             {"WritableMedia", !disk.isReadOnly}});
  if (!disk.uuid.empty()) entry.setValue("VolumeUUID", disk.uuid);
  if (!disk.mountPoints.empty()) {
    entry.setValue("MountPoint", disk.mountPoints.front());
    struct statvfs space {};
    if (::statvfs(disk.mountPoints.front().c_str(), &space) == 0) {
      entry.setValue("VolumeSize", static_cast<std::uint64_t>(space.f_blocks) * space.f_frsize);
      entry.setValue("FreeSpace", static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize);
    }
  }
  return entry;
}

namespace {

constexpr double kMostSecondsToAct = 300;
constexpr double kMostSecondsToFlush = 30;
constexpr std::string_view kUsage =
    "Usage: diskutil list [-plist]\n"
    "       diskutil info [-plist] NAME|PATH\n"
    "       diskutil mount NAME\n"
    "       diskutil unmount [force] NAME|PATH\n"
    "       diskutil eject PATH\n"
    "\n"
    "Lists the disks of this machine, mounts and unmounts them.\n";

Outcome ran(const std::vector<std::string>& words, double seconds = kMostSecondsToAct) {
  const auto output = runToolBlocking(words, seconds);
  if (!output) return output.error();
  return {};
}

void print(std::ostream& out, const Disk& disk, int level) {
  out << std::string(static_cast<std::size_t>(level) * 2, ' ') << disk.name << "  "
      << disk.content();
  const std::string name = disk.volumeName();
  if (!name.empty()) out << "  \"" << name << '"';
  for (const auto& place : disk.mountPoints) out << "  " << place;
  out << '\n';
  for (const Disk& part : disk.parts) print(out, part, level + 1);
}

}  // namespace

DiskTool::DiskTool(std::ostream& out, std::ostream& err)
    : mOut(out), mErr(err), mIsRoot(::geteuid() == 0) {
  const LinuxMachine machine;
  mHome = machine.homeFolder();
  mVolumesFolder = LinuxVolumes::volumesFolder(machine.loginName());
}

int DiskTool::run(const std::vector<std::string>& words) {
  std::vector<std::string> rest = words;
  const std::string verb = rest.empty() ? std::string() : rest.front();
  if (!rest.empty()) rest.erase(rest.begin());
  const bool asPropertyList = std::erase(rest, "-plist") > 0;
  const bool force = !rest.empty() && rest.front() == "force";
  if (force) rest.erase(rest.begin());
  if (verb == "--help" || verb == "-h") {
    mOut << kUsage;
    return 0;
  }
  if (verb == "list" && rest.empty()) return list(asPropertyList);
  if (rest.size() == 1) {
    if (verb == "info") return info(rest.front(), asPropertyList);
    if (verb == "mount") return mountNamed(rest.front());
    if (verb == "unmount") return unmountNamed(rest.front(), force);
    // A disk that was let go stays where it is, so that it can be mounted for the next action.
    if (verb == "eject" && !force) return unmountNamed(rest.front(), false);
  }
  mErr << kUsage;
  return 2;
}

int DiskTool::failed(const Error& error) const {
  mErr << error.text << '\n';
  return 1;
}

std::vector<Mount> DiskTool::mounts() const { return MountTable::read({mVolumesFolder, mHome}); }

int DiskTool::list(bool asPropertyList) const {
  const auto disks = DiskList::read();
  if (!disks) return failed(disks.error());
  if (asPropertyList) {
    mOut << ZAN_PropertyList::xmlPropertyList(disks->propertyList());
  } else {
    for (const Disk& disk : disks->disks()) print(mOut, disk, 0);
  }
  return 0;
}

int DiskTool::info(const std::string& nameOrPath, bool asPropertyList) const {
  const auto disks = DiskList::read();
  if (!disks) return failed(disks.error());
  const auto found = disks->find(nameOrPath);
  if (!found.disk) return failed({ErrorKind::absent, nameOrPath + ": no such disk"});
  if (asPropertyList) {
    mOut << ZAN_PropertyList::xmlPropertyList(DiskList::propertyList(found));
  } else {
    print(mOut, *found.disk, 0);
  }
  return 0;
}

int DiskTool::mountNamed(const std::string& name) const {
  const auto disks = DiskList::read();
  if (!disks) return failed(disks.error());
  const auto found = disks->find(name);
  if (!found.disk) return failed({ErrorKind::absent, name + ": no such disk"});
  const auto place = mount(*found.disk);
  if (!place) return failed(place.error());
  mOut << found.disk->name << " is mounted at " << *place << '\n';
  return 0;
}

int DiskTool::unmountNamed(const std::string& nameOrPath, bool force) const {
  std::string target = nameOrPath;
  if (!nameOrPath.starts_with('/') || nameOrPath.starts_with("/dev/")) {
    const auto disks = DiskList::read();
    if (!disks) return failed(disks.error());
    const auto found = disks->find(nameOrPath);
    if (!found.disk) return failed({ErrorKind::absent, nameOrPath + ": no such disk"});
    if (found.disk->mountPoints.empty())
      return failed({ErrorKind::refused, nameOrPath + ": not mounted"});
    if (found.disk->mountPoints.size() > 1)
      return failed({ErrorKind::refused, nameOrPath + ": mounted at several places, name one"});
    target = found.disk->mountPoints.front();
  }
  if (const Outcome done = unmount(target, force); !done) return failed(done.error());
  mOut << target << " is unmounted\n";
  return 0;
}

Result<std::string> DiskTool::mount(const Disk& disk) const {
  if (!disk.mountPoints.empty()) return disk.mountPoints.front();
  if (!disk.isVolume())
    return Error{ErrorKind::refused, disk.path + ": there is nothing on it to mount"};
  if (!mIsRoot) {
    const auto output = runToolBlocking(
        {"/usr/bin/udisksctl", "mount", "--no-user-interaction", "--block-device", disk.path},
        kMostSecondsToAct);
    if (!output) return output.error();
    const auto disks = DiskList::read();
    const auto found = disks ? disks->find(disk.name) : DiskList::Found();
    if (!found.disk || found.disk->mountPoints.empty())
      return Error{ErrorKind::unavailable, disk.path + ": it was mounted and is gone"};
    return found.disk->mountPoints.front();
  }
  auto place = makePlace(disk);
  if (!place) return place;
  if (const Outcome done = ran({"/bin/mount", "-o", "nosuid,nodev", disk.path, *place}); !done) {
    ::rmdir(place->c_str());
    return done.error();
  }
  return place;
}

/// A fresh folder named after the volume, with a number behind it when there is such a one.
Result<std::string> DiskTool::makePlace(const Disk& disk) const {
  if (const Outcome made = ZAN_FilesUtils::createFolder(mVolumesFolder, 0755); !made)
    return made.error();
  const std::string name = ZAN_FilesUtils::safeFileName(disk.volumeName());
  for (int number = 0; number < 1000; ++number) {
    const std::string place =
        mVolumesFolder + '/' + name + (number == 0 ? std::string() : std::to_string(number));
    if (::mkdir(place.c_str(), 0700) == 0) return place;
    if (errno != EEXIST) return Error{ErrorKind::unwritable, place + ": " + std::strerror(errno)};
  }
  return Error{ErrorKind::limit, mVolumesFolder + '/' + name + ": there are too many of that name"};
}

Outcome DiskTool::unmount(const std::string& target, bool force) const {
  const auto table = mounts();
  const auto found = std::find_if(table.rbegin(), table.rend(),
                                  [&](const Mount& mount) { return mount.target == target; });
  if (found == table.rend()) {
    // The desktop shows shares as folders of a mount of its own.
    const Mount* around = mountAt(table, target);
    if (around && around->fileSystem == "fuse.gvfsd-fuse" && around->target != target)
      return ran({"/usr/bin/gio", "mount", "--unmount", target});
    return Error{ErrorKind::refused, target + ": nothing is mounted there"};
  }
  if (target == "/" || !found->isVolume)
    return Error{ErrorKind::refused, target + ": it belongs to the system"};
  if (force) {
    // What is still to be written is, before it can no longer be seen; a dead device does not
    // answer, so somebody else waits for it.
    static_cast<void>(ran({"/bin/sync", "--file-system", target}, kMostSecondsToFlush));
  }
  if (!mIsRoot) {
    if (found->fileSystem.starts_with("fuse") && found->bsdName().empty()) {
      std::vector<std::string> words{"/usr/bin/fusermount3", "-u", target};
      if (force) words.insert(words.begin() + 1, "-z");
      return ran(words);
    }
    // It takes a device and would choose one of its places by itself.
    if (std::ranges::count(table, found->source, &Mount::source) > 1)
      return Error{ErrorKind::refused, target + ": its device is mounted elsewhere too"};
    std::vector<std::string> words{"/usr/bin/udisksctl", "unmount", "--no-user-interaction",
                                   "--block-device", found->source};
    if (force) words.push_back("--force");
    return ran(words);
  }
  if (force) {
    if (::umount2(target.c_str(), MNT_DETACH | UMOUNT_NOFOLLOW) != 0)
      return Error{ErrorKind::refused, target + ": " + std::strerror(errno)};
  } else if (::umount2(target.c_str(), UMOUNT_NOFOLLOW) != 0) {
    return Error{ErrorKind::refused, target + ": " + std::strerror(errno)};
  }
  // A folder that was made for the volume goes with it; one that holds something stays.
  if (ZAN_FilesUtils::parentPath(target) == mVolumesFolder) ::rmdir(target.c_str());
  return {};
}

}  // namespace corvana
