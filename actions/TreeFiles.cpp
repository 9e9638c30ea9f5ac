#include "actions/TreeFiles.h"

namespace corvana {

namespace {
constexpr std::string_view kHeader = "ProgrammedActions";
}

ZAN_Value TreeFiles::readActionsList() {
  DataFiles::List list = mFiles.readListAtPath(
      mFiles.folder().dataFolderPathWithFileName(DataFolder::kActions), kHeader);
  mActionsIdentity = list.identity;
  mActionsReadable = list.readable;
  return std::move(list.elements);
}

Outcome TreeFiles::saveActionsTree(const ZAN_Value& records) {
  const DataFiles::Lock held = lock();
  ZAN_Value list = ZAN_Value::array({kHeader});
  for (const ZAN_Value& record : records.elements()) list.append(record);
  Outcome outcome = mFiles.writeListToFile(list, DataFolder::kActions);
  if (outcome) {
    mActionsIdentity = actionsFileIdentity();
    mActionsReadable = true;
  }
  return outcome;
}

std::optional<ZAN_FileIdentity> TreeFiles::actionsFileIdentity() const {
  return ZAN_FilesUtils::identity(mFiles.folder().pathOf(DataFolder::kActions));
}

ZAN_Value TreeFiles::readChangesList() {
  if (!mChangesRead || mChanges.identity != changesFileIdentity()) {
    mChanges =
        mFiles.readListAtPath(mFiles.folder().dataFolderPathWithFileName(DataFolder::kChanges), {});
    mChangesRead = mChanges.readNow;
    if (mChangesRead) {
      for (const ZAN_Value& change : mWaiting.elements()) mChanges.elements.append(change);
      mWaiting = ZAN_Value::array();
    }
  }
  return mChanges.elements;
}

Outcome TreeFiles::saveChangesList(const ZAN_Value& changes) {
  return writeChanges(changes, DataFiles::Saving::now);
}

Outcome TreeFiles::appendToChangesList(const ZAN_Value& more) {
  const DataFiles::Lock held = lock();
  ZAN_Value changes = readChangesList();
  if (!mChangesRead) changes = mWaiting;
  if (more.isArray())
    for (const ZAN_Value& change : more.elements()) changes.append(change);
  else
    changes.append(more);
  if (!mChangesRead) {
    mWaiting = changes;
    return Error{ErrorKind::unreadable, mFiles.folder().pathOf(DataFolder::kChanges) +
                                            ": cannot be read; the change waits in memory"};
  }
  return writeChanges(changes, DataFiles::Saving::soon);
}

Outcome TreeFiles::writeChanges(const ZAN_Value& changes, DataFiles::Saving saving) {
  const DataFiles::Lock held = lock();
  (void)readChangesList();
  if (!mChangesRead)
    return Error{ErrorKind::unreadable, mFiles.folder().pathOf(DataFolder::kChanges) +
                                            ": cannot be read; nothing is written over it"};
  Outcome outcome = mFiles.writeListToFile(changes, DataFolder::kChanges, saving);
  // What could not be written stays in memory and is written with the next change.
  mChanges = {.elements = changes, .identity = changesFileIdentity()};
  mChangesRead = true;
  return outcome;
}

std::optional<ZAN_FileIdentity> TreeFiles::changesFileIdentity() const {
  return mFiles.identity(mFiles.folder().pathOf(DataFolder::kChanges));
}

}  // namespace corvana
