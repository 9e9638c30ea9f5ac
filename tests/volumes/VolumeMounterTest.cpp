#include "core/machine/VolumeMounter.h"

#include <gmock/gmock.h>

#include <filesystem>

#include "core/machine/MachineDuties.h"
#include "core/work/Work.h"
#include "tests/core_record/RecordFixture.h"
#include "volumes/ZAN_MountVolume.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

/// From the home folder of the test.
const std::string kAliases = "Library/Application Support/Corvana 9/Alias";

struct VolumeMounterTest : RecordTest {
  VolumeMounterTest() {
    p.volumes.installTool(p.processes, tools.toolsFolder() + "/diskutil");
    p.folder.makeFolder(kAliases);
  }
  std::vector<std::string> offered() {
    std::vector<std::string> names;
    for (const auto& one : mounter.volumesToMountList())
      names.push_back(one.volName + (one.isAlias ? " alias" : " " + one.bsdName));
    return names;
  }
  void build() {
    mounter.updateListOfVolumesToMount();
    EXPECT_FALSE(mounter.isListReady());
    ASSERT_TRUE(p.runLoop.runUntil([&] { return mounter.isListReady(); }, 5));
    mounter.takeUpdatedList();
  }
  std::vector<std::string> diskutilVerbs() {
    std::vector<std::string> verbs;
    for (const auto& run : p.processes.toolRuns) {
      if (run.at(1) != "list" && run.at(1) != "info")
        verbs.push_back(run.at(1) + (run.at(2) == "force" ? " force" : ""));
    }
    return verbs;
  }

  RecordedAgent agent{p};
  ZAN_StringTable& texts = agent.records.texts =
      ZAN_StringTable({{"UnmountingVolumeTitle", "Unmounting"},
                       {"TryToMount", "Try %@"},
                       {"UnableToMount", "Unable %@"}});
  Work work{agent.records};
  MachineDuties machine{agent.records, work};
  ZAN_MountVolume& tools = machine.tools;
  ZAN_ConnectedVolumes& connected = machine.connected;
  AliasMounter& aliases = machine.aliases;
  VolumeMounter& mounter = machine.mounter;
};

TEST_F(VolumeMounterTest, OffersAliasesThenPartitionsThatAreNoSystemPartitions) {
  for (const char* name : {"EFI", "Recovery HD", "Recovery HD 2", "Photos"})
    p.volumes.plugIn({.name = name});
  p.volumes.mount({.name = "Mounted"});
  p.folder.write(kAliases + "/plain", "x");
  p.folder.write(kAliases + "/share.desktop",
                 "[Desktop Entry]\nType=Link\nURL=smb://server/share\n");
  build();
  EXPECT_THAT(offered(), ElementsAre("share.desktop alias", "Recovery HD 2 sdd1", "Photos sde1"));
  mounter.setMountsSystemPartitions(true);
  EXPECT_EQ(offered().size(), 5U);
  EXPECT_THAT(ZAN_ConnectedVolumes::getAllPartitionsBSDName(tools),
              ElementsAre("sda1", "sdb1", "sdc1", "sdd1", "sde1", "sdf1"));

  // A second request while one runs is dropped.
  p.processes.toolRuns.clear();
  connected.updateListVolumes();
  connected.updateListVolumes();
  p.runLoop.runFor(1);
  EXPECT_EQ(std::ranges::count_if(p.processes.toolRuns,
                                  [](const auto& run) { return run.at(1) == "list"; }),
            1);
}

TEST_F(VolumeMounterTest, MountsWhatIsChosen) {
  p.volumes.plugIn({.name = "Photos"});
  const std::string alias =
      p.folder.write(kAliases + "/share.desktop", "[Desktop Entry]\nType=Link\nURL=smb://s/x\n");
  const std::string helper = tools.toolsFolder() + "/mountvolume";
  std::ofstream(helper).flush();
  agent.preferences.mPrefShowMessageInNotificationCenter = 1;
  build();
  p.processes.next({.seconds = ChildScript::kUntilStopped});
  mounter.selectVolumeToMountInMenu(0);
  EXPECT_EQ(agent.state.mPauseBeforeNextStep.at(), p.clock.now() + 5);
  p.runLoop.runFor(9.9);
  EXPECT_TRUE(p.processes.starts.at(0)->running);
  p.runLoop.runFor(1);
  EXPECT_FALSE(p.processes.starts.at(0)->running);
  EXPECT_THAT(p.processes.starts.at(0)->arguments, ElementsAre(helper, alias));
  EXPECT_EQ(p.userInterface.notifications.back().text, "Unable share.desktop");

  std::filesystem::remove(alias);
  mounter.selectVolumeToMountInMenu(0);
  EXPECT_EQ(p.processes.starts.size(), 1U) << "the alias has vanished";
  mounter.selectVolumeToMountInMenu(1);
  p.runLoop.runFor(1);
  EXPECT_TRUE(std::filesystem::exists(p.volumes.folder + "/Photos"));

  // Of several, the slowest is no longer offered either.
  for (const char* name : {"Music", "Films"}) p.volumes.plugIn({.name = name});
  build();
  ASSERT_THAT(offered(), ElementsAre("Music sdc1", "Films sdd1"));
  p.processes.beforeTool = [&](const auto& run) {
    if (run.back() == "sdd1" && run.at(1) == "mount") p.clock.sleep(2);
  };
  mounter.mountSelectedVolumes({0, 1});
  ASSERT_TRUE(p.runLoop.runUntil([&] { return mounter.isListReady(); }, 5));
  mounter.takeUpdatedList();
  EXPECT_THAT(offered(), IsEmpty());
}

TEST_F(VolumeMounterTest, UnmountsAndForcesOnlyWhatDoesNotGo) {
  agent.preferences.mPrefShowMountMessage = 1;
  agent.preferences.mAutoUnmountVolumes = 0;
  const std::string easy = p.volumes.mount({.name = "Easy"});
  mounter.rememberVolumeMountedByScheduler(easy);
  EXPECT_FALSE(mounter.hasVolumesToUnmount()) << "the user does not want it";
  agent.preferences.mAutoUnmountVolumes = 1;
  mounter.rememberVolumeMountedByScheduler(easy);
  mounter.unmountVolumesMountedByScheduler();
  EXPECT_EQ(machine.volumeWatch.nextSaving(), p.clock.now() + 900) << "has just been saved";
  EXPECT_TRUE(mounter.isUnmounting());
  EXPECT_FALSE(mounter.hasVolumesToUnmount());
  ASSERT_TRUE(p.userInterface.message);
  EXPECT_EQ(p.userInterface.message->text, easy);
  p.runLoop.runFor(1);
  EXPECT_FALSE(mounter.isUnmounting());
  EXPECT_FALSE(p.userInterface.message);
  EXPECT_THAT(diskutilVerbs(), ElementsAre("eject"));

  const std::string busy = p.volumes.mount({.name = "Busy"});
  p.volumes.busy.insert(busy);
  p.processes.toolRuns.clear();
  mounter.unmountVolume(busy);
  p.runLoop.runFor(1);
  EXPECT_THAT(diskutilVerbs(), ElementsAre("eject", "unmount force"));
  EXPECT_FALSE(std::filesystem::exists(busy));

  // Another message that is up stays, and the one of the unmount does not come after the fact.
  agent.messages.showMessage("A crash", "", 15, true);
  mounter.rememberVolumeMountedByScheduler(p.volumes.mount({.name = "Last"}));
  mounter.unmountVolumesMountedByScheduler();
  p.runLoop.runFor(1);
  EXPECT_FALSE(mounter.isUnmounting());
  EXPECT_EQ(p.userInterface.message->title, "A crash");
  EXPECT_FALSE(agent.messages.hasPending());
  agent.messages.closeMessageWindow();

  // One that never goes is left alone after five seconds, its message after 45.
  mounter.unmountVolume("/");
  p.processes.tool(tools.toolsFolder() + "/diskutil", [](const auto&) {
    return Error{ErrorKind::refused, "busy"};
  });
  p.runLoop.runFor(4.9);
  EXPECT_TRUE(mounter.isUnmounting());
  p.runLoop.runFor(0.5);
  EXPECT_FALSE(mounter.isUnmounting());
  EXPECT_TRUE(p.userInterface.message);
}

TEST_F(VolumeMounterTest, AddressesOfSharesAreCompleted) {
  using Remote = ZAN_MountRemoteVolume;
  EXPECT_EQ(Remote::addressFor("server/My Share"), "smb://server/My%20Share");
  EXPECT_EQ(Remote::addressFor("sftp://a@host:22/x y"), "sftp://a@host:22/x%20y");
  EXPECT_EQ(Remote::hostOf("sftp://a@host:22/x"), "host");
  Remote remote(agent.records.platform, tools.toolsFolder());
  EXPECT_EQ(remote.getResult(), Remote::kFailed);
  remote.mountRemoteVolume("server/x", "ann", std::nullopt);
  EXPECT_EQ(remote.getResult(), Remote::kFailed);
  remote.mountRemoteVolume("server/x", "ann", "secret");
  EXPECT_EQ(remote.getResult(), Remote::kRunning);
  p.runLoop.runFor(1);
  EXPECT_EQ(remote.getResult(), Remote::kNotReachable);
  p.volumes.reachable.insert("server");
  p.processes.next({.seconds = 2});
  remote.mountRemoteVolume("server/x", "ann", "secret");
  p.runLoop.runFor(3);
  EXPECT_EQ(remote.getResult(), Remote::kMounted);
  const auto& started = *p.processes.starts.back();
  EXPECT_EQ(started.input, "ann\nsecret\n");
  EXPECT_EQ(started.arguments.back(), "smb://server/x");
  remote.mountRemoteVolume("", "ann", "secret");
  p.runLoop.runFor(1);
  EXPECT_EQ(remote.getResult(), Remote::kNoAddress);
}

TEST_F(VolumeMounterTest, TheWatchFollowsMountsButNotTheAutomounter) {
  VolumeWatch& watch = machine.volumeWatch;
  SchedulerState& state = agent.state;
  const auto snapshots = [&] {
    return machine.mountedHistory.readSurveyMountedVolumesList().size();
  };
  const auto evaluated = [&] { return state.mNextCheck.at() == p.clock.now(); };
  watch.start();
  p.runLoop.runFor(2);
  state.checkAt(0);
  watch.saveVolumesInfosAt(p.clock.now() + 100);
  watch.deviceDidMount("/Network");
  watch.deviceDidUnmount("Network");
  p.runLoop.runFor(2);
  EXPECT_EQ(state.mNextCheck.at(), 0) << "nothing is evaluated for it";
  const std::size_t before = snapshots();

  const std::string disk = p.volumes.mount({.name = "Disk"});
  p.runLoop.runFor(0);
  EXPECT_TRUE(evaluated());
  p.runLoop.runFor(0.05);
  EXPECT_NEAR(watch.nextSaving(), p.clock.now() + 2, 0.1);
  EXPECT_EQ(snapshots(), before);
  p.runLoop.runFor(0.1);
  EXPECT_EQ(snapshots(), before + 1);
  EXPECT_EQ(machine.mounted.getInfosForVolumeAtPath(disk + "/x").string("volName"), "Disk");
  EXPECT_TRUE(machine.mounted.getInfosForVolumeAtIndex(2).isNull());
  state.checkAt(0);
  p.volumes.unmount(disk);
  p.runLoop.runFor(2);
  EXPECT_EQ(state.mNextCheck.at(), 0);
  EXPECT_EQ(snapshots(), before + 2);
  // The same ones in another order are a change.
  const std::string one = p.volumes.mount({.name = "One"});
  const std::string two = p.volumes.mount({.name = "Two"});
  p.runLoop.runFor(2);
  const std::size_t many = snapshots();
  p.volumes.unmount(one);
  p.volumes.mountAt(one, {.name = "One"});
  p.runLoop.runFor(2);
  EXPECT_EQ(snapshots(), many + 1);
}

}  // namespace
}  // namespace corvana
