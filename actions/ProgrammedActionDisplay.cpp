// The display lists: which children of each group are shown, and in which order.

#include <algorithm>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ProgrammedAction.h"

namespace corvana {

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
