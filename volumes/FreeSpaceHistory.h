#pragma once

#include <cstdint>

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

  /// A sample of every mounted volume that answers and is not locked.
  void addVolumesSurveyorData();
  /// One sample: `volume` as ZAN_MountedVolumes describes it. Its entry goes to the end.
  void addSurveyorData(const ZAN_Value& volume, ZAN_Value& list);
  /// Drops volumes not seen for long, takes in what other programs have recorded, and keeps a
  /// record a day of what is older than 180 days, none older than five years.
  void cleanVolumesSurveyorList();

  ZAN_Value readVolumesSurveyorList();
  /// Not synchronised.
  void saveVolumesSurveyorList(const ZAN_Value& list);

  /// The hour records of an entry, oldest first; empty when there is none or they are damaged.
  static ZAN_Value records(const ZAN_Value& entry);
  /// Whether an entry tells of that volume, as ZAN_MountedVolumes describes it.
  static bool isEntryOf(const ZAN_Value& entry, const ZAN_Value& volume);

 private:
  bool isKept(const ZAN_Value& records, std::int64_t now) const;

  ActionStore& mStore;
  ZAN_MountedVolumes& mMounted;
};

}  // namespace corvana
