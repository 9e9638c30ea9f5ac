#include <gtest/gtest.h>

#include <vector>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionStore.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "volumes/VolumesHistory.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {
namespace {

constexpr std::int64_t kDay = 86'400;

class Histories : public testing::Test {
 protected:
  SimulatedVolumes& disks() { return machine.volumes; }
  std::int64_t now() const { return static_cast<std::int64_t>(machine.clock.now()); }

  static ZAN_Value hourRecord(std::int64_t date) {
    return ZAN_Value::dictionary(
        {{"D", ZAN_Value::unsignedInteger(static_cast<std::uint64_t>(date))}});
  }
  static ZAN_Value volume(const std::string& name, const std::vector<std::int64_t>& dates) {
    std::vector<ZAN_Value> records;
    for (const auto date : dates) records.push_back(hourRecord(date));
    return ZAN_Value::dictionary(
        {{"VolumeFolderName", name},
         {"VolumeFreeSizeList",
          ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(records)))}});
  }
  std::vector<std::int64_t> ages(const ZAN_Value& entry) const {
    std::vector<std::int64_t> result;
    const ZAN_Value records = FreeSpaceHistory::records(entry);
    for (const ZAN_Value& record : records.elements())
      result.push_back(now() - record.integer("D"));
    return result;
  }

  static constexpr ReferenceTime kNoon = SimulatedPlatform::kFirstDate;
  SimulatedPlatform machine{kNoon + 600};
  ActionStore store{machine.clock, machine.machine, machine.systemLog};
  ZAN_MountedVolumes mounted{machine.volumes};
  FreeSpaceHistory history{store, mounted};
};

TEST_F(Histories, AnHourIsOneRecordOfItsExtremes) {
  disks().mount({.name = "Locked", .readOnly = true});
  disks().mount({.name = "EFI", .size = 200'000'000});
  const std::string usb = disks().mount({.name = "USB", .free = 500});
  for (const std::uint64_t free : {500U, 900U, 300U, 700U}) {
    disks().setFree(usb, free);
    history.addVolumesSurveyorData();
    machine.clock.sleep(600);
  }
  machine.clock.sleep(1800);
  history.addVolumesSurveyorData();
  const ZAN_Value list = history.readVolumesSurveyorList();
  ASSERT_EQ(list.size(), 2U) << "neither what is locked nor a small volume of the system";
  const ZAN_Value& entry = list.at(1);
  EXPECT_EQ(entry.string("VolumeFolderName"), "USB");
  EXPECT_EQ(entry["E"].letter(), 'q');
  const ZAN_Value records = FreeSpaceHistory::records(entry);
  ASSERT_EQ(records.size(), 2U);
  const ZAN_Value& first = records.at(0);
  EXPECT_EQ(first.integer("D"), static_cast<std::int64_t>(kNoon));
  EXPECT_EQ(first.integer("F"), 500);
  EXPECT_EQ(first.integer("E"), 700);
  EXPECT_EQ(first.integer("L"), 300);
  EXPECT_EQ(first.integer("H"), 900);
}

TEST_F(Histories, PruningKeepsADayOfWhatIsOldAndTurnsTheOrderRound) {
  const auto before = [&](std::int64_t days) { return now() - days * kDay; };
  const auto at = [&](std::int64_t days, int records) {
    return std::vector<std::int64_t>(static_cast<std::size_t>(records), before(days));
  };
  const std::int64_t dayBegin = before(300) / kDay * kDay;
  ZAN_Value list =
      ZAN_Value::array({volume("few", at(31, 5)), volume("enough", at(31, 6)),
                        volume("once", at(16, 1)), volume("gone", at(91, 50)), volume("empty", {}),
                        volume("old", {before(1831), dayBegin + 3600, dayBegin + 7200, before(10),
                                       before(-1), before(-3)})});
  ASSERT_TRUE(store.files().writeListToFile(list, DataFolder::kVolumesInfo));
  ASSERT_TRUE(
      store.files().writeListToFile(ZAN_Value::array({volume("old", {before(10), before(5)})}),
                                    "Corvana 9 Volumes Info+.cva9data"));
  history.cleanVolumesSurveyorList();
  list = history.readVolumesSurveyorList();
  ASSERT_EQ(list.size(), 2U);
  EXPECT_EQ(list.at(1).string("VolumeFolderName"), "enough");
  EXPECT_EQ(list.at(0).string("VolumeFolderName"), "old");
  EXPECT_EQ(ages(list.at(0)),
            (std::vector<std::int64_t>{now() - dayBegin - 7200, 10 * kDay, 5 * kDay, -kDay}));
}

TEST_F(Histories, SnapshotsOfWhatIsMountedFollowTheirOddRule) {
  MountedVolumesHistory snapshots(store, mounted);
  snapshots.updateSurveyMountedVolumes();
  EXPECT_EQ(snapshots.readSurveyMountedVolumesList().size(), 1U);
  snapshots.updateSurveyMountedVolumes();
  EXPECT_EQ(snapshots.readSurveyMountedVolumesList().size(), 2U)
      << "a volume at its old place makes a new snapshot";
  ZAN_Value list = snapshots.readSurveyMountedVolumesList();
  const ZAN_Value other = ZAN_Value::array({ZAN_Value::dictionary({{"VolumeFolderName", "X"}})});
  for (int i = 0; i < 29; ++i) {
    list.append(ZAN_Value::dictionary(
        {{"date", ZAN_Value::date(machine.clock.now() - (i < 10 ? 1'296'001 : 1'296'000))},
         {"list", other}}));
  }
  ASSERT_TRUE(store.files().writeListToFile(list, DataFolder::kVolumesMounted));
  snapshots.updateSurveyMountedVolumes();
  EXPECT_EQ(snapshots.readSurveyMountedVolumesList().size(), 31U)
      << "as many volumes, and each another: nothing is recorded";
  disks().mount({.name = "USB"});
  snapshots.updateSurveyMountedVolumes();
  EXPECT_EQ(snapshots.readSurveyMountedVolumesList().size(), 22U);
}

}  // namespace
}  // namespace corvana
