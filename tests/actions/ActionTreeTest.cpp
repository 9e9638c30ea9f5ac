#include <gmock/gmock.h>

#include <random>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "tests/actions/TreeHome.h"

namespace corvana {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class ActionTreeTest : public testing::Test {
 protected:
  /// What any program finds on disk.
  ProgrammedAction& stored() {
    mReader = std::make_unique<TreeHome>(machine);
    return mReader->tree.rootItem();
  }
  void storeTree(std::vector<ZAN_Value> records) {
    ASSERT_TRUE(home.store.tree().saveActionsTree(ZAN_Value::array(std::move(records))));
  }
  std::string treePath() { return home.store.folder().pathOf(DataFolder::kActions); }

  SimulatedPlatform machine;
  TreeHome home{machine};
  ActionTree& tree = home.tree;

 private:
  std::unique_ptr<TreeHome> mReader;
};

TEST_F(ActionTreeTest, GroupsAndUnknownValuesSurviveStorage) {
  ProgrammedAction& root = tree.rootItem();
  EXPECT_EQ(root.addGroup("", "", 0), nullptr);
  ProgrammedAction* outer = root.addGroup("Outer", "o", 3);
  outer->addGroup("Empty", "", 0);
  ProgrammedAction* inner = outer->addGroup("Inner", "", 0);
  ZAN_Value record = actionRecord("Deep", 7);
  record.setValue("OptionsSomething", ZAN_Value::array({1, "x"}));
  record.setValue("ActionExecutionData", "gone");
  inner->addActionsFromList(ZAN_Value::array({record}), false, std::nullopt);
  ASSERT_TRUE(tree.saveActionsTree());

  ProgrammedAction& read = stored();
  EXPECT_EQ(outline(read), "Outer(Empty() Inner(Deep))");
  const ProgrammedAction* empty = read.childAtIndex(0).getChildrenList()[0].get();
  EXPECT_TRUE(empty->isGroup());
  EXPECT_EQ(empty->triggerStatus(), 0);
  EXPECT_EQ(empty->actionType(), 0);
  EXPECT_EQ(read.childAtIndex(0).getBackGroundColor(), 3);
  const ProgrammedAction* deep = read.actionForReference(7);
  ASSERT_NE(deep, nullptr);
  EXPECT_EQ(deep->getSettings()["OptionsSomething"], ZAN_Value::array({1, "x"}));
  EXPECT_FALSE(deep->getSettings().contains("ActionExecutionData"));
  EXPECT_EQ(deep->getCreationDate(), machine.clock.now());
  EXPECT_FALSE(read.childAtIndex(0).getSettings().contains("List"));
}

TEST_F(ActionTreeTest, DamagedGroupLosesItsChildrenInMemoryOnly) {
  const ZAN_Value damage = ZAN_Value::data("no archive");
  storeTree({ZAN_Value::dictionary({{"Title", "Broken"}, {"Ref", 1}, {"List", damage}}),
             actionRecord("Sound", 2)});
  EXPECT_EQ(outline(tree.rootItem()), "Broken() Sound");
  EXPECT_THAT(machine.systemLog.lines,
              Contains(HasSubstr("Exception reading archive in addActionsFromList: Broken: ")));
  tree.rootItem().actionForReference(2)->setSetting("Title", "Changed");
  ASSERT_TRUE(tree.saveActionsTree());
  EXPECT_EQ(TreeHome(machine).store.tree().readActionsList().at(0)["List"], damage);
}

TEST_F(ActionTreeTest, EndlesslyNestedGroupsAreCutOff) {
  ZAN_Value list = ZAN_Value::array();
  for (int level = 0; level < 400; ++level) {
    list = ZAN_Value::array({ZAN_Value::dictionary(
        {{"Ref", level + 1},
         {"List", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(list))}})});
  }
  storeTree({list.at(0)});
  EXPECT_GT(tree.rootItem().numberOfSubGroups(), 100U);
  EXPECT_THAT(machine.systemLog.lines, Contains(HasSubstr("too deep")));
}

TEST_F(ActionTreeTest, GroupsThatShareOneListDoNotMultiplyWithoutEnd) {
  ZAN_Value list = ZAN_Value::array({actionRecord("Deep", 1)});
  for (int level = 0; level < 30; ++level) {
    const ZAN_Value shared = ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(list));
    list = ZAN_Value::array();
    for (int i = 0; i < 2; ++i) {
      list.append(ZAN_Value::dictionary({{"Ref", 2 * level + i + 2}, {"List", shared}}));
    }
  }
  storeTree({list.at(0), list.at(1)});
  EXPECT_LT(tree.rootItem().numberOfSubGroups(), 2 * ProgrammedAction::kMostNodes);
}

// The rule as it is told: slow, node by node.
std::int64_t freeReferenceByTheRule(const ProgrammedAction& node, std::int64_t now) {
  std::int64_t result = node.getReference() < now ? now : node.getReference() + 1;
  for (const auto& child : node.getChildrenList()) {
    const std::int64_t ofChild = freeReferenceByTheRule(*child, now);
    if (ofChild >= result) result = ofChild + 1;
  }
  return result;
}

TEST_F(ActionTreeTest, FreeReferencesFollowTheRuleThroughEveryEdit) {
  ProgrammedAction& root = tree.rootItem();
  const auto now = [&] { return static_cast<std::int64_t>(machine.clock.now()); };
  EXPECT_EQ(tree.getNextFreeReference(), now());
  std::mt19937 random(20240102);
  for (int step = 0; step < 400; ++step) {
    ProgrammedAction::Nodes nodes;
    root.getAllActionsInOneList(nodes, true);
    nodes.push_back(&root);
    ProgrammedAction& node = *nodes[random() % nodes.size()];
    ProgrammedAction& group = node.isGroup() ? node : *node.parent();
    switch (random() % 6) {
      case 0:
        group.addGroup("g", "", 0);
        break;
      case 1:
        group.addActionsFromList(ZAN_Value::array({ZAN_Value::dictionary({{"Title", "fresh"}})}),
                                 false, std::nullopt);
        break;
      case 2:
        group.addActionsFromList(
            ZAN_Value::array({actionRecord("a", static_cast<int>(now() + random() % 1000))}), false,
            std::nullopt);
        break;
      case 3:
        node.moveActionTo(*nodes[random() % nodes.size()], random() % 5, SortMode::title);
        break;
      case 4:
        if (random() % 2 == 0) node.removeFromList();
        break;
      default:
        machine.clock.setNow(machine.clock.now() + static_cast<double>(random() % 50));
    }
    ASSERT_EQ(tree.getNextFreeReference(), freeReferenceByTheRule(root, now())) << step;
  }
}

TEST_F(ActionTreeTest, FirstOfEqualReferencesKeepsIt) {
  ZAN_Value nested = ZAN_Value::array({actionRecord("Nested", 5)});
  storeTree({ZAN_Value::dictionary(
                 {{"Title", "Group"},
                  {"Ref", 9},
                  {"List", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(nested))}}),
             actionRecord("Second", 5), actionRecord("Third", 5), actionRecord("Other", 9)});
  tree.rootItem();
  tree.repairReferencesIfDuplicates();
  tree.repairReferencesIfDuplicates();
  ProgrammedAction& read = stored();
  EXPECT_EQ(read.actionForReference(5)->getTitle(), "Nested");
  EXPECT_EQ(read.actionOrGroupForReference(9)->getTitle(), "Group");
  std::set<std::int64_t> references;
  for (std::size_t i = 1; i < 4; ++i) references.insert(read.childAtIndex(i).getReference());
  EXPECT_EQ(references.size(), 3U);
  EXPECT_GE(*references.begin(), static_cast<std::int64_t>(machine.clock.now()));
  EXPECT_THAT(machine.systemLog.lines,
              ElementsAre("Structure of Programmed Actions repaired (references)"));
}

TEST_F(ActionTreeTest, ChangesWaitInTheirListUntilTheyAreMerged) {
  storeTree({actionRecord("A", 1), actionRecord("B", 2)});
  ProgrammedAction& action = *tree.rootItem().actionForReference(1);
  action.incrementExecutionCounter();
  action.incrementExecutionCounter();
  action.setLastScheduleDate();
  action.setLastBackupExecutionDate();
  EXPECT_EQ(home.store.tree().readChangesList().size(), 3U) << "there was no date to copy";
  EXPECT_FALSE(TreeHome(machine).store.tree().readActionsList().at(0).contains("ExecCounter"));
  EXPECT_EQ(stored().actionForReference(1)->getExecutionCounter(), 2);

  storeTree({actionRecord("B", 2), actionRecord("A renamed", 1)});
  ASSERT_TRUE(tree.updateActionsWithChanges(true));
  ProgrammedAction& merged = stored();
  EXPECT_EQ(outline(merged), "B A renamed") << "the other program's edit stays";
  EXPECT_EQ(merged.actionForReference(1)->getSettings().integer("ExecCounter"), 2);
  EXPECT_EQ(merged.actionForReference(1)->getSettings()["LastScheduleDate"].asDate(),
            machine.clock.now());
  EXPECT_TRUE(TreeHome(machine).store.tree().readChangesList().empty());
}

TEST_F(ActionTreeTest, TreeThatCannotBeReadIsNotWrittenOver) {
  storeTree({actionRecord("A", 1)});
  tree.rootItem().actionForReference(1)->setLastExecutionDate();
  machine.folder.write(treePath().substr(machine.folder.path().size() + 1), "damaged");
  EXPECT_FALSE(tree.updateActionsWithChanges(true));
  EXPECT_FALSE(tree.updateActionsWithChanges(true));
  EXPECT_FALSE(tree.saveActionsTree());
  EXPECT_EQ(tree.rootItem().numberOfChildren(), 0U);
  EXPECT_EQ(ZAN_FilesUtils::readFile(treePath())->bytes, "damaged");
  EXPECT_THAT(machine.systemLog.lines, Contains(HasSubstr("changes not merged")).Times(1));

  // Another program puts it right: nothing is lost.
  storeTree({actionRecord("A", 1)});
  EXPECT_EQ(outline(tree.rootItem()), "A");
  ASSERT_TRUE(tree.updateActionsWithChanges(true));
  EXPECT_TRUE(stored().actionForReference(1)->getSettings().contains("LastExecutionDate"));
}

TEST_F(ActionTreeTest, ChangesThatCannotBeWrittenAreKeptAndWrittenWithTheNext) {
  bool isFull = false;
  TreeHome full(machine,
                [&](ZAN_FileWriter::Step, const std::string&) { return isFull ? ENOSPC : 0; });
  storeTree({actionRecord("A", 1)});
  isFull = true;
  full.tree.rootItem().actionForReference(1)->setLastScheduleDate();
  full.tree.releaseRootItem();
  EXPECT_TRUE(
      full.tree.rootItem().actionForReference(1)->getSettings().contains("LastScheduleDate"))
      << "an action that just ran would be due again";
  EXPECT_FALSE(full.tree.updateActionsWithChanges(true));
  isFull = false;
  full.tree.rootItem().actionForReference(1)->setNextCurrentVolume(4);
  EXPECT_EQ(stored().actionForReference(1)->getSettings()["LastScheduleDate"].asDate(),
            machine.clock.now());
  EXPECT_EQ(stored().actionForReference(1)->getSettings().integer(
                "OptionsContinueOnNextDiskCurrentVolume"),
            4);
}

TEST_F(ActionTreeTest, ReleasedTreeIsReadAgainOnlyWhenItWouldDiffer) {
  storeTree({actionRecord("A", 1)});
  const ProgrammedAction* node = tree.rootItem().actionForReference(1);
  const_cast<ProgrammedAction*>(node)->incrementExecutionCounter();
  tree.releaseRootItem();
  EXPECT_EQ(tree.rootItem().actionForReference(1), node);

  tree.rootItem().actionForReference(1)->activateTrigger(true);
  tree.releaseRootItem();
  EXPECT_EQ(tree.rootItem().numberOfAutoExecutedActions(), 0U) << "it was not saved";

  TreeHome other(machine);
  other.tree.rootItem().actionForReference(1)->setTotalFiles(12, 1ULL << 40);
  tree.releaseRootItem();
  EXPECT_EQ(tree.rootItem().actionForReference(1)->getSettings().integer("ExecutionPrecountSize"),
            std::int64_t{1} << 40);

  ASSERT_TRUE(other.tree.editStoredTree([](ProgrammedAction& root) -> Outcome {
    root.addGroup("New", "", 0);
    return {};
  }));
  tree.releaseRootItem();
  EXPECT_EQ(outline(tree.rootItem()), "A New()");
}

TEST_F(ActionTreeTest, EditWinsOverPendingChangesAndFailedOneLeavesNothingBehind) {
  storeTree({actionRecord("A", 1)});
  tree.rootItem().actionForReference(1)->setNextCurrentVolume(3);
  tree.rootItem().actionForReference(1)->setLastExecutionDate();
  ASSERT_TRUE(TreeHome(machine).tree.editStoredTree([](ProgrammedAction& root) -> Outcome {
    root.actionForReference(1)->setSetting("OptionsContinueOnNextDiskCurrentVolume", 1);
    return {};
  }));
  const ZAN_Value record = stored().actionForReference(1)->getSettings();
  EXPECT_EQ(record.integer("OptionsContinueOnNextDiskCurrentVolume"), 1);
  EXPECT_TRUE(record.contains("LastExecutionDate"));

  tree.rootItem().actionForReference(1)->incrementExecutionCounter();
  EXPECT_FALSE(tree.editStoredTree([](ProgrammedAction& root) -> Outcome {
    root.addGroup("New", "", 0);
    return Error{ErrorKind::refused, "no"};
  }));
  ASSERT_TRUE(tree.updateActionsWithChanges(true)) << "what is merged is not the failed edit";
  EXPECT_EQ(outline(tree.rootItem()), "A");
  EXPECT_EQ(outline(stored()), "A");
}

}  // namespace
}  // namespace corvana
