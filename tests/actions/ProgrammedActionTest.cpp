#include "actions/ProgrammedAction.h"

#include <gmock/gmock.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::UnorderedElementsAre;

constexpr double kDay = 86400;

ZAN_Value archived(const ZAN_Value& value) {
  return ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(value));
}

class ProgrammedActionTest : public testing::Test {
 protected:
  ProgrammedAction& add(ProgrammedAction& group, std::string_view title, int reference,
                        std::initializer_list<std::pair<std::string_view, ZAN_Value>> more = {}) {
    ZAN_Value record = actionRecord(title, reference);
    for (const auto& [key, value] : more) record.setValue(key, value);
    group.addActionsFromList(ZAN_Value::array({record}), false, std::nullopt);
    return group.childAtIndex(group.numberOfChildren() - 1);
  }
  ZAN_Value ago(double seconds) { return ZAN_Value::date(now - seconds); }
  std::string displayed(SortMode mode, const ProgrammedAction::DisplayFilter& filter = {}) {
    root.updateListOfDisplayedActions(filter, {mode, tools});
    return displayedIn(root);
  }
  static std::string displayedIn(const ProgrammedAction& node) {
    std::string text;
    for (const ProgrammedAction* child : node.getChildrenToDisplayList()) {
      if (!text.empty()) text += ' ';
      text += child->getSettings().contains("Title") ? child->getTitle() : "?";
      if (child->isGroup()) text += "(" + displayedIn(*child) + ")";
    }
    return text;
  }

  SimulatedPlatform machine;
  TreeHome home{machine};
  ProgrammedAction& root = home.tree.rootItem();
  ReferenceTime now = machine.clock.now();  // 12:00
  ZAN_DateUtils calendar{"UTC", "C"};
  ActionsTools tools{calendar, now};
};

TEST_F(ProgrammedActionTest, MovesKeepTheOrderThatIndexesNameBeforeTheMove) {
  for (int i = 0; i < 7; ++i) add(root, std::string(1, static_cast<char>('a' + i)), i + 1);
  ProgrammedAction& moved = root.childAtIndex(1);
  moved.moveActionTo(root, 5, SortMode::title);
  EXPECT_EQ(outline(root), "a c d e b f g");
  EXPECT_FALSE(moved.getSettings().contains("ManualSorting"));
  moved.moveActionTo(root.childAtIndex(0), 0, SortMode::manual);
  EXPECT_EQ(outline(root), "b a c d e f g");
  EXPECT_EQ(root.childAtIndex(6).getSettings().integer("ManualSorting"), 6);

  ProgrammedAction& outer = *root.addGroup("G", "", 0);
  ProgrammedAction& inner = *outer.addGroup("H", "", 0);
  moved.moveActionTo(inner, 9, SortMode::title);
  outer.moveActionTo(inner, 0, SortMode::title);
  outer.moveActionTo(moved, 0, SortMode::title);
  EXPECT_EQ(outline(root), "a c d e f g G(H(b))") << "a group does not move into itself";
  EXPECT_TRUE(moved.isDescendantOfNodeInArray({&inner, &outer}));
}

TEST_F(ProgrammedActionTest, CopyStartsWithoutPast) {
  ProgrammedAction& original = add(root, "Photos", 3,
                                   {{"Shortcut", "p"},
                                    {"CreationDate", ago(kDay)},
                                    {"ExecCounter", 5},
                                    {"LastScheduleDate", ago(60)},
                                    {"OptionsX", 1}});
  EXPECT_EQ(root.createActionCopy(), nullptr);
  ProgrammedAction* copy = original.createActionCopy();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->getTitle(), "Photos copy");
  EXPECT_EQ(copy->getShortcut(), "");
  EXPECT_EQ(copy->getCreationDate(), now);
  EXPECT_EQ(copy->getExecutionCounter(), 0);
  EXPECT_FALSE(copy->getSettings().contains("LastScheduleDate"));
  EXPECT_EQ(copy->getSettings().integer("OptionsX"), 1);
  EXPECT_EQ(original.getExecutionCounter(), 5);
  EXPECT_EQ(outline(TreeHome(machine).tree.rootItem()), "Photos Photos copy");
}

TEST_F(ProgrammedActionTest, TriggerAndContextReachEveryActionOfAGroup) {
  ProgrammedAction& group = *root.addGroup("G", "", 0);
  ProgrammedAction& one = add(group, "one", 1, {{"AdminMode", 1}});
  add(*group.addGroup("H", "", 0), "two", 2, {{"Mode", 1}, {"AdminMode", 1}});
  EXPECT_EQ(group.triggerStatus(), 1);
  one.activateTrigger(true);
  EXPECT_EQ(group.triggerStatus(), 3);
  EXPECT_TRUE(one.schedule().automatic);
  group.activateTrigger(true);
  EXPECT_EQ(group.triggerStatus(), 2);
  EXPECT_EQ(root.numberOfAutoExecutedActions(), 2U);
  group.setActionContext(ActionContext::home);
  EXPECT_EQ(root.actionForReference(2)->getActionContext(), ActionContext::home);
  EXPECT_FALSE(group.getSettings().contains("TriggerContextPopup"));
  EXPECT_EQ(one.getExecuteWithAdminPrivileges(), 1);
  EXPECT_EQ(root.actionForReference(2)->getExecuteWithAdminPrivileges(), 0);
}

TEST_F(ProgrammedActionTest, DecodedScheduleFollowsTheRecord) {
  ProgrammedAction& action = add(root, "a", 1, {{"TriggerAutomatic", 1}});
  EXPECT_EQ(action.schedule().lastScheduleDate, std::nullopt);
  action.setLastScheduleDate();
  EXPECT_EQ(action.schedule().lastScheduleDate, now);
  action.setSetting("TriggerFrequencyPopup", 21);
  action.setSetting("TriggerScheduleMinutes", 30);
  EXPECT_EQ(action.schedule().kind, ScheduleKind::hourly);
  EXPECT_EQ(action.triggerSettings().idleMinutes, 30);

  const auto shown = [](const Schedule& of, const TriggerSettings& trigger) {
    ZAN_Value list = ZAN_Value::array();
    const auto date = [&](const std::optional<ReferenceTime>& one) {
      list.append(one.value_or(-1));
    };
    for (const ZAN_Value& one : std::initializer_list<ZAN_Value>{
             of.automatic, static_cast<int>(of.kind), static_cast<int>(of.hourDelay), of.minutes,
             of.hasAllowedHours, of.list.size(), trigger.title, trigger.shortcut, trigger.mode,
             static_cast<int>(trigger.context), trigger.idleMinutes, trigger.notExecuted,
             trigger.notExecutedDays, trigger.appQuitPath})
      list.append(one);
    date(of.time);
    date(of.allowedFrom);
    date(of.allowedTo);
    return list;
  };
  const ZAN_Value noon = ZAN_Value::date(43200);
  for (const auto& [key, value] : std::initializer_list<std::pair<std::string_view, ZAN_Value>>{
           {"TriggerHourDelay", 2},
           {"TriggerFrequencyPopup", 20},
           {"TriggerScheduleMinutes", 45},
           {"TriggerFrequencyPopup", 1},
           {"TriggerScheduleTime", noon},
           {"TriggerAllowedHours", 1},
           {"TriggerAllowedHoursFrom", noon},
           {"TriggerAllowedHoursTo", noon},
           {"TriggerScheduleList", archived(ZAN_Value::array({ZAN_Value::dictionary()}))},
           {"TriggerAutomatic", 0},
           {"Title", "other"},
           {ActionKey::shortcut, "x"},
           {"Mode", 3},
           {ActionKey::context, 2},
           {ActionKey::notExecuted, 1},
           {ActionKey::notExecutedDays, 9},
           {"TriggerAppQuitPath", "/a"}}) {
    const ZAN_Value before = shown(action.schedule(), action.triggerSettings());
    action.setSetting(key, value);
    const ZAN_Value after = shown(action.schedule(), action.triggerSettings());
    EXPECT_NE(after, before) << key;
    EXPECT_EQ(after, shown(Schedule(action.getSettings()), TriggerSettings(action.getSettings())))
        << key;
  }
}

TEST_F(ProgrammedActionTest, SortsByEachMode) {
  add(root, "b", 2,
      {{"Mode", 3},
       {"ExecCounter", 1},
       {"TriggerContextPopup", 3},
       {"CreationDate", ago(5)},
       {"LastScheduleDate", ago(50)},
       {"ManualSorting", 2}});
  add(root, "A", 4,
      {{"Mode", 1},
       {"ExecCounter", 9},
       {"CreationDate", ago(9)},
       {"TriggerAutomatic", 1},
       {"ManualSorting", 1}});
  add(root, "c", 3,
      {{"Mode", 2},
       {"ExecCounter", 1},
       {"CreationDate", ago(1)},
       {"LastScheduleDate", ago(900)},
       {"TriggerAutomatic", 1},
       {"TriggerFrequencyPopup", 21},
       {"ManualSorting", 3}});
  add(*root.addGroup("Z", "", 0), "in", 9, {{"LastScheduleDate", ago(10)}})
      .parent()
      ->setSetting("CreationDate", ago(7));
  root.addActionsFromList(ZAN_Value::array({ZAN_Value::dictionary({{"Ref", 1}, {"Mode", 7}})}),
                          false, now);
  const auto titles = [&](SortMode mode) { return displayed(mode); };
  EXPECT_EQ(titles(SortMode::type), "Z(in) A c b ?");
  EXPECT_EQ(titles(SortMode::title), "? A b c Z(in)");
  EXPECT_EQ(titles(SortMode::lastSchedule), "Z(in) b c ? A");
  EXPECT_EQ(titles(SortMode::nextSchedule), "c A ? b Z(in)");
  EXPECT_EQ(titles(SortMode::executions), "Z(in) A b c ?");
  EXPECT_EQ(titles(SortMode::context), "Z(in) b ? A c");
  EXPECT_EQ(titles(SortMode::creationDate), "A Z(in) b c ?");
  EXPECT_EQ(titles(SortMode::reference), "? b c A Z(in)") << "the group's reference is the clock's";
  EXPECT_EQ(titles(SortMode::manual), "? Z(in) A b c");
}

TEST_F(ProgrammedActionTest, TokensOfASearchTellFoldersPastAndTrigger) {
  const auto folder = [](std::string_view path) {
    return ZAN_Value::dictionary({{"VolumeFolderPath", path}, {"VolumeFolderPathLocalized", path}});
  };
  ProgrammedAction& group = *root.addGroup("G", "", 0);
  add(group, "Today", 1,
      {{"ItemsListOfSourcePath", ZAN_Value::array({folder("/home/a"), folder("/home/b")})},
       {"ItemsDestination", folder("/Volumes/Disk/x")},
       {"LastExecutionDate", ago(12 * 3600)},
       {"TriggerAutomatic", 1},
       {"TriggerFrequencyPopup", 10},
       {"Favorite", 1}});
  add(group, "Yesterday", 2,
      {{"ItemsSource", folder("/home/a")},
       {"LastExecutionDate", ago(12 * 3600 + 2 * kDay)},
       {"ProgrammedActionFiltersList", archived(ZAN_Value::array({"*.o"}))},
       {"ProgrammedActionLinksList",
        archived(ZAN_Value::array({ZAN_Value::dictionary({{"ProgrammedActionLinksType", 3}})}))}});
  add(root, "Long ago", 3,
      {{"LastExecutionDate", ago(12 * 3600 + 2 * kDay + 1)},
       {"ProgrammedActionFiltersList", ZAN_Value::data("damaged")},
       {"ItemsDestination", folder("/Volumes/Diskette")}});
  ProgrammedAction::SearchIndex index;
  root.getListOfReferencesInDictionary(index, calendar, now);
  EXPECT_THAT(index["/home/a"], ElementsAre(1, 2));
  EXPECT_THAT(index["/Volumes/Disk/x"], ElementsAre(1));
  EXPECT_THAT(index["::executedtoday"], ElementsAre(1));
  EXPECT_THAT(index["::executedsince3days"], ElementsAre(1, 2));
  EXPECT_THAT(index["::executedsince7days"], ElementsAre(1, 2, 3));
  EXPECT_THAT(index["::hasfilter"], ElementsAre(2));
  EXPECT_THAT(index["::executeanotheraction"], ElementsAre(2));
  EXPECT_THAT(index["::executedmounted"], ElementsAre(1));

  EXPECT_EQ(displayed(SortMode::title, {.search = "::hasfilter"}), "G(Yesterday)");
  EXPECT_EQ(displayed(SortMode::title, {.search = "YESTER"}), "G(Yesterday)");
  EXPECT_EQ(displayed(SortMode::title, {.search = "/home/B"}), "G(Today)");
  EXPECT_EQ(displayed(SortMode::title, {.usingVolume = "/Volumes/Disk"}), "G(Today)");
  EXPECT_EQ(displayed(SortMode::title, {.favorite = true}), "G(Today)");
  EXPECT_EQ(displayed(SortMode::title, {.references = std::set<std::int64_t>{2, 3}}),
            "G(Yesterday) Long ago");
  EXPECT_EQ(displayed(SortMode::title, {.type = 9}), "");
}

TEST_F(ProgrammedActionTest, ShutDownActionsAreThoseOfTheDay) {
  const auto entry = [](int occasion, std::string_view day) {
    return archived(ZAN_Value::array({ZAN_Value::dictionary(
        {{"TriggerScheduleMode", 1}, {"TriggerFrequencyPopup", occasion}, {day, 1}})}));
  };
  // Today is a Tuesday.
  add(root, "today", 1,
      {{"TriggerAutomatic", 1}, {"TriggerScheduleList", entry(21, "TriggerScheduleTuesday")}});
  add(root, "other day", 2,
      {{"TriggerAutomatic", 1}, {"TriggerScheduleList", entry(21, "TriggerScheduleFriday")}});
  add(root, "start-up", 3,
      {{"TriggerAutomatic", 1}, {"TriggerScheduleList", entry(20, "TriggerScheduleTuesday")}});
  add(root, "off", 4, {{"TriggerScheduleList", entry(21, "TriggerScheduleTuesday")}});
  const auto references = [](const ProgrammedAction::Nodes& list) {
    std::vector<std::int64_t> result;
    for (const auto* node : list) result.push_back(node->getReference());
    return result;
  };
  ProgrammedAction::Nodes all, today;
  root.getListOfShutDownActions(all);
  root.getListOfShutDownActions(today, &tools);
  EXPECT_THAT(references(all), UnorderedElementsAre(1, 2));
  EXPECT_THAT(references(today), UnorderedElementsAre(1));
}

TEST_F(ProgrammedActionTest, ListsAndCountsGoDepthFirst) {
  ProgrammedAction& group = *root.addGroup("G", "", 0);
  group.setSetting("Ref", 10);
  add(group, "b", 1,
      {{"ExecCounter", 2}, {"LastExecutionDate", ago(5)}, {"CreationDate", ago(90)}});
  add(root, "a", 2, {{"ExecCounter", 3}, {"LastExecutionDate", ago(9)}});
  add(root, "c", 10, {{"Mode", 4}});
  EXPECT_EQ(root.numberOfActions(), 3U);
  EXPECT_EQ(root.numberOfSubGroups(), 1U);
  EXPECT_EQ(root.totalNumberOfExecutions(), 5);
  EXPECT_EQ(root.getOldestCreationFromNow(), 90);
  EXPECT_EQ(root.actionForReference(10)->getTitle(), "c") << "a group is no action";
  EXPECT_EQ(root.actionOrGroupForReference(10)->getTitle(), "G");
  ProgrammedAction::Nodes sorted, byDate, ofType;
  root.getAllActionsInOneSortedList(sorted);
  root.getAllActionsSortedByExecutionDate(byDate);
  root.getListOfAllProgrammedActions(ofType, 4);
  const auto first = [](const ProgrammedAction::Nodes& list) { return list.at(0)->getTitle(); };
  EXPECT_EQ(first(sorted) + first(byDate) + first(ofType), "aac");
  std::string structure;
  root.getProgrammedActionsStructureIn(structure, 0);
  EXPECT_EQ(structure, "[ID:10] G [Group]\n\t[ID:1] b [2]\n[ID:2] a [2]\n[ID:10] c [4]\n");
}

}  // namespace
}  // namespace corvana
