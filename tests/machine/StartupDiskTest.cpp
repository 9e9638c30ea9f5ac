#include "core/machine/StartupDisk.h"

#include <gmock/gmock.h>

#include "tests/core_work/WorkWorld.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

struct StartupDiskTest : testing::Test, WorkWorld {
  StartupDiskTest() {
    machine.machine.startup = usual;
    records.changes.listen(
        [this](ChangeSet what) { changes += what.has(Change::execution) ? 1 : 0; });
    disk.checkStartupDisk();
  }
  const StartupVolume usual{"Disk", 500'000'000'000, 600'000'000, 490'000'000'000};
  const std::string mainApp = store.installPaths().installPathForCode(InstallPaths::mainAppBundle);
  StartupDisk disk{records};
  int changes = 0;

  StartupVolume changed(std::uint64_t size, std::uint64_t date) const {
    StartupVolume other = usual;
    other.size += size;
    other.creationDate += date;
    return other;
  }
  /// What the check finds: the differences, or nothing.
  std::string found(const std::optional<StartupVolume>& volume) {
    machine.machine.startup = volume;
    disk.checkStartupDisk();
    advance(0);
    return state.mStartedFromNewMachine ? disk.change().differences : std::string();
  }
  std::uint64_t storedSize() {
    return store.settings().schedulerSettings()["SchedulerStartupDiskSize"].unsignedValue();
  }
};

TEST_F(StartupDiskTest, TheFirstStartTakesTheReference) {
  EXPECT_FALSE(state.mStartedFromNewMachine);
  const ZAN_Value stored = store.settings().schedulerSettings();
  EXPECT_EQ(stored.string("SchedulerStartupDiskName"), "Disk");
  EXPECT_EQ(storedSize(), usual.size);
  EXPECT_EQ(stored["SchedulerStartupDiskDate"].unsignedValue(), usual.creationDate);
  const double before = machine.clock.monotonic();
  EXPECT_EQ(found(usual), "");
  EXPECT_EQ(machine.clock.monotonic(), before) << "one look is enough";
}

TEST_F(StartupDiskTest, SaysWhatIsDifferentAfterFiveLooks) {
  const double before = machine.clock.monotonic();
  EXPECT_EQ(found(changed(1'234'567, 0)), "Its size differs by 1,234,567 bytes.");
  EXPECT_EQ(machine.clock.monotonic() - before, 8.0);
  EXPECT_EQ(changes, 1);
  EXPECT_EQ(found(changed(0, 86'400)), "Its creation date differs by 86,400 seconds.");
  EXPECT_EQ(found(changed(1'234'567, 86'400)), "Its size and its creation date are different.");
  EXPECT_EQ(disk.change().normalDisk, "Disk");
  StartupVolume named = usual;
  named.name = "Clone";
  EXPECT_EQ(found(named), "It has another name.");
  EXPECT_EQ(disk.change().currentDisk, "Clone");
  EXPECT_EQ(found(usual), "") << "the usual one again";
  EXPECT_EQ(changes, 2);
}

TEST_F(StartupDiskTest, WhatDoesNotPersistOrIsNotKnownIsNoDifference) {
  for (const int last : {1, 4}) {
    machine.machine.startupVolumeReads = 0;
    machine.machine.onStartupVolumeRead = [&](int nth) {
      return nth > last ? usual : changed(5, 0);
    };
    EXPECT_EQ(found({}), "") << last;
    EXPECT_EQ(machine.machine.startupVolumeReads, last + 1);
  }
  machine.machine.startupVolumeReads = 0;
  machine.machine.onStartupVolumeRead = [&](int nth) {
    return nth == 3 ? std::optional<StartupVolume>() : changed(5, 0);
  };
  EXPECT_EQ(found({}), "") << "it could not be read once";
  machine.machine.onStartupVolumeRead = {};
  EXPECT_EQ(found(std::nullopt), "");
  EXPECT_EQ(found(StartupVolume{"/", 0, 0, 0}), "");
  EXPECT_EQ(storedSize(), usual.size);
}

TEST_F(StartupDiskTest, TheAnswerDecidesAndIsAskedForOnce) {
  ASSERT_NE(found(changed(5, 0)), "");
  disk.askAboutStartupDiskChange();
  disk.askAboutStartupDiskChange();
  auto& ui = machine.userInterface;
  ASSERT_EQ(ui.questions.size(), 1U);
  EXPECT_EQ(ui.broughtToFront, 1);
  EXPECT_THAT(ui.questions[0].text, HasSubstr("Its size differs by 5 bytes."));
  EXPECT_TRUE(ui.answer(Window::startupDisk, false));
  EXPECT_TRUE(state.mStartedFromNewMachine);
  EXPECT_EQ(storedSize(), usual.size) << "it comes again at the next start";

  disk.askAboutStartupDiskChange();
  EXPECT_TRUE(ui.answer(Window::startupDisk, true));
  EXPECT_FALSE(state.mStartedFromNewMachine);
  EXPECT_EQ(storedSize(), usual.size + 5);
  EXPECT_EQ(found(changed(5, 0)), "");
}

TEST_F(StartupDiskTest, ConfirmingHasTheActionsOfAnotherDiskChecked) {
  const auto copy = [&](int ref, const char* path, std::uint64_t size, std::uint64_t date) {
    return action(ref,
                  {{"ItemsSource", ZAN_Value::dictionary({{"VolumeFolderPath", path},
                                                          {"VolumeFolderVolumeSize", size},
                                                          {"VolumeFolderVolumeDate", date}})}});
  };
  machine.volumes.mountAt("/media/Stick", {.name = "Stick"});
  setActions({copy(1, "/home/anna", usual.volumeSize, usual.creationDate),
              copy(2, "/media/Stick", 5, 5), copy(3, "/home/anna", 0, 0)});
  disk.confirmStartupDisk();
  EXPECT_THAT(machine.processes.opened, IsEmpty()) << "nothing to check";

  setActions({copy(1, "/home/anna", usual.volumeSize, 5), copy(2, "/media/Stick", 5, 5)});
  const double before = machine.clock.monotonic();
  disk.confirmStartupDisk();
  EXPECT_THAT(machine.processes.opened, ElementsAre(mainApp));
  EXPECT_EQ(machine.clock.monotonic() - before, 2.0);
  ASSERT_FALSE(machine.notifications.posts.empty());
  const DistributedNotification& told = machine.notifications.posts.back();
  EXPECT_EQ(told.name, "CVA9_MainAppliNotification");
  EXPECT_EQ(told.object, "CheckActionsForStartupDisk");
  EXPECT_EQ(told.userInfo.integer("C"), 13);

  machine.processes.quitApplication(mainApp);
  machine.processes.openError = Error{ErrorKind::absent, "not installed"};
  disk.confirmStartupDisk();
  EXPECT_THAT(notices(), ElementsAre(HasSubstr("A1"))) << "the user is told instead";
}

TEST_F(StartupDiskTest, FiguresAreLoggedWhenTheyChangeOnceThereWasADifference) {
  disk.logStartupDiskInformation(false);
  EXPECT_THAT(machine.systemLog.lines, IsEmpty());
  ASSERT_NE(found(changed(5, 0)), "");
  disk.logStartupDiskInformation(false);
  disk.logStartupDiskInformation(true);
  EXPECT_THAT(machine.systemLog.lines,
              ElementsAre("Startup disk Information. Size: 0 --> 500,000,000,005 . Reference date: "
                          "0 --> 600,000,000"));
  machine.machine.startup.reset();
  disk.logStartupDiskInformation(false);
  EXPECT_EQ(machine.systemLog.lines.back(),
            "Startup disk Information. Size: 500,000,000,005 --> 0 . Reference date: 600,000,000 "
            "--> 0");
}

}  // namespace
}  // namespace corvana::test
