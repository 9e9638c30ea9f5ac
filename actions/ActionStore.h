#pragma once

#include <cstdint>
#include <string>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "actions/ActionLog.h"
#include "actions/ActivityRecord.h"
#include "actions/DataFiles.h"
#include "actions/FileTypes.h"
#include "actions/InstalledPlaces.h"
#include "actions/LocalDates.h"
#include "actions/SettingsFiles.h"
#include "actions/TextFiles.h"
#include "actions/TreeFiles.h"

namespace corvana {

class Clock;
class Machine;
class RunLoop;
class SystemLog;

/// Owner of everything that is stored in the data folder; hands out the part for each kind of file.
/// Making one touches nothing on disk. Thread: main.
class ActionStore {
 public:
  ActionStore(Clock& clock, Machine& machine, SystemLog& log, ZAN_FileWriter::StepHook hook = {});

  DataFolder& folder() { return mFolder; }
  DataFiles& files() { return mFiles; }
  TreeFiles& tree() { return mTree; }
  SettingsFiles& settings() { return mSettings; }
  TextFiles& texts() { return mTexts; }
  CompleteLog& completeLog() { return mCompleteLog; }
  ActivityRecord& activity() { return mActivity; }
  FileTypes& fileTypes() { return mFileTypes; }
  const InstallPaths& installPaths() const { return mInstallPaths; }
  LocalDates& dates() { return mDates; }

  /// Once at the start of the program: creates the data files that are missing, empty, and the
  /// history folder, and removes what an earlier crash left in the hidden folder.
  void createMissingDataFiles();
  /// Once at the start of the agent: missing parts of the installation are written to a file on the
  /// desktop.
  void reportMissingParts() const;
  /// From now on the log, the history and changes are written by a thread of their own, so that a
  /// busy disk does not hold the main thread up.
  void saveInBackground(RunLoop& loop, double delay = 0) { mFiles.saveInBackground(loop, delay); }
  /// Returns when everything is on disk; before the program ends or is replaced.
  void finishSaving() { mFiles.finishSaving(); }
  /// Whether the tree file was missing when createMissingDataFiles looked.
  bool isFirstRun() const { return mFirstRun; }

  // Lists of files that an action copied once and for all.
  std::string getCopyOnlyOnceFilePathForAction(std::int64_t reference) const;
  ZAN_Value getCopyOnlyOnceListForAction(std::int64_t reference);  ///< null when there is none
  Outcome saveCopyOnlyOnceList(const ZAN_Value& list, std::int64_t reference);
  Outcome deleteCopyOnlyOnceFileForAction(std::int64_t reference);

  Clock& clock() { return mClock; }
  Machine& machine() { return mMachine; }
  SystemLog& systemLog() { return mLog; }

 private:
  Clock& mClock;
  Machine& mMachine;
  SystemLog& mLog;
  LocalDates mDates;
  DataFolder mFolder;
  ZAN_FileWriter mWriter;
  DataFiles mFiles;
  TreeFiles mTree;
  SettingsFiles mSettings;
  TextFiles mTexts;
  CompleteLog mCompleteLog;
  ActivityRecord mActivity;
  FileTypes mFileTypes;
  InstallPaths mInstallPaths;
  bool mFirstRun = false;
};

}  // namespace corvana
