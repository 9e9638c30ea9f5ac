#include <cmath>

#include "ZANCocoaFramework/ZAN_Unarchiver.h"
#include "actions/ActionsTools.h"

// What a settings record says about its action beside the schedule.

namespace corvana {

namespace {

/// Folder descriptions come as one, as an array, or as an archive of either.
void appendFolders(const ZAN_Value& value, std::vector<ZAN_Value>& folders) {
  const auto append = [&](const ZAN_Value& plain) {
    if (plain.isDictionary()) folders.push_back(plain);
    if (!plain.isArray()) return;
    for (const ZAN_Value& element : plain.elements()) {
      if (element.isDictionary()) folders.push_back(element);
    }
  };
  if (!value.isData()) return append(value);
  if (const Result<ZAN_Value> stored = ZAN_Unarchiver::unarchiveObjectWithData(value.bytes()))
    append(*stored);
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

std::vector<ZAN_Value> ActionsTools::getSourcesForAction(const ZAN_Value& settings) {
  std::vector<ZAN_Value> folders;
  appendFolders(settings["ItemsListOfSourcePath"], folders);
  if (folders.empty()) appendFolders(settings["ItemsSource"], folders);
  return folders;
}

ZAN_Value ActionsTools::getDestinationForAction(const ZAN_Value& settings) {
  std::vector<ZAN_Value> folders;
  appendFolders(settings["ItemsDestination"], folders);
  return folders.empty() ? ZAN_Value() : folders.front();
}

}  // namespace corvana
