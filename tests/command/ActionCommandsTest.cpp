#include <gmock/gmock.h>

#include <QCoreApplication>
#include <cstdlib>
#include <filesystem>
#include <sstream>

#include "actions/ActionsTools.h"
#include "command/Commands.h"
#include "platform/qt/BusNotifications.h"
#include "platform/qt/QtRunLoop.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

class ActionCommandsTest : public testing::Test {
 protected:
  ActionCommandsTest() {
    ::setenv("TZ", "UTC", 1);
    machine.folder.makeFolder("photos");
    machine.folder.makeFolder("disk");
  }
  int run(std::vector<std::string> words) {
    words.insert(words.end(), {"--home", machine.folder.path()});
    std::istringstream in;
    out.str("");
    err.str("");
    return runCommandLine(words, {in, out, err});
  }
  int add(std::vector<std::string> more, const std::string& title = "Photos") {
    std::vector<std::string> words{"add",           title,
                                   "--source",      machine.folder.at("photos"),
                                   "--destination", machine.folder.at("disk")};
    words.insert(words.end(), more.begin(), more.end());
    return run(words);
  }
  /// What another program finds on disk.
  ProgrammedAction& stored() {
    mReader = std::make_unique<TreeHome>(machine);
    return mReader->tree.rootItem();
  }
  std::string storedBytes() {
    const auto contents =
        ZAN_FilesUtils::readFile(TreeHome(machine).store.folder().pathOf(DataFolder::kActions));
    return contents ? contents->bytes : std::string();
  }

  SimulatedPlatform machine;
  std::ostringstream out, err;

 private:
  std::unique_ptr<TreeHome> mReader;
};

TEST_F(ActionCommandsTest, EachScheduleRunsWhenItSays) {
  struct Case {
    std::vector<std::string> words;
    const char* next;
    const char* text;
  };
  const std::vector<Case> cases{
      {{"--daily", "08:00"}, "Wed 2024-01-03 08:00", "every day at 08:00"},
      {{"--daily", "8:00", "--daily", "20:15"}, "Tue 2024-01-02 20:15", "every day at 08:00, and"},
      {{"--every", "15m"}, "Tue 2024-01-02 12:15", "every 15 minutes"},
      {{"--every", "2h"}, "Tue 2024-01-02 14:00", "every 2 hours"},
      {{"--hourly"}, "Tue 2024-01-02 13:00", "every hour"},
      {{"--hourly", "--hours", "14:00-18:00"}, "Tue 2024-01-02 14:00", "between 14:00 and 18:00"},
      {{"--weekly", "mon,THURSDAY", "--at", "18:30"},
       "Thu 2024-01-04 18:30",
       "every Monday and Thursday at 18:30"},
      {{"--monthly", "last-working-day", "--at", "08:05"},
       "Wed 2024-01-31 08:05",
       "last working day"},
      {{"--monthly", "first-working-day", "--at", "08:05"}, "Thu 2024-02-01 08:05", "first work"},
      {{"--monthly", "first-day", "--at", "08:05"}, "Thu 2024-02-01 08:05", "on the first day"},
      {{"--monthly", "last-day", "--at", "08:05"}, "Wed 2024-01-31 08:05", "on the last day"},
      {{"--monthly", "first-fri", "--at", "08:05"}, "Fri 2024-01-05 08:05", "first Friday"},
      {{"--monthly", "second-fri", "--at", "08:05"}, "Fri 2024-01-12 08:05", "second Friday"},
      {{"--monthly", "last-sun", "--at", "08:05"}, "Sun 2024-01-28 08:05", "last Sunday"},
      {{"--monthly", "1,15", "--at", "08:05"}, "Mon 2024-01-15 08:05", "on day 1 and 15"},
      {{"--yearly", "29.2.", "--at", "23:59"}, "Thu 2024-02-29 23:59", "every year on 29.2."},
      {{"--weekly", "fri", "--at", "01:00", "--at-shutdown"}, "Fri 2024-01-05 01:00", "shut-down"},
      {{"--on-mount"}, "", "when one of its disks is plugged in"},
      {{"--on-idle", "20"}, "", "after 20 minutes without use"},
      {{"--on-quit", "Mail"}, "", "when Mail quits"},
      {{"--at-startup"}, "", "at start-up"},
      {{"--at-shutdown"}, "", "at shut-down"},
      {{"--manual", "--context", "office"}, "", "only when it is launched"},
  };
  const ZAN_DateUtils calendar("UTC", "C");
  const ActionsTools tools(calendar, SimulatedPlatform::kFirstDate);
  for (std::size_t i = 0; i < cases.size(); ++i) {
    SCOPED_TRACE(cases[i].text);
    ASSERT_EQ(add(cases[i].words), kDone) << err.str();
    ZAN_Value record = stored().childAtIndex(i).getSettings();
    EXPECT_TRUE(record.contains("LastScheduleDate"));
    record.setValue("LastScheduleDate", ZAN_Value::date(tools.now()));
    bool isShutDown = false;
    const auto next = tools.getNextScheduleDateForSettings(record, false, &isShutDown);
    EXPECT_FALSE(isShutDown);
    EXPECT_EQ(next ? calendar.format(*next, "%a %Y-%m-%d %H:%M") : "", cases[i].next);
    ASSERT_EQ(run({"tree"}), kDone);
    EXPECT_THAT(out.str(), HasSubstr(cases[i].text));
  }
  ProgrammedAction::Nodes atShutDown;
  stored().getListOfShutDownActions(atShutDown);
  EXPECT_EQ(atShutDown.size(), 2U);
}

TEST_F(ActionCommandsTest, WrongWordsChangeNothing) {
  ASSERT_EQ(add({}), kDone);
  const std::string before = storedBytes();
  const std::string reference = std::to_string(stored().childAtIndex(0).getReference());
  const std::vector<std::vector<std::string>> wrong{
      {"--daily", "24:00"},
      {"--daily", "8"},
      {"--every", "15"},
      {"--every", "0m"},
      {"--weekly", "mon"},
      {"--weekly", "mon,xyz", "--at", "08:00"},
      {"--monthly", "32", "--at", "08:00"},
      {"--yearly", "30.2.", "--at", "08:00"},
      {"--on-idle", "0"},
      {"--hourly", "--every", "5m"},
      {"--manual", "--hourly"},
      {"--hours", "22:00"},
      {"--mode", "move"},
      {"--context", "beach"},
      {"--at", "08:00"},
      {"--unknown"},
  };
  for (const auto& words : wrong) {
    EXPECT_EQ(add(words), kWrongWords) << testing::PrintToString(words);
    std::vector<std::string> edit{"edit", reference};
    edit.insert(edit.end(), words.begin(), words.end());
    EXPECT_EQ(run(edit), kWrongWords) << testing::PrintToString(words);
  }
  EXPECT_EQ(run({"edit", reference}), kWrongWords) << "nothing to change";
  EXPECT_EQ(run({"edit", "x", "--manual"}), kWrongWords);
  EXPECT_EQ(run({"add", "No folders"}), kWrongWords);
  EXPECT_EQ(run({"edit", "12", "--manual"}), kCouldNot);
  EXPECT_EQ(run({"remove", "12"}), kCouldNot);
  EXPECT_EQ(add({"--group", reference}), kCouldNot) << "an action is no group";
  EXPECT_EQ(add({"--source", machine.folder.at("none")}), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("none: not there"));
  EXPECT_EQ(add({"--destination", machine.folder.at("photos/inside")}), kCouldNot);
  EXPECT_EQ(storedBytes(), before);
  EXPECT_EQ(add({"--source", machine.folder.at("none"), "--force"}), kDone);
}

TEST_F(ActionCommandsTest, WhatCanNeverRunIsRefusedWithTheReasonUnlessForced) {
  const auto refuses = [&](const std::vector<std::string>& words, const char* reason) {
    EXPECT_EQ(add(words), kCouldNot) << testing::PrintToString(words);
    EXPECT_THAT(err.str(), HasSubstr(reason));
  };
  refuses({"--daily", "07:00", "--hours", "08:00-18:00"}, "at 07:00, which lies outside");
  refuses({"--hourly", "--hours", "22:00-06:00"}, "its hours 22:00-06:00 end before they begin");
  refuses({"--every", "24h", "--hours", "08:00-10:00"}, "steps of 1440 minutes");
  refuses({"--daily", "09:00", "--daily", "19:00", "--hours", "08:00-10:00"}, "at 19:00");
  EXPECT_EQ(stored().numberOfChildren(), 0U);

  // What was there and what is new, together.
  ASSERT_EQ(add({"--daily", "17:00"}), kDone);
  const std::string reference = std::to_string(stored().childAtIndex(0).getReference());
  EXPECT_EQ(run({"edit", reference, "--hours", "08:00-10:00"}), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("Photos: it can never run at 17:00"));
  EXPECT_FALSE(stored().childAtIndex(0).schedule().hasAllowedHours);
  ASSERT_EQ(run({"edit", reference, "--hours", "08:00-10:00", "--force"}), kDone);
  EXPECT_THAT(err.str(), HasSubstr("warning: Photos: it can never run at 17:00"));
  EXPECT_EQ(run({"edit", reference, "--title", "Letters"}), kDone) << "says nothing of its times";
  EXPECT_EQ(run({"edit", reference, "--daily", "18:00"}), kCouldNot) << "the hours are still there";
  EXPECT_EQ(run({"edit", reference, "--daily", "18:00", "--hours", "any"}), kDone) << err.str();
}

TEST_F(ActionCommandsTest, RefusesASizeForVersionsThatShareWhatTheyHold) {
  const std::string password = machine.folder.write("password", "open sesame\n");
  std::filesystem::permissions(password, std::filesystem::perms::owner_read);
  const std::vector<std::string> words{"--engine", "restic", "--password-file", password, "--keep"};
  auto sized = words;
  sized.emplace_back("1y,5G");
  EXPECT_EQ(add(sized), 1);
  EXPECT_THAT(err.str(), HasSubstr("plain folders only"));
  EXPECT_EQ(storedBytes(), "");
  auto aged = words;
  aged.emplace_back("1y");
  EXPECT_EQ(add(aged), 0) << err.str();
}

TEST_F(ActionCommandsTest, ContextIsShownAndStoredForTheNextAgent) {
  ASSERT_EQ(add({"--daily", "08:00", "--context", "office"}), kDone);
  ASSERT_EQ(run({"context"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Context: none\n"));
  EXPECT_EQ(run({"context", "beach"}), kWrongWords);
  ASSERT_EQ(run({"context", "home"}), kDone) << err.str();
  ASSERT_EQ(run({"context", "--json"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("\"context\": \"home\""));
  for (const char* const command : {"next", "tree", "status"}) {
    ASSERT_EQ(run({command}), kDone);
    EXPECT_THAT(out.str(), HasSubstr("(will not run: the context is home)")) << command;
  }
  ASSERT_EQ(run({"disable"}), kDone);
  ASSERT_EQ(run({"next", "--ics"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("STATUS:TENTATIVE\r\nDESCRIPTION:will not run: automatic"));
  ASSERT_EQ(run({"next", "--json", "--count", "1"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("\"held\": \"disabled\""));
}

TEST_F(ActionCommandsTest, FoldersAreDescribedWithTheirVolume) {
  ASSERT_EQ(add({"--source", machine.folder.at("disk/../photos/"), "--mode", "synchronise",
                 "--shortcut", "p"}),
            kDone)
      << err.str();
  const ZAN_Value record = stored().childAtIndex(0).getSettings();
  EXPECT_EQ(record.integer("Mode"), 3);
  EXPECT_EQ(record.string("OptionsPerformer"), "corvana9");
  EXPECT_EQ(record.string("Shortcut"), "p");
  const auto sources = ActionsTools::getSourcesForAction(record);
  ASSERT_EQ(sources.size(), 2U);
  EXPECT_EQ(sources[1].path(), machine.folder.at("photos"));
  const ZAN_Value destination = ActionsTools::getDestinationForAction(record).toValue();
  EXPECT_EQ(destination.string("VolumeFolderPathLocalized"), machine.folder.at("disk"));
  EXPECT_FALSE(destination.string("VolumeFolderName").empty());
  EXPECT_GT(destination["VolumeFolderVolumeSize"].unsignedValue(), 0U);
  EXPECT_TRUE(destination["VolumeFolderVolumeDate"].isNumber());
}

TEST_F(ActionCommandsTest, EditKeepsWhatOthersWroteAndDoesNotMakeTheActionDue) {
  ASSERT_EQ(run({"group", "Home"}), kDone);
  ASSERT_EQ(add({"--daily", "08:00", "--context", "home"}), kDone);
  const std::int64_t group = stored().childAtIndex(0).getReference();
  const std::int64_t reference = stored().childAtIndex(1).getReference();
  TreeHome agent(machine);
  agent.tree.rootItem().actionForReference(reference)->incrementExecutionCounter();
  agent.tree.rootItem().actionForReference(reference)->setLastScheduleDate(0);

  ASSERT_EQ(run({"edit", std::to_string(reference), "--every", "30m", "--title", "New", "--group",
                 std::to_string(group), "--json"}),
            kDone)
      << err.str();
  EXPECT_THAT(out.str(), HasSubstr("\"schedule\": \"every 30 minutes, only at home\""));
  ProgrammedAction& root = stored();
  EXPECT_EQ(outline(root), "Home(New)");
  const ZAN_Value record = root.actionForReference(reference)->getSettings();
  EXPECT_EQ(record.integer("ExecCounter"), 1);
  EXPECT_GT(record["LastScheduleDate"].asDate(), 800000000.0) << "now, not what was pending";
  EXPECT_FALSE(record.contains("TriggerScheduleTime"));
  EXPECT_TRUE(record.contains("ItemsDestination"));
  EXPECT_TRUE(agent.store.tree().readChangesList().empty());

  EXPECT_EQ(run({"edit", std::to_string(group), "--hourly"}), kCouldNot);
  EXPECT_EQ(run({"edit", std::to_string(group), "--group", std::to_string(group)}), kCouldNot);
  EXPECT_EQ(run({"remove", std::to_string(group)}), kCouldNot);
  EXPECT_EQ(outline(stored()), "Home(New)");
  EXPECT_EQ(run({"remove", std::to_string(group), "--force"}), kDone);
  EXPECT_EQ(stored().numberOfChildren(), 0U);
}

TEST_F(ActionCommandsTest, AgentHearsOfEveryEdit) {
  int count = 0;
  const QCoreApplication application(count, nullptr);
  QtRunLoop loop;
  BusNotifications agent(loop, machine.systemLog);
  if (!agent.isConnected()) GTEST_SKIP() << "no bus";
  std::vector<std::string> heard;
  bool isWaiting = false;
  agent.observe("CVA9_SchedulerNotification", [&](const DistributedNotification& message) {
    heard.push_back(message.object);
    if (isWaiting) loop.quit(0);
  });
  const auto wait = [&] {
    const auto tooLate = loop.performAfter(5, [&] { loop.quit(1); });
    isWaiting = true;
    if (heard.empty()) loop.run();
    isWaiting = false;
    loop.cancel(tooLate);
    return std::exchange(heard, {});
  };
  ASSERT_EQ(add({"--unknown"}), kWrongWords);
  ASSERT_EQ(add({}), kDone);
  EXPECT_THAT(wait(), ElementsAre("ActionListChanged"));
  const std::string reference = std::to_string(stored().childAtIndex(0).getReference());
  ASSERT_EQ(run({"edit", "1", "--hourly"}), kCouldNot);
  ASSERT_EQ(run({"edit", reference, "--hourly"}), kDone);
  EXPECT_THAT(wait(), ElementsAre("ActionListChanged"));
}

TEST_F(ActionCommandsTest, TreeThatCannotBeReadIsLeftAlone) {
  ASSERT_EQ(run({"tree"}), kDone);
  EXPECT_FALSE(ZAN_FilesUtils::exists(machine.folder.at("Library"))) << "looking creates nothing";
  ASSERT_EQ(add({}), kDone);
  machine.folder.write("Library/Application Support/Corvana 9/Programmed Actions.cva9data", "bad");
  EXPECT_EQ(run({"tree"}), kCouldNot);
  EXPECT_EQ(add({}), kCouldNot);
  EXPECT_EQ(storedBytes(), "bad");
}

TEST_F(ActionCommandsTest, RefusesActionsThatSpoilEachOthersCopies) {
  machine.folder.makeFolder("other/photos");
  machine.folder.makeFolder("letters");
  machine.folder.makeFolder("disk/photos/deep");
  const auto addFrom = [&](const std::string& source, const std::string& destination,
                           const std::string& mode) {
    return run({"add", "Second", "--source", machine.folder.at(source), "--destination",
                machine.folder.at(destination), "--mode", mode});
  };
  ASSERT_EQ(add({"--mode", "synchronise"}), kDone);
  EXPECT_EQ(addFrom("other/photos", "disk", "synchronise"), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("disk/photos: the action "));
  EXPECT_EQ(addFrom("other/photos", "disk", "copy"), kCouldNot);
  EXPECT_EQ(addFrom("letters", "disk/photos/deep", "copy"), kCouldNot) << "it would be deleted";
  EXPECT_EQ(addFrom("letters", "disk", "synchronise"), kDone) << "beside each other";
  EXPECT_EQ(addFrom("photos", "disk", "copy"), kDone) << "the same source";
  EXPECT_EQ(addFrom("other/photos", "letters", "synchronise"), kDone);
  const ProgrammedAction& root = stored();
  const std::string last =
      std::to_string(root.childAtIndex(root.numberOfChildren() - 1).getReference());
  EXPECT_EQ(run({"edit", last, "--destination", machine.folder.at("disk")}), kCouldNot);
  EXPECT_EQ(run({"edit", last, "--title", "Third"}), kDone);
}

TEST_F(ActionCommandsTest, AddsAndTakesBackWhatIsLeftOut) {
  ASSERT_EQ(add({"--exclude", "*.tmp", "--exclude", "/cache/"}), kDone);
  const std::string reference = std::to_string(stored().childAtIndex(0).getReference());
  const auto patterns = [&] {
    std::vector<std::string> list;
    const ZAN_Value record = stored().childAtIndex(0).getSettings();
    for (const ZAN_Value& each : record[CopyKey::exclusions].elements())
      list.emplace_back(each.stringView());
    return list;
  };
  EXPECT_THAT(patterns(), ElementsAre("*.tmp", "/cache/"));
  ASSERT_EQ(run({"edit", reference, "--exclude", "/x y", "--exclude", "*.tmp", "--no-exclude",
                 "/cache/"}),
            kDone);
  EXPECT_THAT(patterns(), ElementsAre("*.tmp", "/x y"));
}

TEST_F(ActionCommandsTest, LeavesOutWhatIsProposedAndWhatIsMissing) {
  machine.folder.write("photos/.cache/x", "x");
  machine.folder.write("photos/.var/app/some/cache/x", "x");
  ASSERT_EQ(add({}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("--exclude-proposed"));
  EXPECT_THAT(out.str(), HasSubstr("/.var/app/*/cache/"));
  EXPECT_THAT(out.str(), testing::Not(HasSubstr("Trash")));
  const std::string reference = std::to_string(stored().childAtIndex(0).getReference());
  stored().childAtIndex(0).addInChangesList(ZAN_Value::array({"/mine", "/his"}),
                                            CopyKey::notPossible);
  ASSERT_EQ(run({"edit", reference, "--exclude-missing"}), kDone) << err.str();
  ASSERT_EQ(run({"edit", reference, "--exclude-proposed"}), kDone) << err.str();
  std::vector<std::string> patterns;
  const ZAN_Value record = stored().childAtIndex(0).getSettings();
  for (const ZAN_Value& each : record[CopyKey::exclusions].elements())
    patterns.emplace_back(each.stringView());
  EXPECT_THAT(patterns, ElementsAre("/mine", "/his", "/.cache/", "/.var/app/*/cache/"));
}

TEST_F(ActionCommandsTest, TakesDisksInTurnsAndABandwidth) {
  machine.folder.makeFolder("second");
  machine.folder.makeFolder("third");
  ASSERT_EQ(add({"--rotate", machine.folder.at("second"), "--rotate", machine.folder.at("third"),
                 "--bandwidth", "20M"}),
            kDone)
      << err.str();
  const auto record = [&] { return stored().childAtIndex(0).getSettings(); };
  const std::string reference = std::to_string(record().integer("Ref"));
  EXPECT_EQ(record()["CopyRotation"].size(), 2u);
  EXPECT_EQ(record()["CopyRotation"].at(1).string("VolumeFolderPath"), machine.folder.at("third"));
  EXPECT_EQ(record().integer(CopyKey::bandwidth), 20'000'000);
  ASSERT_EQ(run({"edit", reference, "--rotate", "", "--bandwidth", "0"}), kDone);
  EXPECT_TRUE(record()["CopyRotation"].empty());
  EXPECT_EQ(record().integer(CopyKey::bandwidth), 0);
  EXPECT_EQ(run({"edit", reference, "--bandwidth", "fast"}), kWrongWords);
  EXPECT_EQ(run({"edit", reference, "--rotate", machine.folder.at("photos/x/y"), "--source",
                 machine.folder.at("photos")}),
            kCouldNot);
}

TEST_F(ActionCommandsTest, SeesThroughLinksWhereCopiesLie) {
  std::filesystem::create_directory_symlink(machine.folder.at("photos"), machine.folder.at("link"));
  std::filesystem::create_directory_symlink(machine.folder.at("disk"), machine.folder.at("other"));
  machine.folder.makeFolder("photos/inner");
  EXPECT_EQ(run({"add", "A", "--source", machine.folder.at("photos"), "--destination",
                 machine.folder.at("link/inner")}),
            kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("lies in the source"));
  ASSERT_EQ(add({"--mode", "synchronise"}), kDone) << err.str();
  machine.folder.makeFolder("elsewhere/photos");
  EXPECT_EQ(run({"add", "B", "--source", machine.folder.at("elsewhere/photos"), "--destination",
                 machine.folder.at("other"), "--mode", "synchronise"}),
            kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("copies there too"));
}

TEST_F(ActionCommandsTest, ConfirmsTheDeletionsThatWereAskedAboutOnce) {
  ASSERT_EQ(add({"--mode", "synchronise", "--delete-limit", "20"}), kDone);
  const std::int64_t reference = stored().childAtIndex(0).getReference();
  EXPECT_EQ(stored().childAtIndex(0).getSettings().integer(DeletionKey::limit), 20);
  EXPECT_EQ(run({"confirm", std::to_string(reference)}), kCouldNot) << "nothing was asked";
  // As the execute program leaves it.
  stored().childAtIndex(0).addInChangesList(77, DeletionKey::toConfirm);
  ASSERT_EQ(run({"why", std::to_string(reference)}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("77 files"));
  EXPECT_THAT(out.str(), HasSubstr("corvana9 confirm " + std::to_string(reference)));
  ASSERT_EQ(run({"confirm", std::to_string(reference)}), kDone) << err.str();
  EXPECT_THAT(out.str(), HasSubstr("may delete 77 files"));
  EXPECT_EQ(stored().childAtIndex(0).getSettings().integer(DeletionKey::confirmed), 77);
  EXPECT_EQ(run({"confirm", std::to_string(reference)}), kCouldNot) << "for one run only";
  EXPECT_EQ(run({"edit", std::to_string(reference), "--delete-limit", "101"}), kWrongWords);
}

}  // namespace
}  // namespace corvana
