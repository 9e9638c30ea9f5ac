#include "core/work/WhyNot.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "WorkWorld.h"
#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/RecordKeys.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using Cause = WhyNot::Cause;

/// Tuesday 2024-01-02, 12:00 UTC.
class WhyNotTest : public testing::Test, protected WorkWorld {
 protected:
  /// Complete, its volumes there and due since an hour unless `more` says otherwise.
  ZAN_Value due(std::initializer_list<std::pair<std::string_view, ZAN_Value>> more = {}) {
    ZAN_Value record = automatic(1, 1);
    record.setValue("TriggerScheduleTime", ZAN_Value::date(11 * 3600));
    record.setValue("LastScheduleDate", ZAN_Value::date(now() - 2 * 86400));
    record.setValue("ItemsVolumeTolerance", 1);
    record.setValue("ItemsSource", item(machine.folder.path()));
    record.setValue("ItemsDestination", item(machine.folder.path()));
    for (const auto& [key, value] : more) record.setValue(key, value);
    return record;
  }
  std::vector<WhyNot::Reason> reasons(const ZAN_Value& record) {
    setActions({record, action(2), action(3)});
    const ZAN_DateUtils calendar("UTC", "C");
    const ActionsTools tools(calendar, now());
    const WhyNot why(tools, {texts, strings}, volumes, [&](std::int64_t ref) {
      return tree.rootItem().actionForReference(ref)->getTitle();
    });
    return why.reasons(*tree.rootItem().actionForReference(1), situation);
  }
  std::vector<Cause> causes(const ZAN_Value& record) {
    std::vector<Cause> result;
    for (const auto& reason : reasons(record)) result.push_back(reason.cause);
    return result;
  }
  std::string text(const ZAN_Value& record) {
    const auto found = reasons(record);
    return found.empty() ? std::string() : found.front().text;
  }

  WhyNot::Situation situation;
};

TEST_F(WhyNotTest, HasNothingToSayOfAnActionThatIsDue) {
  EXPECT_THAT(causes(due()), IsEmpty());
  ZAN_Value elsewhere = due({{EngineKey::name, "restic"}});
  elsewhere.removeKey("ItemsDestination");
  EXPECT_THAT(causes(elsewhere), IsEmpty()) << "a server is no destination among volumes";
}

TEST_F(WhyNotTest, TellsWhenATargetThatWasAwayIsTriedAgain) {
  ZAN_Value away = due({{EngineKey::tryAgain, ZAN_Value::date(now() + 900)},
                        {"LastScheduleDate", ZAN_Value::date(now())}});
  EXPECT_THAT(causes(away), ElementsAre(Cause::targetAway, Cause::notDue));
  EXPECT_THAT(text(away), testing::HasSubstr("12:15"));
  away.setValue(EngineKey::tryAgain, ZAN_Value::date(now()));
  EXPECT_THAT(causes(away), ElementsAre(Cause::notDue)) << "it is being tried";
}

TEST_F(WhyNotTest, ADateIsNeverTooFarAwayToBeTold) {
  // Only on 29 February at 8:00, and not before 2028 for who looks in March 2024.
  const ZAN_Value leapDay =
      ZAN_Value::dictionary({{"TriggerScheduleMode", 3},
                             {"TriggerScheduleDay", 29},
                             {"TriggerScheduleMonth", 2},
                             {"TriggerScheduleTime", ZAN_Value::date(8 * 3600)}});
  advance(60 * 86400);
  const ZAN_Value record = due(
      {{"TriggerFrequencyPopup", 23},
       {"LastScheduleDate", ZAN_Value::date(now())},
       {"TriggerScheduleList",
        ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array({leapDay})))}});
  EXPECT_THAT(causes(record), ElementsAre(Cause::notDue));
  EXPECT_THAT(text(record), testing::HasSubstr("2/29/28"));
}

TEST_F(WhyNotTest, NamesEverythingThatIsInTheWay) {
  situation.scheduleDisabled = true;
  situation.paused = true;
  situation.context = ActionContext::office;
  const ZAN_Value record =
      due({{"TriggerContextPopup", 2},
           {"TriggerAllowedHours", 1},
           {"TriggerAllowedHoursFrom", ZAN_Value::date(8 * 3600)},
           {"TriggerAllowedHoursTo", ZAN_Value::date(10 * 3600)},
           {"ItemsDestination", item(machine.volumes.folder + "/Disk/Backup")}});
  EXPECT_THAT(causes(record), ElementsAre(Cause::disabled, Cause::paused, Cause::otherContext,
                                          Cause::volumeMissing, Cause::outOfHours, Cause::noDate));
}

TEST_F(WhyNotTest, FindsNothingInTheWayOfExactlyWhatTheEvaluationQueues) {
  const std::vector<std::pair<ZAN_Value, ZAN_Value>> hours{
      {nullptr, nullptr},
      {ZAN_Value::date(8 * 3600), ZAN_Value::date(10 * 3600)},
      {ZAN_Value::date(8 * 3600), ZAN_Value::date(12 * 3600)},
      {ZAN_Value::date(22 * 3600), ZAN_Value::date(13 * 3600)},
      {nullptr, ZAN_Value::date(13 * 3600)}};
  std::vector<ZAN_Value> records;
  for (const int kind : {0, 1, 10, 11, 20, 21, 25, 31, 32, 40}) {
    for (const int automatic : {0, 1}) {
      for (const int context : {0, 1, 2}) {
        for (const auto& [from, to] : hours) {
          records.push_back(due({{"Ref", static_cast<int>(records.size()) + 1},
                                 {"TriggerFrequencyPopup", kind},
                                 {"TriggerAutomatic", automatic},
                                 {"TriggerContextPopup", context},
                                 {"TriggerScheduleMinutes", 15},
                                 {"TriggerAllowedHours", from.isNull() && to.isNull() ? 0 : 1},
                                 {"TriggerAllowedHoursFrom", from},
                                 {"TriggerAllowedHoursTo", to}}));
        }
      }
    }
  }
  setActions(records);
  state.mContext = 1;
  situation.context = ActionContext::office;
  const ZAN_DateUtils calendar("UTC", "C");
  const ActionsTools tools(calendar, now());
  const WhyNot why(tools, {texts, strings}, volumes, [](std::int64_t) { return std::string(); });
  std::vector<std::int64_t> free;
  ProgrammedAction::Nodes actions;
  tree.rootItem().getListOfAllProgrammedActions(actions);
  for (const ProgrammedAction* action : actions) {
    if (why.reasons(*action, situation).empty()) free.push_back(action->getReference());
  }
  evaluation.checkActionsToLaunch();
  EXPECT_THAT(queued(), testing::UnorderedElementsAreArray(free));
  // Daily, every 15 minutes and hourly; in this context or any; with three of the hours.
  EXPECT_EQ(free.size(), 3U * 2U * 3U);
}

TEST_F(WhyNotTest, TellsWhatItWaitsBehind) {
  situation.headRuns = true;
  situation.queue = {2, 3, 1};
  EXPECT_EQ(text(due()), "It waits in the queue behind “A2” (running), “A3”.");
  situation.queue = {1};
  EXPECT_THAT(causes(due({{"ItemsDestination", nullptr}})), ElementsAre(Cause::running));
  situation.headRuns = false;
  EXPECT_THAT(causes(due()), ElementsAre(Cause::queued));
  situation.headHold = "The next action waits until an execution started elsewhere has ended";
  EXPECT_EQ(text(due()),
            "It is the first in the queue. The next action waits until an execution started "
            "elsewhere has "
            "ended.");
}

TEST_F(WhyNotTest, NamesTheMissingVolumeOnce) {
  // An empty folder in its place is no volume.
  machine.folder.makeFolder("Volumes/Attic/b");
  const auto missing = [&](const std::string& path) {
    ZAN_Value description = item(machine.volumes.folder + path);
    description.setValue("VolumeFolderName", "Attic");
    description.setValue("uuid", "1234-ABCD");
    return description;
  };
  const ZAN_Value record = due({{"ItemsVolumeTolerance", nullptr},
                                {"ItemsSource", missing("/Attic/a")},
                                {"ItemsDestination", missing("/Attic/b")}});
  const auto found = reasons(record);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].text,
            "Not mounted, or replaced by another volume: “Attic” (UUID 1234-ABCD). "
            "The execution would be cancelled.");
}

TEST_F(WhyNotTest, TellsWhichEventStartsIt) {
  EXPECT_EQ(text(due({{"TriggerAutomatic", 0}})), "It is not automatic: it runs only by hand.");
  EXPECT_THAT(causes(due({{"LastScheduleDate", ZAN_Value::date(now())}})),
              ElementsAre(Cause::notDue));
  EXPECT_EQ(text(due({{"TriggerFrequencyPopup", 10}})), "It waits until its volume is mounted.");
  EXPECT_EQ(text(due({{"TriggerFrequencyPopup", 11}, {"TriggerAppQuitPath", "/opt/Mail.app"}})),
            "It waits until “Mail” quits.");
  situation.idleTimeIsSeen = false;
  EXPECT_EQ(text(due({{"TriggerFrequencyPopup", 40}, {"TriggerScheduleMinutes", 20}})),
            "It waits until nobody has used the machine for 20 minutes. This cannot be seen here: "
            "without a desktop the user counts as active.");
  EXPECT_THAT(causes(due({{"TriggerFrequencyPopup", 25}})), ElementsAre(Cause::noDate));
  const ZAN_Value wrapped = due({{"TriggerAllowedHours", 1},
                                 {"TriggerAllowedHoursFrom", ZAN_Value::date(22 * 3600)},
                                 {"TriggerAllowedHoursTo", ZAN_Value::date(6 * 3600)}});
  EXPECT_EQ(
      text(wrapped),
      "It may only start from 10:00 PM to 6:00 AM. The end is before the beginning, so it never "
      "runs.");
}

TEST_F(WhyNotTest, SaysWhatHelpsWithAndWithoutACommand) {
  situation.scheduleDisabled = true;
  const auto found = reasons(due({{"TriggerAutomatic", 0}}));
  ASSERT_EQ(found.size(), 2u);
  EXPECT_EQ(found[0].remedy, "Turn it on.");
  EXPECT_EQ(found[0].remedyByCommand, "Turn it on: corvana9 enable");
  // A window has a button that runs it.
  EXPECT_EQ(found[1].remedy, "");
  EXPECT_EQ(found[1].remedyByCommand,
            "Run it now: corvana9 launch 1, or give it a schedule: corvana9 edit 1");
}

TEST_F(WhyNotTest, SpeaksTheLanguageOfTheUser) {
  ASSERT_TRUE(texts.load(std::string(CORVANA_SOURCE_FOLDER) + "/resources", {"de"}));
  situation.queue = {2, 1};
  EXPECT_EQ(text(due()), "Sie wartet in der Warteschlange hinter „A2“.");
  situation.queue.clear();
  EXPECT_EQ(text(due({{"TriggerFrequencyPopup", 40}, {"TriggerScheduleMinutes", 1}})),
            "Sie wartet, bis eine Minute lang niemand am Rechner war.");
}

}  // namespace
}  // namespace corvana::test
