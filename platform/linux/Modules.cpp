#include "platform/linux/Modules.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <system_error>
#include <utility>

#include "platform/keyed/TlsChannels.h"

namespace corvana {

namespace {

namespace fs = std::filesystem;

constexpr int kLevels = 4;

bool isTrusted(const fs::path& path) {
  struct stat described {};
  return ::stat(path.c_str(), &described) == 0 &&
         (described.st_uid == 0 || described.st_uid == ::geteuid());
}

/// Empty when it is missing.
std::string pathOf(const std::string& name) {
  const fs::path module = fs::path("Contents/PlugIns") / name;
  const fs::path resources = fs::path("Corvana 9.app/Contents/Resources/Corvana 9 Scheduler.app");
  std::error_code failed;
  fs::path folder = fs::read_symlink("/proc/self/exe", failed).parent_path();
  const fs::path own = folder.parent_path().parent_path() / module;
  if (isTrusted(own)) return own.string();
  for (int level = 0; level < kLevels; ++level, folder = folder.parent_path()) {
    for (const char* inside : {".", "lib/corvana9"}) {
      const fs::path one = folder / inside / resources / module;
      if (isTrusted(one)) return one.string();
    }
  }
  return {};
}

}  // namespace

Result<void*> addressInModule(const std::string& name, const char* function) {
  const std::string path = pathOf(name);
  if (path.empty()) return Error{ErrorKind::absent, name + " is not installed"};
  void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (module == nullptr) return Error{ErrorKind::unavailable, dlerror()};
  void* address = dlsym(module, function);
  if (address == nullptr)
    return Error{ErrorKind::damaged, path + " is not the module of this program"};
  return address;
}

namespace {

/// They live as long as the process.
Result<KeyedChannels*> channels() {
  const auto open = functionOfModule<OpenKeyedChannels>(kChannelModule, kOpenKeyedChannels);
  if (!open)
    return Error{open.error().kind, "encrypted channel: " + open.error().text +
                                        "; it needs OpenSSL (the package libssl3)"};
  return (*open)();
}

}  // namespace

Outcome ModuleChannels::tried() {
  const auto channel = ModuleChannels().answering(
      [](const std::string&) -> std::optional<ChannelKey> { return std::nullopt; });
  return channel ? Outcome() : Outcome(channel.error());
}

Result<std::unique_ptr<KeyedChannel>> ModuleChannels::asking(const ChannelKey& key) {
  const auto all = channels();
  if (!all) return all.error();
  return (*all)->asking(key);
}

Result<std::unique_ptr<KeyedChannel>> ModuleChannels::answering(KeyOf keyOf) {
  const auto all = channels();
  if (!all) return all.error();
  return (*all)->answering(std::move(keyOf));
}

}  // namespace corvana
