#include "actions/ActionTree.h"

#include <algorithm>
#include <limits>
#include <unordered_map>

#include "actions/TreeFiles.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

std::int64_t saturatedSum(std::int64_t a, std::int64_t b) {
  std::int64_t sum = 0;
  return __builtin_add_overflow(a, b, &sum) ? std::numeric_limits<std::int64_t>::max() : sum;
}

}  // namespace

ActionTree::ActionTree(TreeFiles& files, Clock& clock, SystemLog& log, const ZAN_StringTable& texts)
    : mFiles(files), mClock(clock), mLog(log), mTexts(texts) {}

ActionTree::~ActionTree() = default;

ProgrammedAction& ActionTree::rootItem() {
  if (mRoot && mReleased && isCurrent()) mReleased = false;
  const bool isWorthAnotherTry = !mReadable && mActionsIdentity != mFiles.actionsFileIdentity();
  if (!mRoot || mReleased || isWorthAnotherTry) load();
  return *mRoot;
}

void ActionTree::releaseRootItem() { mReleased = true; }

bool ActionTree::isCurrent() const {
  return !mUnsaved && mReadable && mActionsIdentity == mFiles.actionsFileIdentity() &&
         mChangesIdentity == mFiles.changesFileIdentity();
}

std::string ActionTree::titleOf(std::int64_t reference) {
  const ProgrammedAction* const node = rootItem().actionOrGroupForReference(reference);
  return node != nullptr ? node->getTitle() : std::string();
}

std::string ActionTree::nameOf(std::int64_t reference) {
  std::string title = titleOf(reference);
  return title.empty() ? std::to_string(reference) : title;
}

void ActionTree::load() {
  if (!mRoot) mRoot = std::make_unique<ProgrammedAction>(*this, nullptr, nullptr);
  mReleased = false;
  mReadable = true;
  mHighest.reset();
  mRoot->mChildrenToDisplay.clear();
  mRoot->mChildren.emplace();
  // The changes are read first: when another program merges them meanwhile, they are applied to a
  // tree that has them already, and none is missing.
  mChangesIdentity = mFiles.changesFileIdentity();
  const ZAN_Value changes = mFiles.readChangesList();
  ZAN_Value list = mFiles.readActionsList();
  mReadable = mFiles.actionsListWasReadable();
  mActionsIdentity = mFiles.actionsIdentityWhenRead();
  mHighest = Highest{};
  mRoot->addActionsFromList(std::exchange(list, {}), false, std::nullopt);
  applyChanges(changes);
  applyChanges(mHeldChanges);
  mUnsaved = false;
}

bool ActionTree::isThere() {
  rootItem();
  return mReadable && mActionsIdentity && mActionsIdentity->size > 0;
}

void ActionTree::ensureCurrentRoot() {
  const bool isStale = !mReadable || mActionsIdentity != mFiles.actionsFileIdentity();
  // Edits that nobody saved went with the root's release.
  if (!mRoot || isStale || (mReleased && mUnsaved)) {
    load();
  } else {
    mReleased = false;
  }
}

void ActionTree::applyChanges(const ZAN_Value& changes) {
  if (changes.empty()) return;
  std::unordered_map<std::int64_t, ProgrammedAction*> actions;
  ProgrammedAction::Nodes list;
  mRoot->getListOfAllProgrammedActions(list);
  for (ProgrammedAction* action : list) actions.emplace(action->getReference(), action);

  const bool wasUnsaved = mUnsaved;
  for (const ZAN_Value& change : changes.elements()) {
    const auto found = actions.find(change.integer("Ref"));
    const ZAN_Value& key = change["ChangesKey"];
    const ZAN_Value& object = change["ChangesObject"];
    if (found == actions.end() || !key.isString() || object.isNull()) continue;
    ZAN_Value record = found->second->getSettings();
    record.setValue(key.stringView(), object);
    found->second->changeSettings(std::move(record));
  }
  mUnsaved = wasUnsaved;
}

Outcome ActionTree::updateActionsWithChanges(bool mergeIntoFile) {
  if (!mergeIntoFile) {
    // What another program has merged is in the tree's file, and in the list no more.
    if (hasRoot() && !mUnsaved && mActionsIdentity != mFiles.actionsFileIdentity())
      releaseRootItem();
    rootItem();
    const auto identity = mFiles.changesFileIdentity();
    if (identity == mChangesIdentity) return {};
    applyChanges(mFiles.readChangesList());
    mChangesIdentity = identity;
    return {};
  }
  if (mFiles.readChangesList().empty()) return {};
  const auto lock = mFiles.lock();
  const ZAN_Value changes = mFiles.readChangesList();
  ensureCurrentRoot();
  applyChanges(changes);
  Outcome written = writeMerged(changes);
  if (!written && mLoggedRefusal != written.error().text) {
    mLog.write("Programmed Actions: changes not merged: " + written.error().text);
  }
  mLoggedRefusal = written ? std::string() : written.error().text;
  releaseRootItem();
  return written;
}

Outcome ActionTree::writeMerged(const ZAN_Value& changes) {
  if (Outcome saved = saveActionsTree(); !saved) return saved;
  if (!changes.empty()) {
    // Where the lock could not be had, another program may have appended meanwhile.
    ZAN_Value later = mFiles.readChangesList();
    later.removeRange(0, changes.size());
    if (Outcome emptied = mFiles.saveChangesList(later); !emptied) return emptied;
  }
  mChangesIdentity = mFiles.changesFileIdentity();
  return {};
}

Outcome ActionTree::saveActionsTree() {
  ProgrammedAction& root = rootItem();
  const auto lock = mFiles.lock();
  if (!mReadable) {
    return Error{ErrorKind::unreadable,
                 "Programmed Actions: the file could not be read, so it is "
                 "not written over"};
  }
  if (mActionsIdentity != mFiles.actionsFileIdentity()) {
    return Error{ErrorKind::refused,
                 "Programmed Actions: the file was changed by another program since it was read"};
  }
  Outcome saved = mFiles.saveActionsTree(root.getListOfActionsSettings());
  if (saved) {
    mActionsIdentity = mFiles.actionsIdentityWhenRead();
    mUnsaved = false;
  }
  return saved;
}

Outcome ActionTree::editStoredTree(const std::function<Outcome(ProgrammedAction& root)>& edit) {
  const auto lock = mFiles.lock();
  const ZAN_Value changes = mFiles.readChangesList();
  releaseRootItem();
  ProgrammedAction& root = rootItem();
  Outcome done = edit(root);
  if (done) {
    done = writeMerged(changes);
  } else {
    edited();
  }
  releaseRootItem();
  return done;
}

void ActionTree::repairReferencesIfDuplicates() {
  if (!hasRoot()) return;
  ProgrammedAction::Nodes nodes;
  mRoot->getAllActionsInOneList(nodes, true);
  // Ascending by reference, since that is the order in which new references are given.
  std::map<std::int64_t, ProgrammedAction::Nodes> duplicates;
  std::unordered_map<std::int64_t, bool> seen;
  for (ProgrammedAction* node : nodes) {
    const std::int64_t reference = node->getReference();
    if (reference != 0 && !seen.emplace(reference, true).second) {
      duplicates[reference].push_back(node);
    }
  }
  if (duplicates.empty()) return;
  for (std::size_t pass = 0, changed = 1; changed != 0; ++pass) {
    changed = 0;
    for (const auto& [reference, later] : duplicates) {
      if (pass >= later.size()) continue;
      later[pass]->setReference(getNextFreeReference());
      ++changed;
    }
  }
  mLog.write("Structure of Programmed Actions repaired (references)");
  if (const Outcome saved = saveActionsTree(); !saved) mLog.write(saved.error().text);
}

std::int64_t ActionTree::getNextFreeReference() {
  const ProgrammedAction& root = rootItem();
  if (!mHighest) mHighest = highest(root, 0);
  const auto now = static_cast<std::int64_t>(mClock.now());
  return std::max(saturatedSum(now, mHighest->depth), mHighest->reference);
}

ActionTree::Highest ActionTree::highest(const ProgrammedAction& node, std::int64_t depth) const {
  Highest result{saturatedSum(node.getReference(), depth + 1), depth};
  for (const auto& child : node.getChildrenList()) {
    const Highest ofChild = highest(*child, depth + 1);
    result.reference = std::max(result.reference, ofChild.reference);
    result.depth = std::max(result.depth, ofChild.depth);
  }
  return result;
}

void ActionTree::added(const ProgrammedAction& node) {
  edited();
  if (!mHighest) return;
  std::int64_t depth = 0;
  const ProgrammedAction* top = &node;
  for (; top->parent() != nullptr; top = top->parent()) ++depth;
  if (top != mRoot.get()) return;
  const Highest ofNode = highest(node, depth);
  mHighest->reference = std::max(mHighest->reference, ofNode.reference);
  mHighest->depth = std::max(mHighest->depth, ofNode.depth);
}

void ActionTree::referencesChanged() {
  mHighest.reset();
  edited();
}

void ActionTree::addInChangesList(ProgrammedAction& node, ZAN_Value value,
                                  std::string_view forKey) {
  if (value.isNull()) return;
  const bool wasUnsaved = mUnsaved;
  node.setSetting(forKey, value);
  mUnsaved = wasUnsaved;
  const ZAN_Value change = ZAN_Value::dictionary(
      {{"Ref", node.getReference()}, {"ChangesObject", std::move(value)}, {"ChangesKey", forKey}});
  if (mHolding > 0)
    mHeldChanges.append(change);
  else
    appendChanges(change);
}

void ActionTree::storeHeldChanges() {
  if (--mHolding > 0 || mHeldChanges.empty()) return;
  appendChanges(std::exchange(mHeldChanges, ZAN_Value::array()));
}

void ActionTree::appendChanges(const ZAN_Value& changes) {
  const auto lock = mFiles.lock();
  const bool wasCurrent = mChangesIdentity == mFiles.changesFileIdentity();
  // Changes that cannot be written stay with the list in memory; that is logged there.
  (void)mFiles.appendToChangesList(changes);
  // With changes of another program in the file, memory is no longer what a reading would give.
  if (wasCurrent) mChangesIdentity = mFiles.changesFileIdentity();
}

}  // namespace corvana
