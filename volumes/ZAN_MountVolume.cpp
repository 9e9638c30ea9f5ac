#include "volumes/ZAN_MountVolume.h"

#include <span>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "platform/Machine.h"
#include "platform/Processes.h"

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

}  // namespace corvana
