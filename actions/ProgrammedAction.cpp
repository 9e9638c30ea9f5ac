#include "actions/ProgrammedAction.h"

#include <algorithm>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "actions/ActionTree.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

std::int64_t oneMore(std::int64_t value) {
  return value == std::numeric_limits<std::int64_t>::max() ? value : value + 1;
}

}  // namespace

ProgrammedAction::ProgrammedAction(ActionTree& tree, ProgrammedAction* parent, ZAN_Value settings)
    : mTree(tree), mParent(parent) {
  ++mTree.mNodes;
  if (settings.isDictionary()) takeRecord(std::move(settings));
}

ProgrammedAction::~ProgrammedAction() { --mTree.mNodes; }

void ProgrammedAction::takeRecord(ZAN_Value settings) {
  mSettings = std::move(settings);
  mSettings.setMutable(true);
  mTrigger.reset();
  if (!mSettings.contains("Ref")) {
    mSettings.setValue("Ref", mTree.rootItem().getNextFreeReference());
  }
  if (!mSettings.contains("CreationDate")) {
    mSettings.setValue("CreationDate", ZAN_Value::date(mTree.clock().now()));
  }
  if (mSettings.contains("ActionExecutionData")) mSettings.removeKey("ActionExecutionData");
  mReference = mSettings.integer("Ref");
}

void ProgrammedAction::changeSettings(ZAN_Value settings) {
  if (!settings.isDictionary()) return;
  const std::int64_t before = mReference;
  takeRecord(std::move(settings));
  mTree.edited();
  if (mReference != before) mTree.referencesChanged();
}

void ProgrammedAction::setSetting(std::string_view key, ZAN_Value value) {
  if (mSettings.isNull()) return;
  if (mTrigger) {
    if (key == "LastScheduleDate") {
      mTrigger->schedule.setLastScheduleDate(value);
    } else if (TriggerSettings::dependsOnKey(key)) {
      mTrigger.reset();
    }
  }
  if (value.isNull()) {
    mSettings.removeKey(key);
  } else {
    mSettings.setValue(key, std::move(value));
  }
  mTree.edited();
  if (key == "Ref") {
    mReference = mSettings.integer("Ref");
    mTree.referencesChanged();
  }
}

void ProgrammedAction::setReference(std::int64_t reference) {
  mSettings.setValue("Ref", reference);
  mReference = reference;
  mTree.added(*this);
}

const TriggerSettings& ProgrammedAction::triggerSettings() const {
  if (!mTrigger) mTrigger = std::make_unique<TriggerSettings>(mSettings);
  return *mTrigger;
}

std::int64_t ProgrammedAction::actionType() const {
  return isGroup() ? 0 : mSettings.integer("Mode");
}

std::optional<ReferenceTime> ProgrammedAction::getCreationDate() const {
  return mSettings["CreationDate"].asDate();
}

std::string ProgrammedAction::getTitle() const {
  return ZAN_StringUtils::oneLine(mSettings["Title"].stringView());
}

std::string ProgrammedAction::getShortcut() const { return mSettings.string(ActionKey::shortcut); }

std::int64_t ProgrammedAction::getBackGroundColor() const { return mSettings.integer("Color"); }

bool ProgrammedAction::isFavorite() const { return mSettings.integer(ActionKey::favourite) != 0; }

std::int64_t ProgrammedAction::getExecuteWithAdminPrivileges() const {
  constexpr std::int64_t kTypeWithoutAdminMode = 1;
  if (!isGroup() && actionType() == kTypeWithoutAdminMode) return 0;
  return mSettings.integer("AdminMode");
}

ProgrammedAction& ProgrammedAction::childAtIndex(std::size_t index) {
  return *const_cast<Children&>(getChildrenList()).at(index);
}

const ProgrammedAction& ProgrammedAction::childAtIndex(std::size_t index) const {
  return *getChildrenList().at(index);
}

std::optional<std::size_t> ProgrammedAction::indexOfChild(const ProgrammedAction& child) const {
  const Children& children = getChildrenList();
  for (std::size_t i = 0; i < children.size(); ++i) {
    if (children[i].get() == &child) return i;
  }
  return std::nullopt;
}

const ProgrammedAction::Children& ProgrammedAction::getChildrenList() const {
  static const Children kNone;
  return mChildren ? *mChildren : kNone;
}

std::vector<const ProgrammedAction*> ProgrammedAction::getChildrenListSorted(
    const ActionSort& sort) const {
  std::vector<const ProgrammedAction*> list;
  for (const auto& child : getChildrenList()) list.push_back(child.get());
  std::stable_sort(list.begin(), list.end(), [&](const auto* a, const auto* b) {
    return existingActionsSort(*a, *b, sort) < 0;
  });
  return list;
}

bool ProgrammedAction::isDescendantOfNode(const ProgrammedAction& node) const {
  for (const ProgrammedAction* above = mParent; above != nullptr; above = above->mParent) {
    if (above == &node) return true;
  }
  return false;
}

bool ProgrammedAction::isDescendantOfNodeInArray(
    const std::vector<const ProgrammedAction*>& nodes) const {
  return std::any_of(nodes.begin(), nodes.end(), [&](const ProgrammedAction* node) {
    return node != nullptr && isDescendantOfNode(*node);
  });
}

void ProgrammedAction::addActionsFromList(const ZAN_Value& list, bool createDuplicate,
                                          std::optional<ReferenceTime> resetCreationDate) {
  std::size_t depth = 0;
  for (const ProgrammedAction* above = mParent; above != nullptr; above = above->mParent) ++depth;
  fill(list, createDuplicate, resetCreationDate, depth);
}

void ProgrammedAction::fill(const ZAN_Value& list, bool createDuplicate,
                            std::optional<ReferenceTime> resetCreationDate, std::size_t depth) {
  if (!mChildren) mChildren.emplace();
  for (const ZAN_Value& element : list.elements()) {
    if (!element.isDictionary()) continue;
    ZAN_Value record = element;
    if (resetCreationDate) record.setValue("CreationDate", ZAN_Value::date(*resetCreationDate));
    const bool isGroup = record.contains("List");
    if (isGroup) record.removeKey("List");
    if (createDuplicate && record.contains("Ref")) record.removeKey("Ref");
    ProgrammedAction& child =
        addChild(std::make_unique<ProgrammedAction>(mTree, this, std::move(record)));
    if (isGroup) child.readListOfGroup(element["List"], createDuplicate, resetCreationDate, depth);
  }
}

void ProgrammedAction::readListOfGroup(const ZAN_Value& archive, bool createDuplicate,
                                       std::optional<ReferenceTime> resetCreationDate,
                                       std::size_t depth) {
  mChildren.emplace();
  const auto children = [&]() -> Result<ZAN_Value> {
    if (depth >= kDeepest) return Error{ErrorKind::limit, "groups lie too deep in groups"};
    if (mTree.mNodes > kMostNodes) return Error{ErrorKind::limit, "too many actions"};
    return ZAN_Unarchiver::unarchiveObjectWithData(archive.bytes());
  }();
  if (children && (children->isArray() || children->isNull())) {
    fill(*children, createDuplicate, resetCreationDate, depth + 1);
    return;
  }
  mUnreadList = archive;
  mTree.systemLog().write(ZAN_StringUtils::format(
      "Exception reading archive in addActionsFromList: %@: %@",
      {getTitle(), children ? std::string("not a list") : children.error().text}));
}

ProgrammedAction* ProgrammedAction::addGroup(std::string_view title, std::string_view withShortcut,
                                             std::int64_t withColor) {
  if (title.empty() || !isGroup()) return nullptr;
  auto group = std::make_unique<ProgrammedAction>(
      mTree, this,
      ZAN_Value::dictionary(
          {{"Title", title}, {"Shortcut", withShortcut}, {"Color", static_cast<int>(withColor)}}));
  group->addActionsFromList(ZAN_Value::array(), false, std::nullopt);
  return &addChild(std::move(group));
}

ProgrammedAction& ProgrammedAction::addChild(std::unique_ptr<ProgrammedAction> child) {
  return insertChild(std::move(child), numberOfChildren());
}

ProgrammedAction& ProgrammedAction::insertChild(std::unique_ptr<ProgrammedAction> child,
                                                std::size_t atIndex) {
  if (!mChildren) mChildren.emplace();
  child->mParent = this;
  const auto place = static_cast<std::ptrdiff_t>(std::min(atIndex, mChildren->size()));
  ProgrammedAction& inserted = **mChildren->insert(mChildren->begin() + place, std::move(child));
  mTree.added(inserted);
  return inserted;
}

std::unique_ptr<ProgrammedAction> ProgrammedAction::removeChild(const ProgrammedAction& child) {
  const auto index = indexOfChild(child);
  if (!index) return nullptr;
  std::unique_ptr<ProgrammedAction> taken = std::move((*mChildren)[*index]);
  mChildren->erase(mChildren->begin() + static_cast<std::ptrdiff_t>(*index));
  std::erase(mChildrenToDisplay, taken.get());
  taken->mParent = nullptr;
  mTree.referencesChanged();
  return taken;
}

std::unique_ptr<ProgrammedAction> ProgrammedAction::removeFromList() {
  return mParent != nullptr ? mParent->removeChild(*this) : nullptr;
}

void ProgrammedAction::moveActionTo(ProgrammedAction& target, std::size_t atIndex,
                                    SortMode sortMode) {
  if (&target == this || mParent == nullptr) return;
  ProgrammedAction* const group = target.isGroup() ? &target : target.mParent;
  if (group == nullptr || group == this || group->isDescendantOfNode(*this)) return;
  const std::size_t before = *mParent->indexOfChild(*this);
  if (group == mParent && before < atIndex) --atIndex;
  group->insertChild(removeFromList(), atIndex);
  const auto mode = static_cast<int>(sortMode);
  if (mode < static_cast<int>(SortMode::type) || mode >= static_cast<int>(SortMode::manual)) {
    group->setManualSortingIndexes();
  }
}

void ProgrammedAction::setManualSortingIndexes() {
  int index = 0;
  for (const auto& child : getChildrenList()) child->setSetting("ManualSorting", index++);
}

ProgrammedAction* ProgrammedAction::createActionCopy() {
  if (mSettings.isNull() || mParent == nullptr) return nullptr;
  ZAN_Value record = mSettings;
  for (const char* key : {"Ref", "Shortcut", "CreationDate", "ExecCounter", "LastExecutionDate",
                          "LastScheduleDate", "LastBackupDateForFilter", "LastSuccessDate"}) {
    record.removeKey(key);
  }
  record.setValue("Title", mTree.texts().text("ActionCopy", {getTitle()}));
  ProgrammedAction& copy =
      mParent->addChild(std::make_unique<ProgrammedAction>(mTree, mParent, std::move(record)));
  if (const Outcome saved = mTree.saveActionsTree(); !saved) {
    mTree.systemLog().write(saved.error().text);
  }
  return &copy;
}

bool ProgrammedAction::changeReference(std::int64_t reference) {
  bool wasSeen = false;
  const auto change = [&](auto& self, ProgrammedAction& node) -> bool {
    if (!node.mSettings.isNull() && node.mReference == reference) {
      if (wasSeen) {
        node.setReference(mTree.getNextFreeReference());
        return true;
      }
      wasSeen = true;
    }
    return std::any_of(node.getChildrenList().begin(), node.getChildrenList().end(),
                       [&](const auto& child) { return self(self, *child); });
  };
  return change(change, *this);
}

std::int64_t ProgrammedAction::getNextFreeReference() const {
  if (mTree.mRoot.get() == this) return mTree.getNextFreeReference();
  const auto now = static_cast<std::int64_t>(mTree.clock().now());
  std::int64_t result = mReference < now ? now : oneMore(mReference);
  for (const auto& child : getChildrenList()) {
    const std::int64_t ofChild = child->getNextFreeReference();
    if (ofChild >= result) result = oneMore(ofChild);
  }
  return result;
}

ZAN_Value ProgrammedAction::getListOfActionsSettings() const {
  std::vector<ZAN_Value> records;
  records.reserve(numberOfChildren());
  for (const auto& child : getChildrenList()) {
    ZAN_Value record = child->mSettings;
    if (child->isGroup()) {
      const bool keepsUnread = !child->mUnreadList.isNull() && child->mChildren->empty();
      record.setValue("List", keepsUnread
                                  ? child->mUnreadList
                                  : ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(
                                        child->getListOfActionsSettings())));
    }
    records.push_back(std::move(record));
  }
  ZAN_Value list = ZAN_Value::array(std::move(records));
  list.setMutable(true);
  return list;
}

void ProgrammedAction::activateTrigger(bool flag) {
  if (!isGroup()) {
    setSetting("TriggerAutomatic", flag ? 1 : 0);
    return;
  }
  for (const auto& child : getChildrenList()) child->activateTrigger(flag);
}

int ProgrammedAction::triggerStatus() const {
  if (!isGroup()) return mSettings.integer("TriggerAutomatic") != 0 ? 2 : 1;
  int status = 0;
  for (const auto& child : getChildrenList()) status |= child->triggerStatus();
  return status;
}

void ProgrammedAction::setActionContext(ActionContext context) {
  if (!isGroup()) {
    setSetting(ActionKey::context, static_cast<int>(context));
    return;
  }
  for (const auto& child : getChildrenList()) child->setActionContext(context);
}

void ProgrammedAction::incrementExecutionCounter() {
  if (isGroup()) return;
  addInChangesList(static_cast<int>(mSettings.integer("ExecCounter") + 1), "ExecCounter");
}

void ProgrammedAction::setLastExecutionDate() {
  addInChangesList(ZAN_Value::date(mTree.clock().now()), "LastExecutionDate");
}

void ProgrammedAction::setLastBackupExecutionDate() {
  addInChangesList(mSettings["LastExecutionDate"], "LastBackupDateForFilter");
}

void ProgrammedAction::setLastScheduleDate() { setLastScheduleDate(mTree.clock().now()); }

void ProgrammedAction::setLastScheduleDate(ReferenceTime date) {
  addInChangesList(ZAN_Value::date(date), "LastScheduleDate");
}

void ProgrammedAction::setNextCurrentVolume(std::int64_t volume) {
  addInChangesList(static_cast<int>(volume), "OptionsContinueOnNextDiskCurrentVolume");
}

void ProgrammedAction::setTotalFiles(std::int64_t files, std::uint64_t andSize) {
  addInChangesList(files, "ExecutionPrecountQty");
  addInChangesList(andSize, "ExecutionPrecountSize");
}

void ProgrammedAction::addInChangesList(ZAN_Value value, std::string_view forKey) {
  mTree.addInChangesList(*this, std::move(value), forKey);
}

}  // namespace corvana
