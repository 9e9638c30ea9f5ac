#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionContext.h"
#include "actions/ActionsTools.h"
#include "actions/Schedule.h"

namespace corvana {

class ActionTree;
class ProgrammedAction;

/// How a list of actions is ordered. Values outside the names order as `manual`.
enum class SortMode : int {
  type = 0,
  title = 1,
  lastSchedule = 2,
  nextSchedule = 3,
  executions = 4,
  context = 5,
  creationDate = 6,
  reference = 7,
  titleOnly = 8,
  manual = 9,
};

/// A way to order and the moment for which next dates are computed.
struct ActionSort {
  SortMode mode;
  const ActionsTools& tools;
};

/// -1, 0 or 1 as `a` comes before `b`, beside it or after it. What is equal under the mode is
/// ordered by title, without regard to case, a missing title first. By type, executions and context
/// a group comes before actions; by dates it stands where its first displayed action would.
int existingActionsSort(const ProgrammedAction& a, const ProgrammedAction& b,
                        const ActionSort& sort);

/// By "Title" without regard to case, a missing one first; between two nodes and between two
/// records.
int sortProgrammedActionsByNameFunction(const ProgrammedAction& a, const ProgrammedAction& b);
int sortActionsByNameFunction(const ZAN_Value& a, const ZAN_Value& b);
/// By the date of the last execution of two records, the earlier first, one without a date last.
int sortActionsByExecutionDateFunction(const ZAN_Value& a, const ZAN_Value& b);

/// A node of the tree of programmed actions: an action with its settings record, or a group, which
/// owns its children in order. A group is what has a list of children, be it empty. The root is a
/// group without parent and record.
///
/// Nodes die when the tree releases its root: keep references (`getReference`), not nodes. Changes
/// made here stay in memory until the tree is saved, except those of the last section, which other
/// programs learn of at once. Thread: main.
class ProgrammedAction {
 public:
  using Children = std::vector<std::unique_ptr<ProgrammedAction>>;
  using Nodes = std::vector<ProgrammedAction*>;
  /// References of actions by search token.
  using SearchIndex = std::map<std::string, std::set<std::int64_t>, std::less<>>;
  /// How deep groups may lie in groups, and how many nodes a tree may have before the next group's
  /// stored list counts as one that cannot be read: lists may be shared within a file.
  static constexpr std::size_t kDeepest = 200;
  static constexpr std::size_t kMostNodes = 100000;

  /// A null record is none. The node does not appear among the parent's children by itself.
  ProgrammedAction(ActionTree& tree, ProgrammedAction* parent, ZAN_Value settings);
  ~ProgrammedAction();
  ProgrammedAction(const ProgrammedAction&) = delete;
  ProgrammedAction& operator=(const ProgrammedAction&) = delete;

  // Record.

  /// The settings record, a dictionary; null for the root.
  const ZAN_Value& getSettings() const { return mSettings; }
  /// Makes the dictionary the node's record. Without "Ref" it gets the next free one, without
  /// "CreationDate" now; "ActionExecutionData" is dropped.
  void changeSettings(ZAN_Value settings);
  /// Sets one value, or removes the key when the value is null, in memory alone.
  void setSetting(std::string_view key, ZAN_Value value);
  /// The record as the evaluation needs it, decoded when first asked for and kept until the record
  /// changes. Valid until then.
  const TriggerSettings& triggerSettings() const;
  const Schedule& schedule() const { return triggerSettings().schedule; }

  bool isGroup() const { return mChildren.has_value(); }
  std::int64_t actionType() const;  ///< "Mode"; 0 for a group
  /// "Ref"; 0 without a record.
  std::int64_t getReference() const { return mReference; }
  std::optional<ReferenceTime> getCreationDate() const;
  std::string getTitle() const;     ///< in one line; empty when missing
  std::string getShortcut() const;  ///< empty when missing
  std::int64_t getBackGroundColor() const;
  bool isFavorite() const;
  /// "AdminMode", but 0 for an action of type 1 whatever its record says.
  std::int64_t getExecuteWithAdminPrivileges() const;
  ActionContext getActionContext() const { return triggerSettings().context; }

  // Place in the tree.

  ProgrammedAction* parent() { return mParent; }  ///< null for the root
  const ProgrammedAction* parent() const { return mParent; }
  void setParent(ProgrammedAction* parent) { mParent = parent; }
  std::size_t numberOfChildren() const { return mChildren ? mChildren->size() : 0; }
  /// `index` below numberOfChildren, or std::out_of_range.
  ProgrammedAction& childAtIndex(std::size_t index);
  const ProgrammedAction& childAtIndex(std::size_t index) const;
  std::optional<std::size_t> indexOfChild(const ProgrammedAction& child) const;
  const Children& getChildrenList() const;  ///< empty for an action
  std::vector<const ProgrammedAction*> getChildrenListSorted(const ActionSort& sort) const;
  bool isDescendantOfNode(const ProgrammedAction& node) const;  ///< not of itself
  bool isDescendantOfNodeInArray(const std::vector<const ProgrammedAction*>& nodes) const;

  /// Makes the receiver a group and appends a node for each record, which carries its own children
  /// archived under "List". `createDuplicate` gives every record a fresh reference; a date becomes
  /// their creation date. A "List" that cannot be read costs that group's children only, is logged,
  /// and is saved again as it was as long as the group stays empty.
  void addActionsFromList(const ZAN_Value& list, bool createDuplicate,
                          std::optional<ReferenceTime> resetCreationDate);
  /// Appends an empty group; null without a title or when the receiver is not a group.
  ProgrammedAction* addGroup(std::string_view title, std::string_view withShortcut,
                             std::int64_t withColor);
  /// Appends; makes the receiver a group. Gives the child in its place.
  ProgrammedAction& addChild(std::unique_ptr<ProgrammedAction> child);
  /// At the end when the index passes it.
  ProgrammedAction& insertChild(std::unique_ptr<ProgrammedAction> child, std::size_t atIndex);
  /// Takes the child out; null when it is none of the receiver's.
  std::unique_ptr<ProgrammedAction> removeChild(const ProgrammedAction& child);
  /// Takes the receiver out of its parent; null when it has none.
  std::unique_ptr<ProgrammedAction> removeFromList();
  /// Into the target, a group, or the group that holds it, at an index as counted before the move.
  /// Nothing happens when the target is the receiver or lies in it.
  void moveActionTo(ProgrammedAction& target, std::size_t atIndex, SortMode sortMode);
  /// "ManualSorting" 0, 1, 2… for the children in their present order.
  void setManualSortingIndexes();
  /// Appends a copy with a new reference and without past to the same group and saves the tree;
  /// null for a node without record or parent. A failed save is logged, the copy stays.
  ProgrammedAction* createActionCopy();
  /// Of several nodes with the reference the second in depth-first order gets a new one; whether
  /// there was one.
  bool changeReference(std::int64_t reference);
  /// A reference above the clock's seconds and above every reference in the subtree.
  std::int64_t getNextFreeReference() const;

  // Searches. Depth-first, children in order.

  /// An action, never a group; null when there is none.
  ProgrammedAction* actionForReference(std::int64_t reference);
  const ProgrammedAction* actionForReference(std::int64_t reference) const;
  ProgrammedAction* actionOrGroupForReference(std::int64_t reference);
  const ProgrammedAction* actionOrGroupForReference(std::int64_t reference) const;
  std::size_t numberOfActions() const;
  std::size_t numberOfSubGroups() const;
  std::size_t numberOfAutoExecutedActions() const;
  /// Of an action its executions, of a group the sum of its children's.
  std::int64_t getExecutionCounter() const;
  std::int64_t totalNumberOfExecutions() const;
  /// Seconds since the oldest creation date in the subtree; 0 without any.
  double getOldestCreationFromNow() const;
  void getListOfAllProgrammedActions(Nodes& list);
  void getListOfAllProgrammedActions(Nodes& list, std::int64_t ofType);
  void getListOfFavoriteActions(Nodes& list);
  void getAllActionsInOneList(Nodes& list, bool withGroups);
  void getAllActionsInOneSortedList(Nodes& list);        ///< by title
  void getAllActionsSortedByExecutionDate(Nodes& list);  ///< earliest first, undated last
  /// Actions that start by themselves and have a shut-down occasion in their schedule list; with
  /// `today`, one that chooses its day.
  void getListOfShutDownActions(Nodes& list, const ActionsTools* today = nullptr);
  /// The actions with a source or a destination on the start-up disk that carries another size or
  /// creation date than `folder`, the description of "/"; what is not known is no difference.
  /// Without `liesOnStartupDisk` every path counts as lying there.
  Nodes actionsNeedingUpdateForStartupDisk(
      const FolderDescription& folder, const ActionSort& sort,
      const std::function<bool(const std::string& path)>& liesOnStartupDisk = {});
  /// The children in storage form: an array of records, a group's with its own under "List".
  ZAN_Value getListOfActionsSettings() const;
  /// Appends one line per node below the receiver, "[ID:%d] %@ [%@]\n" (reference, title, type),
  /// indented by a tab per level.
  void getProgrammedActionsStructureIn(std::string& text, int level) const;
  /// Whether a source or the destination lies on the volume mounted there; for a group, of any
  /// action in it.
  bool useVolume(std::string_view mountPath) const;
  /// Adds the references of the actions below to the tokens they answer to: localized folder paths,
  /// "::executedtoday", "::executedsince3days", "::executedsince7days", "::hasfilter",
  /// "::haslinkedoperation", "::executeanotheraction", "::executedmounted".
  void getListOfReferencesInDictionary(SearchIndex& index, const ZAN_DateUtils& calendar,
                                       ReferenceTime now) const;

  // Trigger and context.

  /// Of an action "TriggerAutomatic"; of a group, that of all actions in it.
  void activateTrigger(bool flag);
  /// 1 off, 2 on, 3 mixed, 0 for an empty group.
  int triggerStatus() const;
  void setActionContext(ActionContext context);  ///< of an action, or of all in a group

  // Display list: the children that pass a filter, sorted.

  struct DisplayFilter {
    bool favorite = false;
    std::string search = {};                ///< empty: any; see `matchesSearch`
    std::optional<std::int64_t> type = {};  ///< nothing: any
    std::string usingVolume = {};           ///< mount path; empty: any
    std::optional<std::set<std::int64_t>> references = {};
  };
  /// Builds the lists of the receiver and of all groups in it. A group is displayed when something
  /// in it is.
  void updateListOfDisplayedActions(const DisplayFilter& filter, const ActionSort& sort);
  /// Whether the text, without regard to case, is part of the title, the shortcut or a source's or
  /// destination's path; a text that begins with "::" must be one of the action's search tokens.
  bool matchesSearch(std::string_view text, const ActionsTools& tools) const;
  std::size_t numberOfChildrenToDisplay() const { return mChildrenToDisplay.size(); }
  std::size_t numberOfActionsToDisplay() const;
  ProgrammedAction& childToDisplayAtIndex(std::size_t index);
  const Nodes& getChildrenToDisplayList() const { return mChildrenToDisplay; }
  bool isExpandable() const;  ///< a group with something to display
  /// The first action depth-first in the display lists; an action is its own.
  const ProgrammedAction* getFirstActionToDisplay() const;

  // What an execution leaves behind: set in the record and noted in the list of changes, so that a
  // program that edits the tree meanwhile loses nothing. A change that cannot be written is logged,
  // kept and written with the next one; a null value changes nothing.

  void incrementExecutionCounter();   ///< of an action
  void setLastExecutionDate();        ///< now
  void setLastBackupExecutionDate();  ///< "LastBackupDateForFilter" = "LastExecutionDate"
  void setLastScheduleDate();         ///< now
  void setLastScheduleDate(ReferenceTime date);
  void setNextCurrentVolume(std::int64_t volume);
  void setTotalFiles(std::int64_t files, std::uint64_t andSize);
  void addInChangesList(ZAN_Value value, std::string_view forKey);

 private:
  friend class ActionTree;

  void takeRecord(ZAN_Value settings);
  void setReference(std::int64_t reference);
  void fill(const ZAN_Value& list, bool createDuplicate,
            std::optional<ReferenceTime> resetCreationDate, std::size_t depth);
  void readListOfGroup(const ZAN_Value& archive, bool createDuplicate,
                       std::optional<ReferenceTime> resetCreationDate, std::size_t depth);
  /// Calls `visit(action)` for every action below, depth-first.
  template <class Visit>
  void forEachAction(const Visit& visit);
  template <class Visit>
  void forEachAction(const Visit& visit) const;
  std::vector<std::string> searchTokens(const ZAN_DateUtils& calendar, ReferenceTime now) const;
  bool passes(const DisplayFilter& filter, const ActionsTools& tools) const;

  ActionTree& mTree;
  ProgrammedAction* mParent;
  std::optional<Children> mChildren;
  Nodes mChildrenToDisplay;
  ZAN_Value mSettings;
  ZAN_Value mUnreadList;        ///< a stored "List" that could not be read, else null
  std::int64_t mReference = 0;  ///< "Ref" of the record
  mutable std::unique_ptr<TriggerSettings> mTrigger;
};

}  // namespace corvana
