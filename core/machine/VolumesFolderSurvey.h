#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "core/record/Deadline.h"
#include "volumes/StrayRemoval.h"

namespace corvana {

class ExecuteSupervisor;
struct Records;

/// Looks for stray folders in the volumes folder, tells of them, takes them out of the way if the
/// user wants that, and holds executions back while they are there. Nothing that is in them is
/// deleted unless the user has said so of just these. Thread: main.
class VolumesFolderSurvey {
 public:
  VolumesFolderSurvey(Records& records, ExecuteSupervisor& supervisor);

  /// Toggles the pause.
  std::function<void()> onPauseWanted;
  /// Ends the pause that was made here and hides the window.
  std::function<void()> onContinueWanted;

  // For the tick and the launch step
  ReferenceTime nextSurvey() const;
  /// The next survey is in 20 s; strays have to persist through four looks before a word.
  void surveyVolumesFolder();
  /// True while the folder is looked at, or strays in it are told of. Finding strays here begins to
  /// look at them closely.
  bool holdsLaunchBack();
  bool isErrorShown() const;
  /// Launches are held back for now.
  bool isHolding() const { return mCheckingVolumesFolder || isErrorShown(); }
  /// While strays are told of: at the fifth clean look in a row executions go on.
  void checkIfVolumesFolderClean();
  /// Executions go on for another reason.
  void forgetCleanLooks() { mVolumesFolderNoErrorCounter = 0; }
  /// Whether the pause that holds executions now was made for strays, not by the user.
  bool hasPaused() const { return mHasPaused; }
  /// The pause was set or ended.
  void pauseChanged(bool isPaused);

  // For the window and the siblings
  /// The user's wish: moves aside what is there, or deletes just these, and tells what came of it;
  /// `onClean` is called when none is left. Another wish while this one is being fulfilled is
  /// dropped.
  void moveAside(std::function<void()> onClean);
  void deleteStrays(const std::vector<std::string>& paths, std::function<void()> onClean);
  /// Another program's wish.
  void removeExtraItemsInVolumesFolder();
  /// Whether something is being taken away, in the background.
  bool isRemoving() const { return mRemoval.isRunning(); }
  /// What is being taken away stays, as far as it is still there.
  void stopRemoving() { mRemoval.stop(); }
  /// How far the user's wish has got; empty when there is none.
  std::string progressText() const;
  /// The strays last told of with what is in them, and when.
  const std::vector<StrayContents::Stray>& strays() const { return mStrays.strays(); }
  const std::string& errorDate() const { return mErrorVolumesFolderDate; }

 private:
  void reSurveyVolumesFolder(int retry);
  void endSurvey();
  void clean(StrayRemoval::Way way, std::optional<std::vector<std::string>> only,
             std::function<void()> onClean);
  void followProgress();
  void tell(const char* key, const std::vector<std::string>& paths);
  void note(const std::string& text);
  void tellOf(const StrayRemoval::Taken& taken);
  void showError(const std::vector<std::string>& paths);

  Records& m;
  ExecuteSupervisor& mSupervisor;
  VolumesFolder mFolder;
  StrayRemoval mRemoval;
  StrayContents mStrays;
  bool mCheckingVolumesFolder = false;
  bool mIsCleaning = false;
  Deadline mSchedulerVolumesFolderErrorNextCheck;
  int mVolumesFolderNoErrorCounter = 0;
  bool mHasPaused = false;
  std::string mErrorVolumesFolderDate;
};

}  // namespace corvana
