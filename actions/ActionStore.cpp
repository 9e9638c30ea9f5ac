#include "actions/ActionStore.h"

#include <sys/stat.h>

#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

ActionStore::ActionStore(Clock& clock, Machine& machine, SystemLog& log,
                         ZAN_FileWriter::StepHook hook)
    : mClock(clock),
      mMachine(machine),
      mLog(log),
      mDates(machine),
      mFolder(machine.homeFolder()),
      mWriter(ZAN_FilesUtils::joinedPath(mFolder.hiddenFolderPath(), "Temporary"), std::move(hook)),
      mFiles(mFolder, mDates, clock, log, mWriter),
      mTree(mFiles),
      mSettings(mFiles),
      mTexts(mFiles, machine, mDates),
      mCompleteLog(mFiles),
      mActivity(mFiles),
      mFileTypes(mFiles),
      mInstallPaths(machine) {}

void ActionStore::createMissingDataFiles() {
  // Files in them may be open to all, as other programs want it, and passwords are among them.
  for (const std::string& closed :
       {mFolder.dataFolderPathWithFileName(), mFolder.hiddenFolderPath()}) {
    struct stat status;
    if (::stat(closed.c_str(), &status) != 0 || (status.st_mode & 077) == 0) continue;
    if (::chmod(closed.c_str(), status.st_mode & 07700) == 0)
      mLog.write(closed + " was open to other users and is closed now");
  }
  mWriter.removeLeftOvers();
  for (const std::string_view name :
       {DataFolder::kActions, DataFolder::kChanges, DataFolder::kHistory, DataFolder::kFiles,
        DataFolder::kErrors, DataFolder::kExecutions, DataFolder::kLog, DataFolder::kCommonFilters,
        DataFolder::kHistoryData}) {
    const std::string path = mFolder.dataFolderPathWithFileName(name);
    if (ZAN_FilesUtils::exists(path)) continue;
    (void)mFiles.createEmptyFileAtPath(path, DataFiles::dataFileAttributes());
    if (name == DataFolder::kActions) mFirstRun = true;
  }
  (void)mFolder.historyFolderPath();
  if (!mFirstRun || !mSettings.schedulerSettings().isNull()) return;
  // What a fresh home begins with; without a value a small icon would float above all windows.
  (void)mSettings.saveSchedulerSettings(
      ZAN_Value::dictionary({{"SchedulerPrefDisplayIconWindow", 2}}));
}

void ActionStore::reportMissingParts() const {
  mInstallPaths.reportMissingParts(mMachine.desktopFolder(), mLog);
}

std::string ActionStore::getCopyOnlyOnceFilePathForAction(std::int64_t reference) const {
  return ZAN_FilesUtils::joinedPath(mFolder.copyOnlyOnceFolderPath(),
                                    "Action #" + std::to_string(reference) + ".cva9data");
}

ZAN_Value ActionStore::getCopyOnlyOnceListForAction(std::int64_t reference) {
  return mFiles.readObjectAtPath(getCopyOnlyOnceFilePathForAction(reference));
}

Outcome ActionStore::saveCopyOnlyOnceList(const ZAN_Value& list, std::int64_t reference) {
  return mFiles.writeObjectToPath(list, getCopyOnlyOnceFilePathForAction(reference));
}

Outcome ActionStore::deleteCopyOnlyOnceFileForAction(std::int64_t reference) {
  return ZAN_FilesUtils::removeFile(getCopyOnlyOnceFilePathForAction(reference));
}

}  // namespace corvana
