#include "tests/core_record/RecordFixture.h"

namespace corvana {
namespace {

using PreferencesTest = RecordTest;

TEST_F(PreferencesTest, BuiltInValuesAreUsedAndNeverWritten) {
  RecordedAgent agent(p);
  const Preferences& prefs = agent.preferences;
  EXPECT_EQ(prefs.mPrefKeepQueueAtShutdown, 1);
  EXPECT_TRUE(prefs.mCheckFreeSpace);
  EXPECT_EQ(prefs.mPrefShowMessageTransparency, 80.0);
  // Nothing else is on that nobody has switched on, and what may be typed has its limits.
  std::string builtIn, limits;
  for (const Preference& one : Preferences::table()) {
    const std::string key(one.key.substr(std::min(one.key.size(), std::size_t{13})));
    const auto number = [](double value) { return std::to_string(static_cast<int>(value)); };
    if (one.builtIn != 0) builtIn += key + " " + number(one.builtIn) + "\n";
    if (one.kind == Preference::Kind::number)
      limits += key + " " + number(one.least) + " " + number(one.most) + "\n";
  }
  EXPECT_EQ(builtIn,
            "KeepQueueAtShutdown 1\nFloatingIconNbLines 5\nFloatingIconTransparency 80\n"
            "ShowMessageTransparency 80\nShowMessagePositionX 50\nShowMessagePositionY 10\n"
            "NoProgressMinutes 10\nSurveyVolumesFolder 1\nSurveyFreeSpace 1\n"
            "RemoteControlMayLaunch 1\n");
  EXPECT_EQ(limits,
            "FloatingIconNbLines 1 20\nFloatingIconTransparency 10 100\n"
            "ShowMessageTransparency 10 100\nShowMessagePositionX 0 100\n"
            "ShowMessagePositionY 0 100\nNoProgressMinutes 0 10080\nRemoteControlPort 0 65535\n");
  EXPECT_EQ(prefs.mShowMessagePosition, (Point{50, 10}));
  EXPECT_FALSE(prefs.mShowMiniProgressPosition);
  EXPECT_EQ(prefs.mRemoteControlLocalName, "annas machine");
  EXPECT_EQ(prefs.mCheckStartupDiskFreeSpace.at(), 0);
  EXPECT_EQ(prefs.mSchedulerCleanVolumesInfos.at(), agent.now() + 257);

  agent.preferences.setPref("SchedulerQuitDate", ZAN_Value::date(1));
  agent.preferences.savePrefs();
  EXPECT_EQ(agent.store.settings().schedulerSettings().size(), 1U);
}

TEST_F(PreferencesTest, StoredValuesComeBackInTheNextRun) {
  {
    RecordedAgent agent(p);
    agent.preferences.setPref("SchedulerPrefShowMountMessage", 1);
    agent.preferences.setPref("SchedulerPrefShowAnnouncePositionX", 12.5);
    agent.preferences.setPref("SchedulerPrefShowAnnouncePositionY", 30);
    agent.preferences.setPref("SchedulerPrefRemoteControlLocalName", 7);
    agent.preferences.setPref("SchedulerPrefRemoteControlPassword", 7);
    agent.preferences.setPref("SchedulerPrefKeysForShortcut",
                              ZAN_Value::data(std::string_view("\x01\x02", 2)));
    agent.preferences.setPref("SchedulerPrefStackWindows", 0x1'0000'0000LL);
    agent.preferences.setPref("Another program's", "value");
    agent.preferences.savePrefs();
  }
  RecordedAgent agent(p);
  EXPECT_EQ(agent.preferences.mPrefShowMountMessage, 1);
  EXPECT_NE(agent.preferences.mPrefStackWindows, 0) << "a wide number is no other number";
  EXPECT_EQ(agent.preferences.mShowMiniProgressPosition, (Point{12.5, 30}));
  EXPECT_EQ(agent.preferences.mRemoteControlLocalName, "annas machine") << "a number is no name";
  EXPECT_EQ(agent.preferences.mRemoteControlPassword, "");
  EXPECT_EQ(agent.preferences.keysForShortcut()[1], 2);

  agent.preferences.setPref("SchedulerPrefShowMountMessage", {});
  agent.preferences.setPref("SchedulerPrefShowAnnouncePositionY", {});
  agent.preferences.savePrefs();
  agent.preferences.loadPrefs();
  EXPECT_EQ(agent.preferences.mPrefShowMountMessage, 0);
  EXPECT_FALSE(agent.preferences.mShowMiniProgressPosition) << "one coordinate is no place";
  EXPECT_EQ(agent.store.settings().schedulerSettings().string("Another program's"), "value");
}

TEST_F(PreferencesTest, WhatAnotherProgramSavedMeanwhileIsNotLost) {
  RecordedAgent agent(p);
  agent.preferences.setPref("SchedulerPrefStackWindows", 1);
  agent.preferences.setPref("SchedulerPrefShowMessageColor", 2);
  agent.preferences.savePrefs();

  RecordedAgent other(p);
  other.preferences.setPref("SchedulerPrefShowMountMessage", 1);
  other.preferences.setPref("SchedulerPrefStackWindows", 0);
  other.preferences.setPref("SchedulerPrefShowMessageColor", {});
  other.preferences.savePrefs();
  agent.preferences.setPref("SchedulerQuitDate", ZAN_Value::date(1));
  agent.preferences.savePrefs();

  const ZAN_Value stored = RecordedAgent(p).store.settings().schedulerSettings();
  EXPECT_EQ(stored.integer("SchedulerPrefShowMountMessage"), 1);
  EXPECT_EQ(stored.integer("SchedulerPrefStackWindows"), 0);
  EXPECT_FALSE(stored.contains("SchedulerPrefShowMessageColor"));
  EXPECT_TRUE(stored.contains("SchedulerQuitDate"));
}

TEST_F(PreferencesTest, UserDefaultsStandInAndAreTakenOver) {
  p.machine.userDefaults["SchedulerPrefShowActionsQueue"] = 1;
  p.machine.userDefaults["SchedulerPrefFloatingIconNbLines"] = 9;
  RecordedAgent agent(p);
  agent.preferences.setPref("SchedulerPrefFloatingIconNbLines", 3);
  agent.preferences.savePrefs();
  agent.preferences.loadPrefs();
  EXPECT_EQ(agent.preferences.mPrefShowActionsQueue, 1);
  EXPECT_EQ(agent.preferences.mPrefFloatingIconNbLines, 3) << "the file comes first";
  EXPECT_EQ(agent.store.settings().schedulerSettings().integer("SchedulerPrefShowActionsQueue"), 1);
}

TEST_F(PreferencesTest, NoticesOfTheDesktopNeedASystemThatHasThem) {
  p.machine.userDefaults["SchedulerPrefShowMessageInNotificationCenter"] = 1;
  p.machine.version = 100705;
  EXPECT_EQ(RecordedAgent(p).preferences.mPrefShowMessageInNotificationCenter, 0);
  p.machine.version = 100800;
  EXPECT_EQ(RecordedAgent(p).preferences.mPrefShowMessageInNotificationCenter, 1);
}

TEST_F(PreferencesTest, ADamagedFileIsKeptBesideTheNewOne) {
  std::string path;
  {
    RecordedAgent agent(p);
    path = agent.store.folder().pathOf(DataFolder::kSchedulerSettings);
    agent.preferences.setPref("SchedulerPrefShowMountMessage", 1);
    agent.preferences.savePrefs();
  }
  const std::string home = p.machine.home + "/";
  p.folder.write(path.substr(home.size()), "not an archive");
  RecordedAgent agent(p);
  agent.preferences.setPref("SchedulerPrefStackWindows", 1);
  agent.preferences.savePrefs();

  int kept = 0;
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path());
    const std::string contents{std::istreambuf_iterator<char>(file), {}};
    if (contents == "not an archive") ++kept;
  }
  EXPECT_EQ(kept, 1);
  EXPECT_EQ(agent.store.settings().schedulerSettings().integer("SchedulerPrefStackWindows"), 1);
}

TEST_F(PreferencesTest, SavedDatesMoveWithAClockSetBack) {
  RecordedAgent agent(p);
  const ReferenceTime wrong = agent.now() + 1e8;
  agent.preferences.setPref("SchedulerPrefCheckStartupHDFreeSpace", wrong + 300);
  agent.preferences.savePrefs();
  agent.preferences.loadPrefs();

  agent.state.deadlines.moveDeadlines(-1e8, agent.now());

  EXPECT_EQ(agent.preferences.mCheckStartupDiskFreeSpace.at(), agent.now() + 300);
  EXPECT_EQ(RecordedAgent(p).preferences.mCheckStartupDiskFreeSpace.at(), agent.now() + 300);
}

}  // namespace
}  // namespace corvana
