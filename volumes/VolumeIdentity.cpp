#include "volumes/VolumeIdentity.h"

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

#include "actions/ActionsTools.h"

namespace corvana {

bool VolumeIdentity::checkIfVolumeMounted(const ZAN_Value& item, bool) {
  if (!item.isDictionary()) return false;
  const std::string path = item.string("VolumeFolderPath");
  std::error_code failure;
  return !path.empty() && std::filesystem::exists(path, failure);
}

bool VolumeIdentity::checkIfAllVolumesMounted(const ZAN_Value& settings) {
  const auto sources = ActionsTools::getSourcesForAction(settings);
  if (sources.empty()) return true;
  const bool tolerant = settings.integer("ItemsVolumeTolerance") != 0;
  const auto isMounted = [&](const ZAN_Value& item) {
    return checkIfVolumeMounted(item, tolerant);
  };
  if (!std::ranges::all_of(sources, isMounted)) return false;
  const ZAN_Value destination = ActionsTools::getDestinationForAction(settings);
  return destination.isNull() || isMounted(destination);
}

}  // namespace corvana
