#include "tools/DiskList.h"

#include <sys/statvfs.h>

#include <algorithm>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
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

}  // namespace corvana
