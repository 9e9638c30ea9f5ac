#include "app/program/DesktopModule.h"

#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace corvana {

namespace {

bool mayHaveDisplay() {
  for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}) {
    const char* value = std::getenv(name);
    if (value != nullptr && *value != '\0') return true;
  }
  return false;
}

std::string modulePath() {
  std::error_code failed;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", failed);
  return (program.parent_path().parent_path() / "PlugIns" / "Desktop.so").string();
}

}  // namespace

std::unique_ptr<Desktop> openDesktop(int& count, char** arguments, SystemLog& log) {
  if (!mayHaveDisplay()) return nullptr;
  // It stays open: Qt leaves objects behind that live until the process ends.
  void* module = dlopen(modulePath().c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (module == nullptr) {
    log.write(std::string("No windows: ") + dlerror());
    return nullptr;
  }
  const auto open = reinterpret_cast<OpenDesktop>(dlsym(module, kOpenDesktop));
  if (open == nullptr) {
    log.write("No windows: " + modulePath() + " is not the desktop of this program");
    return nullptr;
  }
  std::string reason;
  std::unique_ptr<Desktop> desktop(open(count, arguments, reason));
  if (desktop == nullptr) log.write("No windows: " + reason);
  return desktop;
}

}  // namespace corvana
