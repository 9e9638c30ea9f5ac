// Files that others write about the system, of any bytes: what the system shows of a process,
// entries of the autostart folder, names of the user's folders, the user defaults.

#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>

#include "platform/linux/LinuxMachine.h"
#include "platform/linux/ProcessTable.h"
#include "platform/simulated/TemporaryFolder.h"

namespace {

void put(const std::string& path, std::string_view bytes) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvana;
  static const TemporaryFolder folder;
  static const std::string process = folder.makeFolder("proc/" + std::to_string(::getpid()));
  static const std::string autostart = folder.makeFolder("config/autostart");
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  for (const char* const name : {"stat", "environ", "status", "cmdline"})
    put(process + "/" + name, text);
  put(folder.at("proc/stat"), text);
  std::error_code exists;
  std::filesystem::create_symlink("/Apps/A.app/Contents/MacOS/A", process + "/exe", exists);
  ProcessTable table("/home/user", folder.at("proc"));
  static_cast<void>(table.list());
  static_cast<void>(table.list());
  static_cast<void>(table.childrenOf(1));
  static_cast<void>(table.ticksOf(std::to_string(::getpid())));

  put(autostart + "/a.desktop", text);
  for (const std::string& program : LoginItems({autostart}, "/usr/bin:/bin").programs())
    if (program.empty()) std::abort();

  ::setenv("XDG_CONFIG_HOME", folder.at("config").c_str(), 1);
  put(folder.at("config/user-dirs.dirs"), text);
  const LinuxMachine machine;
  if (!machine.desktopFolder().starts_with('/') || !machine.downloadsFolder().starts_with('/'))
    std::abort();

  const std::string defaults = folder.at("defaults.ini");
  put(defaults, text);
  UserDefaults stored(defaults);
  static_cast<void>(stored.value("key"));
  stored.setValue("of the fuzzer", ZAN_Value(7));
  if (UserDefaults(defaults).value("of the fuzzer").integerValue() != 7) std::abort();
  return 0;
}
