// The kernel's table of mounts and what lsblk prints, of any bytes: what is found is what the rest
// of the program relies on.

#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/linux/MountTable.h"
#include "tools/DiskTool.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvana;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  for (const Mount& mount : MountTable::parse(text, {"/media/user", "/home/user"}))
    if (mount.target.empty()) std::abort();
  const auto disks = DiskList::parse(text, [](const std::string& device) {
    return DeviceFacts::Identity{.uuid = device, .label = {}, .fileSystem = {}};
  });
  if (!disks && disks.error().text.empty()) std::abort();
  return 0;
}
