#include "volumes/ZAN_MountVolume.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"

namespace corvana {

namespace {

constexpr std::string_view kSystemTools = "/usr/sbin";
/// What a volume still has to be written may be much.
constexpr double kMostSeconds = 600;

ZAN_Value propertyList(const std::optional<std::string>& output) {
  if (!output) return {};
  const auto read = ZAN_PropertyList::propertyListWithData(std::as_bytes(std::span(*output)));
  return read && read->isDictionary() ? *read : ZAN_Value();
}

}  // namespace

ZAN_MountVolume::ZAN_MountVolume(Processes& processes, const Machine& machine, SystemLog& log)
    : mProcesses(processes),
      mLog(log),
      mToolsFolder(
          ZAN_FilesUtils::joinedPath(ZAN_FilesUtils::parentPath(machine.bundlePath()), "tools")) {}

std::string ZAN_MountVolume::toolPath(std::string_view tool) const {
  for (const std::string_view folder : {std::string_view(mToolsFolder), kSystemTools}) {
    std::string path = ZAN_FilesUtils::joinedPath(folder, tool);
    if (ZAN_FilesUtils::exists(path)) return path;
  }
  return {};
}

std::optional<std::string> ZAN_MountVolume::execute(
    std::string_view tool, const std::vector<std::string>& arguments) const {
  const std::string path = toolPath(tool);
  if (arguments.empty() || path.empty()) return std::nullopt;
  std::vector<std::string> words{path};
  words.insert(words.end(), arguments.begin(), arguments.end());
  auto output = mProcesses.runTool(words, kMostSeconds);
  if (!output) {
    mLog.write(std::string(tool) + " " + arguments.front() + ": " + output.error().text);
    return std::nullopt;
  }
  if (output->empty()) return std::nullopt;
  return *std::move(output);
}

std::optional<std::string> ZAN_MountVolume::executeDiskutilWithArgs(
    const std::vector<std::string>& arguments) const {
  return execute("diskutil", arguments);
}

std::optional<std::string> ZAN_MountVolume::executeASRWithArgs(
    const std::vector<std::string>& arguments) const {
  return execute("asr", arguments);
}

std::optional<std::string> ZAN_MountVolume::restore(const std::string& source,
                                                    const std::string& target) const {
  return executeASRWithArgs({"restore", "--source", "dev/" + source, "--target", "dev/" + target,
                             "--noprompt", "--erase"});
}

std::optional<std::string> ZAN_MountVolume::setFormatType(const std::string& type,
                                                          const std::string& partition) const {
  return executeASRWithArgs({"adjust", "-target", "dev/" + partition, "-settype", type});
}

void ZAN_MountVolume::mountPartition(const std::string& bsdName) const {
  executeDiskutilWithArgs({"mount", bsdName});
}

void ZAN_MountVolume::unmountPartition(const std::string& bsdName) const {
  executeDiskutilWithArgs({"unmount", "force", bsdName});
}

bool ZAN_MountVolume::ejectVolume(const std::string& path) const {
  const std::string tool = toolPath("diskutil");
  return !tool.empty() && mProcesses.runTool({tool, "eject", path}, kMostSeconds);
}

std::string ZAN_MountVolume::getBSDNameForVolumePath(const std::string& path) const {
  return propertyList(executeDiskutilWithArgs({"info", "-plist", path})).string("DeviceIdentifier");
}

ZAN_Value ZAN_MountVolume::getAllVolumesDictionary() const {
  return propertyList(executeDiskutilWithArgs({"list", "-plist"}));
}

ZAN_Value ZAN_MountVolume::getInfosForBSDName(const std::string& bsdName) const {
  return propertyList(executeDiskutilWithArgs({"info", "-plist", bsdName}));
}

namespace {

constexpr double kLook = 0.1;

/// The helper while it mounts.
struct Helper {
  std::unique_ptr<ChildProcess> child;
  std::shared_ptr<std::int64_t> result;
};

void watch(RunLoop& loop, const std::shared_ptr<Helper>& helper) {
  if (helper->child->isRunning()) {
    loop.performAfter(kLook, [&loop, helper] { watch(loop, helper); });
  } else {
    *helper->result = helper->child->terminationStatus() == 0 ? ZAN_MountRemoteVolume::kMounted
                                                              : ZAN_MountRemoteVolume::kFailed;
  }
}

}  // namespace

ZAN_MountRemoteVolume::ZAN_MountRemoteVolume(Platform& platform, std::string toolsFolder)
    : m(platform),
      mToolsFolder(std::move(toolsFolder)),
      mResult(std::make_shared<std::int64_t>(kFailed)) {}

std::string ZAN_MountRemoteVolume::addressFor(const std::string& address) {
  std::string text;
  for (const char letter : address) {
    if (letter == ' ') {
      text += "%20";
    } else {
      text += letter;
    }
  }
  if (text.empty() || text.find("://") != std::string::npos) return text;
  while (text.starts_with('/')) text.erase(text.begin());
  return text.empty() ? text : "smb://" + text;
}

std::string ZAN_MountRemoteVolume::hostOf(const std::string& address) {
  const auto scheme = address.find("://");
  std::string host = scheme == std::string::npos ? address : address.substr(scheme + 3);
  host = host.substr(0, host.find('/'));
  if (const auto user = host.rfind('@'); user != std::string::npos) host.erase(0, user + 1);
  // An IPv6 address stands in brackets, with the port behind them.
  if (host.starts_with('[')) return host.substr(1, host.find(']') - 1);
  return host.substr(0, host.find(':'));
}

void ZAN_MountRemoteVolume::mountRemoteVolume(const std::optional<std::string>& address,
                                              const std::optional<std::string>& user,
                                              const std::optional<std::string>& password) {
  // A request that still runs reports to nobody.
  mResult = std::make_shared<std::int64_t>(kFailed);
  if (!address || !user || !password) return;
  *mResult = kRunning;
  const std::string full = addressFor(*address);
  const std::string answers = *user + '\n' + *password + '\n';
  const std::string tool = ZAN_FilesUtils::joinedPath(mToolsFolder, "mountvolume");
  m.runLoop.detachThread(
      "mountRemoteVolume", [&platform = m, result = mResult, full, answers, tool] {
        const std::string host = hostOf(full);
        const bool isReachable = !host.empty() && platform.volumes.isReachable(host);
        platform.runLoop.performOnMain([&platform, result, full, answers, tool, host, isReachable] {
          if (host.empty()) {
            *result = kNoAddress;
          } else if (!isReachable) {
            *result = kNotReachable;
          } else if (auto started = platform.processes.start({tool, "--share", full}, true, {});
                     !started) {
            *result = kFailed;
          } else {
            auto child = std::move(started).value();
            child->write(answers);
            watch(platform.runLoop, std::make_shared<Helper>(Helper{std::move(child), result}));
          }
        });
      });
}

}  // namespace corvana
