#pragma once

#include <optional>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;
class ZAN_MountedVolumes;

/// Which volumes were mounted when: snapshots {"date", "list"}, oldest first. Thread: main.
class MountedVolumesHistory {
 public:
  MountedVolumesHistory(ActionStore& store, ZAN_MountedVolumes& mounted)
      : mStore(store), mMounted(mounted) {}

  /// Adds what is mounted now, unless the last snapshot has as many volumes and not one of them at
  /// its place. From 31 snapshots on those older than 15 days go.
  void updateSurveyMountedVolumes();
  /// What a snapshot says of a volume: a `FolderDescription` of its place; null for one that is
  /// locked or does not answer.
  static ZAN_Value getSurveyMountedVolumeForData(const ZAN_Value& volume);

  /// With the snapshots that are not in the file yet.
  ZAN_Value readSurveyMountedVolumesList();

 private:
  void save();

  ActionStore& mStore;
  ZAN_MountedVolumes& mMounted;
  std::optional<ZAN_Value> mUnsaved;
};

}  // namespace corvana
