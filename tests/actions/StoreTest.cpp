#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <csignal>

#include "StoreHome.h"
#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"

namespace corvana {
namespace {

class Store : public testing::Test, protected StoreHome {
 protected:
  static ZAN_Value records(int count, const std::string& title) {
    ZAN_Value list = ZAN_Value::array();
    for (int i = 1; i <= count; ++i) {
      list.append(ZAN_Value::dictionary({{"Ref", i}, {"Title", title}}));
    }
    return list;
  }
};

/// Waits in real time, for tests with a second process.
class WaitingClock final : public Clock {
 public:
  ReferenceTime now() const override { return SimulatedPlatform::kFirstDate; }
  double monotonic() const override { return 0; }
  void observe(std::function<void()>) override {}
  void sleep(double seconds) override { ::usleep(static_cast<useconds_t>(seconds * 1e6)); }
};

TEST_F(Store, TheHeaderOfTheTreeStaysOnDisk) {
  ASSERT_TRUE(store.tree().saveActionsTree(records(2, "Photos")));
  EXPECT_EQ(store.files().readListFromFile(DataFolder::kActions).at(0).stringView(),
            "ProgrammedActions");
  EXPECT_EQ(other.tree().readActionsList(), records(2, "Photos"));
  // Older files have none.
  ASSERT_TRUE(store.files().writeListToFile(records(3, "x"), DataFolder::kActions));
  EXPECT_EQ(other.tree().readActionsList().size(), 3U);

  struct stat status;
  ASSERT_EQ(::stat(path(DataFolder::kActions).c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666U);
  ASSERT_EQ(::stat(data().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0700U);
}

TEST_F(Store, ADeathWhileSavingLeavesOneOfTheTwoTrees) {
  const ZAN_Value before = records(500, "before");
  const ZAN_Value after = records(5000, "after, and longer than one piece");
  for (int deadlyStep = 0;; ++deadlyStep) {
    ASSERT_LT(deadlyStep, 100);
    ASSERT_TRUE(store.tree().saveActionsTree(before));
    int step = 0;
    const int status = inChild([&] {
      ActionStore dying(machine.clock, machine.machine, machine.systemLog,
                        [&](ZAN_FileWriter::Step, const std::string&) {
                          if (step++ == deadlyStep) ::kill(::getpid(), SIGKILL);
                          return 0;
                        });
      if (!dying.tree().saveActionsTree(after)) ::_exit(1);
    });
    // The next program takes the lock at once, cleans up and reads.
    ActionStore next(machine.clock, machine.machine, machine.systemLog);
    next.createMissingDataFiles();
    const DataFiles::Lock lock = next.tree().lock();
    const ZAN_Value found = next.tree().readActionsList();
    EXPECT_TRUE(found == before || found == after) << "step " << deadlyStep;
    EXPECT_TRUE(
        ZAN_FilesUtils::listFolder(next.folder().hiddenFolderPath() + "/Temporary")->empty());
    if (WIFEXITED(status)) {
      EXPECT_EQ(WEXITSTATUS(status), 0);
      EXPECT_EQ(found, after);
      break;
    }
  }
  EXPECT_EQ(logged("lock"), 0U);
}

TEST_F(Store, ProgramsThatAppendAtOnceLoseNoChange) {
  constexpr int kPrograms = 3;
  constexpr int kChanges = 30;
  std::vector<pid_t> children;
  for (int program = 0; program < kPrograms; ++program) {
    const pid_t child = ::fork();
    if (child == 0) {
      WaitingClock clock;
      ActionStore own(clock, machine.machine, machine.systemLog);
      for (int i = 0; i < kChanges; ++i) {
        if (!own.tree().appendToChangesList(
                ZAN_Value::dictionary({{"Ref", program}, {"ChangesObject", i}}))) {
          ::_exit(1);
        }
      }
      ::_exit(0);
    }
    children.push_back(child);
  }
  for (const pid_t child : children) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  std::vector<int> next(kPrograms, 0);
  const ZAN_Value changes = store.tree().readChangesList();
  for (const ZAN_Value& change : changes.elements()) {
    int& expected = next.at(static_cast<std::size_t>(change.integer("Ref")));
    EXPECT_EQ(change.integer("ChangesObject"), expected++);
  }
  EXPECT_EQ(next, std::vector<int>(kPrograms, kChanges));
}

TEST_F(Store, ALockThatIsNeverGivenBackOnlyDelays) {
  const auto held = [&](std::string_view name) {
    return ZAN_FileLock::acquire(
        store.folder().hiddenFolderPath() + "/Locks/" + std::string(name) + ".lock", 0,
        [](double) {});
  };
  auto tree = held(DataFolder::kActions);
  const auto log = held(DataFolder::kLog);
  ASSERT_TRUE(tree && log);
  ReferenceTime start = machine.clock.now();
  {
    const DataFiles::Lock outer = store.tree().lock();
    EXPECT_TRUE(store.tree().appendToChangesList(ZAN_Value::dictionary({{"Ref", 1}})));
  }
  EXPECT_NEAR(machine.clock.now() - start, 2.0, 1e-6) << "the nested lock is free";
  EXPECT_EQ(logged("Going on without lock"), 1U);
  EXPECT_EQ(store.tree().readChangesList().size(), 1U);

  const auto waited = [&](std::string_view name) {
    start = machine.clock.now();
    const DataFiles::Lock lock = store.files().lock(name);
    return machine.clock.now() - start;
  };
  EXPECT_NEAR(waited(DataFolder::kActions), 0, 1e-6) << "one wait in all";
  EXPECT_NEAR(waited(DataFolder::kLog), 0.1, 1e-6) << "whoever holds one holds others";
  EXPECT_NEAR(waited(DataFolder::kLog), 0, 1e-6);
  tree->release();
  machine.clock.sleep(59.8);
  EXPECT_NEAR(waited(DataFolder::kActions), 0, 1e-6);
  tree = held(DataFolder::kActions);
  EXPECT_NEAR(waited(DataFolder::kActions), 0.1, 1e-6) << "it was got in between";
  machine.clock.sleep(60.1);
  EXPECT_NEAR(waited(DataFolder::kLog), 2.0, 1e-6);
  EXPECT_EQ(logged("Going on without lock"), 4U);
}

TEST_F(Store, ADamagedFileIsKeptAsideBeforeItIsReplaced) {
  const std::string damaged = "this is no archive";
  for (const std::string_view name : {DataFolder::kActions, DataFolder::kChanges,
                                      DataFolder::kSettings, DataFolder::kSchedulerSettings}) {
    put(name, damaged);
  }
  std::vector<std::string> told;
  store.files().onTrouble = [&](const DataFiles::Trouble& trouble) {
    if (!trouble.kept.empty()) told.push_back(trouble.path);
  };
  for (int round = 0; round < 2; ++round) {
    EXPECT_TRUE(store.tree().readActionsList().empty());
    EXPECT_FALSE(store.tree().actionsListWasReadable());
    EXPECT_TRUE(store.settings().mainAppSettings().isNull());
  }
  EXPECT_EQ(logged("Exception reading file " + path(DataFolder::kActions) + ": "), 1U);
  EXPECT_TRUE(dataFilesWith("(damaged").empty()) << "reading moves nothing";

  for (int round = 0; round < 2; ++round) {
    ASSERT_TRUE(store.tree().saveActionsTree(records(1, "new")));
    // Without having been read before.
    ASSERT_TRUE(store.tree().saveChangesList(ZAN_Value::array()));
    ASSERT_TRUE(store.settings().setMainAppSetting("v", "k"));
    ASSERT_TRUE(store.settings().saveSchedulerSettings(ZAN_Value::dictionary({{"a", 1}})));
  }
  const std::vector<std::string> kept = dataFilesWith(" (damaged 2024-01-02 12.00.");
  ASSERT_EQ(kept.size(), 4U);
  for (const std::string& name : kept) EXPECT_EQ(text(path(name)), damaged);
  EXPECT_EQ(logged(" kept as "), 4U);
  EXPECT_EQ(told.size(), 4U);
  EXPECT_EQ(other.tree().readActionsList(), records(1, "new"));
  EXPECT_TRUE(other.tree().actionsListWasReadable());

  // A sound archive of something else is not a list of actions.
  const auto wrong = ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::dictionary({{"a", 1}}));
  put(DataFolder::kActions, {reinterpret_cast<const char*>(wrong.data()), wrong.size()});
  EXPECT_TRUE(store.tree().readActionsList().empty());
  ASSERT_TRUE(store.tree().saveActionsTree(records(1, "newer")));
  EXPECT_EQ(dataFilesWith("(damaged").size(), 5U);
}

TEST_F(Store, AnEmptyListIsWaitedForOnce) {
  put(DataFolder::kChanges, "");
  const ReferenceTime start = machine.clock.now();
  EXPECT_TRUE(store.files().readListFromFile(DataFolder::kChanges).empty());
  EXPECT_NEAR(machine.clock.now() - start, 0.1, 1e-6) << "three attempts, two pauses";
  EXPECT_TRUE(store.files().readListFromFile(DataFolder::kChanges).empty());
  EXPECT_NEAR(machine.clock.now() - start, 0.1, 1e-6);
  ASSERT_TRUE(other.tree().saveChangesList(records(1, "x")));
  EXPECT_EQ(store.files().readListFromFile(DataFolder::kChanges).size(), 1U);
}

TEST_F(Store, AFullDiskCostsTheNewFileOnly) {
  bool full = false;
  ActionStore poor(machine.clock, machine.machine, machine.systemLog,
                   [&](ZAN_FileWriter::Step step, const std::string&) {
                     return full && step == ZAN_FileWriter::Step::write ? ENOSPC : 0;
                   });
  ASSERT_TRUE(poor.settings().setMainAppSetting(1, "Volume"));
  poor.texts().addToReportFile("first");
  full = true;
  EXPECT_FALSE(poor.settings().setMainAppSetting(2, "Volume"));
  EXPECT_EQ(poor.settings().mainAppSettingForKey("Volume").integerValue(), 1)
      << "what is shown is what is stored";
  EXPECT_NE(text(poor.texts().reportFileNameForDate({})).find("first"), std::string::npos);
  EXPECT_EQ(logged("Unable saving data in file " + path(DataFolder::kSettings)), 1U);
  EXPECT_EQ(logged("No space left on device"), 2U) << "the file, and its version to go back to";
  full = false;
  EXPECT_TRUE(poor.settings().setMainAppSetting(2, "Volume"));
  EXPECT_EQ(other.settings().mainAppSettingForKey("Volume").integerValue(), 2);
}

TEST_F(Store, SettingsOfTwoProgramsAreMerged) {
  ASSERT_TRUE(store.settings().setMainAppSetting("a", "one"));
  ASSERT_TRUE(other.settings().setMainAppSetting("b", "two"));
  ASSERT_TRUE(store.settings().incrementCounterInInMainPrefsForKey("starts"));
  ASSERT_TRUE(other.settings().incrementCounterInInMainPrefsForKey("starts"));
  ASSERT_TRUE(store.settings().setMainAppSetting({}, "one"));
  EXPECT_EQ(other.settings().mainAppSettings(),
            ZAN_Value::dictionary({{"two", "b"}, {"starts", 2}}));

  // The region that the user chose for dates counts for both calendars of texts.
  ZAN_StringUtils strings("en_US");
  const auto noon = [](const ZAN_StringUtils& in) { return in.getShortTime(12 * 3600); };
  ASSERT_TRUE(store.settings().setMainAppSetting("de_DE", "ZAN_StringUtils_dateLocale"));
  other.settings().applyDateLocaleFromSettings(strings);
  EXPECT_EQ(noon(strings), "12:00");
  EXPECT_EQ(noon(other.dates().strings()), "12:00");
}

TEST_F(Store, PasswordsAreReadInEveryStoredForm) {
  const std::string password = "pässword \xF0\x9F\x94\x91";
  const ZAN_Value stored = SettingsFiles::compressPassword(password);
  EXPECT_TRUE(stored.isData());
  EXPECT_EQ(SettingsFiles::decompressPassword(stored), password);
  EXPECT_EQ(SettingsFiles::decompressPassword("plain"), "plain");
  EXPECT_EQ(SettingsFiles::decompressPassword({}), "");
  EXPECT_EQ(SettingsFiles::decompressPassword(ZAN_Value::data("garbage")), "");
}

TEST_F(Store, TheFirstStartCreatesWhatIsMissing) {
  store.createMissingDataFiles();
  EXPECT_TRUE(store.isFirstRun());
  EXPECT_EQ(dataFilesWith(".cva9data").size(), 10U) << "nine empty ones, and settings";
  EXPECT_TRUE(ZAN_FilesUtils::isFolder(data() + "/History"));
  ASSERT_TRUE(store.tree().saveActionsTree(records(1, "kept")));
  other.createMissingDataFiles();
  EXPECT_FALSE(other.isFirstRun());
  EXPECT_EQ(other.tree().readActionsList().size(), 1U);
}

TEST_F(Store, MissingPartsOfTheInstallationAreToldOnTheDesktop) {
  const std::string app = machine.folder.at("Applications/Corvana 9.app");
  const std::string resources = app + "/Contents/Resources";
  machine.folder.makeFolder("Desktop");
  store.reportMissingParts();
  const std::string report = machine.folder.at("Desktop/Corvana Install Error2.txt");
  EXPECT_TRUE(text(report).starts_with("Missing: " + app + "\n"));
  EXPECT_EQ(text(report).find("Launcher"), std::string::npos)
      << "the main application is not installed";
  EXPECT_EQ(store.installPaths().installPathForCode(7),
            resources + "/Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute");
  EXPECT_EQ(store.installPaths().installPathForCode(1), app + "/Contents/MacOS/Corvana 9");
  EXPECT_EQ(store.installPaths().installPathForCode(4), machine.machine.executable);
  EXPECT_EQ(store.installPaths().installPathForCode(17), "");

  machine.folder.write("Applications/Corvana 9.app/Contents/MacOS/Corvana 9", "");
  EXPECT_NE(store.installPaths().missingParts().find("Missing: " + resources +
                                                     "/Corvana 9 Launcher.app\n"),
            std::string::npos);
}

TEST_F(Store, TypesOfFilesByExtension) {
  FileTypes& types = store.fileTypes();
  EXPECT_EQ(types.getTypeForExtension("JPG"), "Image");
  EXPECT_EQ(types.getTypeForExtension("jp"), "");
  EXPECT_EQ(FileTypes::cleanExtensions(", a,,,b c ,d,"), "a,bc,d");
  ZAN_Value all = types.readTypesForExtensions();
  FileTypes::addExtensions("jpg, raw,,", "Image", all);
  FileTypes::addExtensions("stl", "Model", all);
  ASSERT_TRUE(types.saveTypesByExtensions(all));
  EXPECT_TRUE(FileTypes::getExtensionsForType("Image", all).ends_with(",xpm,raw"));
  EXPECT_EQ(other.fileTypes().getTypeForExtension("stl"), "Model");
}

TEST_F(Store, FilesCopiedOnlyOnceAreKeptForEachAction) {
  ASSERT_TRUE(store.saveCopyOnlyOnceList(ZAN_Value::array({"/a", "/b"}), 12));
  EXPECT_TRUE(ZAN_FilesUtils::exists(data() + "/CopyOnlyOnce Data/Action #12.cva9data"));
  EXPECT_EQ(other.getCopyOnlyOnceListForAction(12).size(), 2U);
  ASSERT_TRUE(other.deleteCopyOnlyOnceFileForAction(12));
  EXPECT_TRUE(store.getCopyOnlyOnceListForAction(12).isNull());
}

}  // namespace
}  // namespace corvana
