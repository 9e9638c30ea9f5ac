#include "platform/linux/DeviceFacts.h"

#include <blkid/blkid.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <memory>
#include <string_view>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

namespace {

namespace fs = std::filesystem;

/// "8:1"; empty for what is no block device.
std::string numbersOf(const std::string& device) {
  struct stat status {};
  if (::stat(device.c_str(), &status) != 0 || !S_ISBLK(status.st_mode)) return {};
  return std::to_string(major(status.st_rdev)) + ":" + std::to_string(minor(status.st_rdev));
}

/// udev writes what it does not trust in a name as "\x20".
std::string decoded(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    unsigned code = 0;
    if (text.size() >= 4 && text.starts_with("\\x") &&
        std::from_chars(text.data() + 2, text.data() + 4, code, 16).ptr == text.data() + 4) {
      result.push_back(static_cast<char>(code));
      text.remove_prefix(4);
    } else {
      result.push_back(text.front());
      text.remove_prefix(1);
    }
  }
  return result;
}

/// A property in udev's record of the device; empty without udev.
class UdevRecord {
 public:
  explicit UdevRecord(const std::string& numbers) {
    std::ifstream file("/run/udev/data/b" + numbers);
    for (std::string line; std::getline(file, line);) {
      if (line.starts_with("E:")) mText += line.substr(2) + '\n';
    }
  }
  std::string property(std::string_view name) const {
    const std::string start = std::string(name) + '=';
    std::size_t at = mText.starts_with(start) ? 0 : mText.find('\n' + start);
    if (at == std::string::npos) return {};
    at = mText.find('=', at) + 1;
    return mText.substr(at, mText.find('\n', at) - at);
  }

 private:
  std::string mText;
};

std::string firstLine(const fs::path& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  const auto end = line.find_last_not_of(" \t");
  line.resize(end == std::string::npos ? 0 : end + 1);
  return line;
}

DeviceFacts::Identity probed(const std::string& device) {
  const ZAN_Descriptor file(::open(device.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
  if (!file) return {};
  using Probe = std::unique_ptr<std::remove_pointer_t<blkid_probe>, decltype(&blkid_free_probe)>;
  const Probe probe(blkid_new_probe(), blkid_free_probe);
  if (!probe || blkid_probe_set_device(probe.get(), file.get(), 0, 0) != 0) return {};
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(),
                                    BLKID_SUBLKS_UUID | BLKID_SUBLKS_LABEL | BLKID_SUBLKS_TYPE);
  if (blkid_do_safeprobe(probe.get()) != 0) return {};
  const auto value = [&](const char* name) -> std::string {
    const char* text = nullptr;
    return blkid_probe_lookup_value(probe.get(), name, &text, nullptr) == 0 && text ? text : "";
  };
  return {value("UUID"), value("LABEL"), value("TYPE")};
}

}  // namespace

DeviceFacts::Identity DeviceFacts::identity(const std::string& device) {
  const std::string numbers = numbersOf(device);
  if (numbers.empty()) return {};
  const UdevRecord record(numbers);
  Identity identity{record.property("ID_FS_UUID"), decoded(record.property("ID_FS_LABEL_ENC")),
                    record.property("ID_FS_TYPE")};
  return identity.fileSystem.empty() ? probed(device) : identity;
}

DiskInformation DeviceFacts::diskInformation(const std::string& device) {
  const std::string numbers = numbersOf(device);
  if (numbers.empty()) return {};
  std::error_code failure;
  fs::path place = fs::canonical("/sys/dev/block/" + numbers, failure);
  if (failure) return {};
  if (fs::exists(place / "partition", failure)) place = place.parent_path();
  DiskInformation information;
  information.disk = place.filename().string();
  const std::string& path = place.native();
  const auto isOn = [&](std::string_view part) { return path.find(part) != std::string::npos; };
  information.connection = isOn("/usb")      ? "usb"
                           : isOn("/nvme")   ? "nvme"
                           : isOn("/mmc")    ? "mmc"
                           : isOn("/ata")    ? "sata"
                           : isOn("/virtio") ? "virtio"
                                             : "";
  information.isInternal =
      firstLine(place / "removable") != "1" && !isOn("/usb") && !isOn("/virtual/");
  information.model = firstLine(place / "device/model");
  information.vendor = firstLine(place / "device/vendor");
  information.partitionMap = UdevRecord(firstLine(place / "dev")).property("ID_PART_TABLE_TYPE");
  return information;
}

}  // namespace corvana
