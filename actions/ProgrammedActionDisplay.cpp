#include <algorithm>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ProgrammedAction.h"

// The display lists: which children of each group are shown, and in which order.

namespace corvana {

namespace {

template <class T>
int compared(const T& a, const T& b) {
  return a < b ? -1 : (b < a ? 1 : 0);
}

/// Without a date last.
int comparedDates(std::optional<ReferenceTime> a, std::optional<ReferenceTime> b) {
  if (a && b) return compared(*a, *b);
  return compared(!a.has_value(), !b.has_value());
}

int comparedIntegers(const ProgrammedAction& a, const ProgrammedAction& b, std::string_view key) {
  return compared(a.getSettings().integer(key), b.getSettings().integer(key));
}

/// A group comes before an action; two groups are left to the order by title.
int groupsFirst(const ProgrammedAction& a, const ProgrammedAction& b) {
  return compared(!a.isGroup(), !b.isGroup());
}

std::optional<ReferenceTime> lastDate(const ProgrammedAction& node, const ActionsTools& tools) {
  const ProgrammedAction* action = node.getFirstActionToDisplay();
  return action != nullptr ? tools.getLastScheduleDateForSettings(action->schedule(), true)
                           : std::nullopt;
}

int comparedNextDates(const ProgrammedAction& a, const ProgrammedAction& b,
                      const ActionsTools& tools) {
  static const Schedule kNone;
  const auto scheduleOf = [](const ProgrammedAction& node) -> const Schedule& {
    const ProgrammedAction* action = node.getFirstActionToDisplay();
    return action != nullptr ? action->schedule() : kNone;
  };
  const Schedule& ofA = scheduleOf(a);
  const Schedule& ofB = scheduleOf(b);
  const auto dateA = tools.getNextScheduleDateForSettings(ofA, false);
  const auto dateB = tools.getNextScheduleDateForSettings(ofB, false);
  if (dateA || dateB) return comparedDates(dateA, dateB);
  if (ofA.automatic != ofB.automatic) return ofA.automatic ? -1 : 1;
  return compared(ofA.kind, ofB.kind);
}

int comparedByMode(const ProgrammedAction& a, const ProgrammedAction& b, const ActionSort& sort) {
  const bool hasGroup = a.isGroup() || b.isGroup();
  switch (sort.mode) {
    case SortMode::type:
      return hasGroup ? groupsFirst(a, b) : comparedIntegers(a, b, "Mode");
    case SortMode::title:
    case SortMode::titleOnly:
      return 0;
    case SortMode::lastSchedule: {
      const auto dateA = lastDate(a, sort.tools);
      const auto dateB = lastDate(b, sort.tools);
      return dateA && dateB ? compared(*dateB, *dateA) : comparedDates(dateA, dateB);
    }
    case SortMode::nextSchedule:
      return comparedNextDates(a, b, sort.tools);
    case SortMode::executions:
      return hasGroup ? groupsFirst(a, b) : comparedIntegers(b, a, "ExecCounter");
    case SortMode::context:
      return hasGroup ? groupsFirst(a, b) : comparedIntegers(b, a, ActionKey::context);
    case SortMode::creationDate:
      return comparedDates(a.getCreationDate(), b.getCreationDate());
    case SortMode::reference:
      return compared(a.getReference(), b.getReference());
    case SortMode::manual:
      break;
  }
  return comparedIntegers(a, b, "ManualSorting");
}

}  // namespace

int existingActionsSort(const ProgrammedAction& a, const ProgrammedAction& b,
                        const ActionSort& sort) {
  const int order = comparedByMode(a, b, sort);
  return order != 0 ? order : sortProgrammedActionsByNameFunction(a, b);
}

int sortProgrammedActionsByNameFunction(const ProgrammedAction& a, const ProgrammedAction& b) {
  return sortActionsByNameFunction(a.getSettings(), b.getSettings());
}

int sortActionsByNameFunction(const ZAN_Value& a, const ZAN_Value& b) {
  const ZAN_Value& titleA = a["Title"];
  const ZAN_Value& titleB = b["Title"];
  if (!titleA.isString() || !titleB.isString()) {
    return compared(titleA.isString(), titleB.isString());
  }
  return compared(foldedCase(titleA.stringView()), foldedCase(titleB.stringView()));
}

int sortActionsByExecutionDateFunction(const ZAN_Value& a, const ZAN_Value& b) {
  return comparedDates(ActionsTools::getLastExecutionDateForSettings(a),
                       ActionsTools::getLastExecutionDateForSettings(b));
}

void ProgrammedAction::updateListOfDisplayedActions(const DisplayFilter& filter,
                                                    const ActionSort& sort) {
  mChildrenToDisplay.clear();
  for (const auto& child : getChildrenList()) {
    if (child->isGroup()) {
      child->updateListOfDisplayedActions(filter, sort);
      if (child->isExpandable()) mChildrenToDisplay.push_back(child.get());
    } else if (child->passes(filter, sort.tools)) {
      mChildrenToDisplay.push_back(child.get());
    }
  }
  std::stable_sort(
      mChildrenToDisplay.begin(), mChildrenToDisplay.end(),
      [&](const auto* a, const auto* b) { return existingActionsSort(*a, *b, sort) < 0; });
}

bool ProgrammedAction::passes(const DisplayFilter& filter, const ActionsTools& tools) const {
  return (!filter.favorite || isFavorite()) && (!filter.type || *filter.type == actionType()) &&
         (!filter.references || filter.references->contains(mReference)) &&
         (filter.usingVolume.empty() || useVolume(filter.usingVolume)) &&
         (filter.search.empty() || matchesSearch(filter.search, tools));
}

bool ProgrammedAction::matchesSearch(std::string_view text, const ActionsTools& tools) const {
  const std::string wanted = foldedCase(text);
  const auto contains = [&](std::string_view where) {
    return foldedCase(where).find(wanted) != std::string::npos;
  };
  const auto tokens = searchTokens(tools.calendar(), tools.now());
  if (wanted.starts_with("::")) {
    return std::find(tokens.begin(), tokens.end(), wanted) != tokens.end();
  }
  return contains(getTitle()) || contains(getShortcut()) ||
         std::any_of(tokens.begin(), tokens.end(), [&](const std::string& token) {
           return !token.starts_with("::") && contains(token);
         });
}

std::size_t ProgrammedAction::numberOfActionsToDisplay() const {
  std::size_t count = 0;
  for (const ProgrammedAction* child : mChildrenToDisplay) {
    count += child->isGroup() ? child->numberOfActionsToDisplay() : 1;
  }
  return count;
}

ProgrammedAction& ProgrammedAction::childToDisplayAtIndex(std::size_t index) {
  return *mChildrenToDisplay.at(index);
}

bool ProgrammedAction::isExpandable() const { return isGroup() && !mChildrenToDisplay.empty(); }

const ProgrammedAction* ProgrammedAction::getFirstActionToDisplay() const {
  if (!isGroup()) return this;
  for (const ProgrammedAction* child : mChildrenToDisplay) {
    if (const auto* first = child->getFirstActionToDisplay()) return first;
  }
  return nullptr;
}

}  // namespace corvana
