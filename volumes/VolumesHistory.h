#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;
class ZAN_MountedVolumes;

/// How full each volume was, by the hour, for years. Thread: main.
///
/// An entry a volume, a `FolderDescription` told apart by name, size and creation date, with
/// "VolumeFreeSizeList" (data: the archived hour records) and "E" (free bytes at the last sample).
/// An hour record: "D" (start of the hour, seconds since the reference date), "F" and "E" (free
/// bytes at its first and its last sample), "L" and "H" (the lowest and the highest).
class FreeSpaceHistory {
 public:
  FreeSpaceHistory(ActionStore& store, ZAN_MountedVolumes& mounted)
      : mStore(store), mMounted(mounted) {}

  /// A sample of every mounted volume that answers and is not locked. It is kept in memory and
  /// taken into the file rarely: the history of years is long.
  void addVolumesSurveyorData();
  /// Drops volumes not seen for long, takes in what other programs have recorded, and keeps a
  /// record a day of what is older than 180 days, none older than five years; when the file is
  /// written next.
  void cleanVolumesSurveyorList();

  /// With the samples that are not in the file yet.
  ZAN_Value readVolumesSurveyorList();

  /// The hour records of an entry, oldest first; empty when there is none or they are damaged.
  static ZAN_Value records(const ZAN_Value& entry);
  /// Whether an entry tells of that volume, as ZAN_MountedVolumes describes it.
  static bool isEntryOf(const ZAN_Value& entry, const ZAN_Value& volume);

 private:
  /// What was seen of a volume within one hour.
  struct Sample {
    ZAN_Value volume;  ///< a `FolderDescription`
    std::int64_t hour = 0;
    std::uint64_t first = 0, last = 0, low = 0, high = 0;
  };

  std::optional<Sample> sampleOf(const ZAN_Value& volume) const;
  void keep(const Sample& sample);
  void save();
  static void addSurveyorData(const Sample& sample, ZAN_Value& list);

  ActionStore& mStore;
  ZAN_MountedVolumes& mMounted;
  bool mIsToBePruned = false;
  std::vector<Sample> mRecent;  ///< not in the file yet, that of the latest sample last
};

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
