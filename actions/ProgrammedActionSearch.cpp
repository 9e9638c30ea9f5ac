// Searches over a subtree: by reference, lists of actions, counts, search tokens.

#include <algorithm>
#include <array>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionTree.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr std::int64_t kExecuteAnotherAction = 3;

/// The elements of an array that the record keeps archived; empty when there are none.
ZAN_Value archivedArray(const ZAN_Value& settings, std::string_view key) {
  const ZAN_Value& archive = settings[key];
  if (!archive.isData()) return {};
  auto array = ZAN_Unarchiver::unarchiveObjectWithData(archive.bytes());
  return array && array->isArray() ? *std::move(array) : ZAN_Value();
}

}  // namespace

template <class Visit>
void ProgrammedAction::forEachAction(const Visit& visit) {
  for (const auto& child : getChildrenList()) {
    if (child->isGroup()) {
      child->forEachAction(visit);
    } else {
      visit(*child);
    }
  }
}

template <class Visit>
void ProgrammedAction::forEachAction(const Visit& visit) const {
  const_cast<ProgrammedAction*>(this)->forEachAction(
      [&](const ProgrammedAction& action) { visit(action); });
}

const ProgrammedAction* ProgrammedAction::actionForReference(std::int64_t reference) const {
  for (const auto& child : getChildrenList()) {
    if (child->isGroup()) {
      if (const auto* found = child->actionForReference(reference)) return found;
    } else if (child->mReference == reference) {
      return child.get();
    }
  }
  return nullptr;
}

ProgrammedAction* ProgrammedAction::actionForReference(std::int64_t reference) {
  return const_cast<ProgrammedAction*>(std::as_const(*this).actionForReference(reference));
}

const ProgrammedAction* ProgrammedAction::actionOrGroupForReference(std::int64_t reference) const {
  for (const auto& child : getChildrenList()) {
    if (child->mReference == reference) return child.get();
    if (const auto* found = child->actionOrGroupForReference(reference)) return found;
  }
  return nullptr;
}

ProgrammedAction* ProgrammedAction::actionOrGroupForReference(std::int64_t reference) {
  return const_cast<ProgrammedAction*>(std::as_const(*this).actionOrGroupForReference(reference));
}

std::size_t ProgrammedAction::numberOfActions() const {
  std::size_t count = 0;
  forEachAction([&](const ProgrammedAction&) { ++count; });
  return count;
}

std::size_t ProgrammedAction::numberOfSubGroups() const {
  std::size_t count = 0;
  for (const auto& child : getChildrenList()) {
    if (child->isGroup()) count += 1 + child->numberOfSubGroups();
  }
  return count;
}

std::size_t ProgrammedAction::numberOfAutoExecutedActions() const {
  std::size_t count = 0;
  forEachAction([&](const ProgrammedAction& action) {
    if (action.mSettings.integer("TriggerAutomatic") != 0) ++count;
  });
  return count;
}

std::int64_t ProgrammedAction::getExecutionCounter() const {
  return isGroup() ? totalNumberOfExecutions()
                   : ActionsTools::getExecutionsCountForSettings(mSettings);
}

std::int64_t ProgrammedAction::totalNumberOfExecutions() const {
  std::int64_t count = 0;
  for (const auto& child : getChildrenList()) count += child->getExecutionCounter();
  return count;
}

double ProgrammedAction::getOldestCreationFromNow() const {
  std::optional<ReferenceTime> oldest;
  const auto look = [&](const auto& self, const ProgrammedAction& node) -> void {
    const auto date = node.getCreationDate();
    if (date && (!oldest || *date < *oldest)) oldest = date;
    for (const auto& child : node.getChildrenList()) self(self, *child);
  };
  look(look, *this);
  return oldest ? mTree.clock().now() - *oldest : 0;
}

void ProgrammedAction::getListOfAllProgrammedActions(Nodes& list) {
  forEachAction([&](ProgrammedAction& action) { list.push_back(&action); });
}

void ProgrammedAction::getListOfAllProgrammedActions(Nodes& list, std::int64_t ofType) {
  forEachAction([&](ProgrammedAction& action) {
    if (action.actionType() == ofType) list.push_back(&action);
  });
}

void ProgrammedAction::getListOfFavoriteActions(Nodes& list) {
  forEachAction([&](ProgrammedAction& action) {
    if (action.isFavorite()) list.push_back(&action);
  });
}

void ProgrammedAction::getAllActionsInOneList(Nodes& list, bool withGroups) {
  for (const auto& child : getChildrenList()) {
    if (!child->isGroup() || withGroups) list.push_back(child.get());
    if (child->isGroup()) child->getAllActionsInOneList(list, withGroups);
  }
}

void ProgrammedAction::getAllActionsInOneSortedList(Nodes& list) {
  getListOfAllProgrammedActions(list);
  std::stable_sort(list.begin(), list.end(), [](const auto* a, const auto* b) {
    return sortProgrammedActionsByNameFunction(*a, *b) < 0;
  });
}

void ProgrammedAction::getAllActionsSortedByExecutionDate(Nodes& list) {
  getListOfAllProgrammedActions(list);
  std::stable_sort(list.begin(), list.end(), [](const auto* a, const auto* b) {
    return sortActionsByExecutionDateFunction(a->mSettings, b->mSettings) < 0;
  });
}

void ProgrammedAction::getListOfShutDownActions(Nodes& list, const ActionsTools* today) {
  const auto isWanted = [&](const ScheduleEntry& entry) {
    if (entry.occasion != ScheduleEntry::Occasion::shutDown) return false;
    if (today == nullptr) return true;
    const ReferenceTime start = today->calendar().todayAt0h00(today->now());
    ScheduleEntry onDay = entry;
    onDay.time = start;
    const auto next = today->getNextScheduleForDict(onDay, start, std::nullopt).date;
    return next && today->calendar().sameDay(*next, today->now());
  };
  forEachAction([&](ProgrammedAction& action) {
    const Schedule& schedule = action.schedule();
    if (schedule.automatic && std::any_of(schedule.list.begin(), schedule.list.end(), isWanted)) {
      list.push_back(&action);
    }
  });
}

ProgrammedAction::Nodes ProgrammedAction::actionsNeedingUpdateForStartupDisk(
    const FolderDescription& folder, const ActionSort& sort,
    const std::function<bool(const std::string& path)>& liesOnStartupDisk) {
  const auto needsUpdate = [&](const FolderDescription& item) {
    const std::string path(item.path());
    return !path.empty() && item.hasOtherFigures(folder) &&
           (!liesOnStartupDisk || liesOnStartupDisk(path));
  };
  Nodes list;
  forEachAction([&](ProgrammedAction& action) {
    const auto sources = ActionsTools::getSourcesForAction(action.mSettings);
    if (std::any_of(sources.begin(), sources.end(), needsUpdate) ||
        needsUpdate(ActionsTools::getDestinationForAction(action.mSettings)))
      list.push_back(&action);
  });
  std::stable_sort(list.begin(), list.end(), [&](const auto* a, const auto* b) {
    return existingActionsSort(*a, *b, sort) < 0;
  });
  return list;
}

void ProgrammedAction::getProgrammedActionsStructureIn(std::string& text, int level) const {
  for (const auto& child : getChildrenList()) {
    text.append(static_cast<std::size_t>(std::max(level, 0)), '\t');
    text += ZAN_StringUtils::format(
        "[ID:%d] %@ [%@]\n",
        {child->mReference, child->getTitle(),
         child->isGroup() ? std::string("Group") : std::to_string(child->actionType())});
    child->getProgrammedActionsStructureIn(text, level + 1);
  }
}

bool ProgrammedAction::useVolume(std::string_view mountPath) const {
  if (isGroup()) {
    return std::any_of(mChildren->begin(), mChildren->end(),
                       [&](const auto& child) { return child->useVolume(mountPath); });
  }
  const auto liesThere = [&](const FolderDescription& folder) {
    return ZAN_FilesUtils::isAtOrBelow(folder.path(), mountPath);
  };
  const auto sources = ActionsTools::getSourcesForAction(mSettings);
  return liesThere(ActionsTools::getDestinationForAction(mSettings)) ||
         std::any_of(sources.begin(), sources.end(), liesThere);
}

std::vector<std::string> ProgrammedAction::searchTokens(const ZAN_DateUtils& calendar,
                                                        ReferenceTime now) const {
  std::vector<std::string> tokens;
  const auto addFolder = [&](const FolderDescription& folder) {
    if (!folder.pathLocalized().empty()) tokens.emplace_back(folder.pathLocalized());
  };
  for (const FolderDescription& source : ActionsTools::getSourcesForAction(mSettings))
    addFolder(source);
  addFolder(ActionsTools::getDestinationForAction(mSettings));
  if (const auto executed = mSettings["LastExecutionDate"].asDate()) {
    // Today counts as one of the three and of the seven days.
    constexpr std::array<std::pair<const char*, double>, 3> kSpans{
        {{"::executedtoday", 0},
         {"::executedsince3days", 172800},
         {"::executedsince7days", 518400}}};
    for (const auto& [token, seconds] : kSpans) {
      if (*executed >= calendar.todayAt0h00(now) - seconds) tokens.emplace_back(token);
    }
  }
  if (!archivedArray(mSettings, "ProgrammedActionFiltersList").empty()) {
    tokens.emplace_back("::hasfilter");
  }
  const ZAN_Value links = archivedArray(mSettings, "ProgrammedActionLinksList");
  if (!links.empty()) tokens.emplace_back("::haslinkedoperation");
  const auto elements = links.elements();
  if (std::any_of(elements.begin(), elements.end(), [](const ZAN_Value& link) {
        return link.integer("ProgrammedActionLinksType") == kExecuteAnotherAction;
      })) {
    tokens.emplace_back("::executeanotheraction");
  }
  if (schedule().automatic && schedule().kind == ScheduleKind::volumeMounted) {
    tokens.emplace_back("::executedmounted");
  }
  return tokens;
}

void ProgrammedAction::getListOfReferencesInDictionary(SearchIndex& index,
                                                       const ZAN_DateUtils& calendar,
                                                       ReferenceTime now) const {
  forEachAction([&](const ProgrammedAction& action) {
    for (std::string& token : action.searchTokens(calendar, now)) {
      index[std::move(token)].insert(action.mReference);
    }
  });
}

}  // namespace corvana
