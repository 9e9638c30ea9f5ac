#include <cmath>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"

// What a settings record says about its action beside the schedule.

namespace corvana {

namespace {

/// What is in an archive, null when that is damaged; anything else as it is.
ZAN_Value unwrapped(const ZAN_Value& value) {
  if (!value.isData()) return value;
  Result<ZAN_Value> stored = ZAN_Unarchiver::unarchiveObjectWithData(value.bytes());
  return stored ? std::move(stored).value() : ZAN_Value();
}

/// Folder descriptions come as one, as an array, or as an archive of either.
void appendFolders(const ZAN_Value& value, std::vector<FolderDescription>& folders) {
  const ZAN_Value plain = unwrapped(value);
  if (plain.isDictionary()) folders.emplace_back(plain);
  if (!plain.isArray()) return;
  for (const ZAN_Value& element : plain.elements())
    folders.emplace_back(element.isDictionary() ? element : ZAN_Value::dictionary());
}

}  // namespace

std::optional<ReferenceTime> ActionsTools::getLastExecutionDateForSettings(
    const ZAN_Value& settings) {
  const std::optional<ReferenceTime> date = settings["LastExecutionDate"].asDate();
  return date && std::isfinite(*date) ? date : std::nullopt;
}

std::int64_t ActionsTools::getExecutionsCountForSettings(const ZAN_Value& settings) {
  return settings.integer("ExecCounter");
}

bool ActionsTools::hasSourceList(const ZAN_Value& settings) {
  for (const char* const key : {"ItemsListOfSourcePath", "ItemsSource"}) {
    const ZAN_Value list = unwrapped(settings[key]);
    if (list.isArray() || list.isDictionary()) return true;
  }
  return false;
}

std::vector<FolderDescription> ActionsTools::getSourcesForAction(const ZAN_Value& settings) {
  std::vector<FolderDescription> folders;
  appendFolders(settings["ItemsListOfSourcePath"], folders);
  if (folders.empty()) appendFolders(settings["ItemsSource"], folders);
  return folders;
}

FolderDescription ActionsTools::getDestinationForAction(const ZAN_Value& settings) {
  std::vector<FolderDescription> folders;
  appendFolders(settings["ItemsDestination"], folders);
  return folders.empty() ? FolderDescription() : folders.front();
}

bool ActionsTools::toleratesOtherVolumes(const ZAN_Value& settings) {
  return settings.integer("ItemsVolumeTolerance") != 0;
}

namespace {

/// Known UUIDs that differ are two volumes that take turns at one path.
bool mayBeOneVolume(const FolderDescription& one, const FolderDescription& other) {
  return one.uuid().empty() || other.uuid().empty() || one.uuid() == other.uuid();
}

struct FilledCopy {
  std::string path;
  FolderDescription source;
};

std::vector<FilledCopy> copiesOf(const ZAN_Value& settings) {
  std::vector<FilledCopy> copies;
  if (settings["OptionsPerformer"].stringView() != "corvana9") return copies;
  const std::string destination(ActionsTools::getDestinationForAction(settings).path());
  if (destination.empty()) return copies;
  for (auto& source : ActionsTools::getSourcesForAction(settings)) {
    const auto name = ZAN_FilesUtils::lastPathComponent(source.path());
    copies.push_back({ZAN_FilesUtils::joinedPath(destination, name), std::move(source)});
  }
  return copies;
}

}  // namespace

std::optional<std::string> ActionsTools::copyInDispute(const ZAN_Value& one,
                                                       const ZAN_Value& other) {
  constexpr int kSynchronise = 3;
  const auto ones = copiesOf(one);
  const auto others = copiesOf(other);
  if (!mayBeOneVolume(getDestinationForAction(one), getDestinationForAction(other)))
    return std::nullopt;
  for (const FilledCopy& mine : ones) {
    for (const FilledCopy& its : others) {
      const bool isSameSource =
          mine.source.path() == its.source.path() && mayBeOneVolume(mine.source, its.source);
      if (mine.path == its.path && !isSameSource) return mine.path;
      if (one.integer("Mode") == kSynchronise && ZAN_FilesUtils::isBelow(its.path, mine.path))
        return its.path;
      if (other.integer("Mode") == kSynchronise && ZAN_FilesUtils::isBelow(mine.path, its.path))
        return mine.path;
    }
  }
  return std::nullopt;
}

}  // namespace corvana
