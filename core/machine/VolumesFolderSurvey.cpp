#include "core/machine/VolumesFolderSurvey.h"

#include <utility>

#include "core/record/Records.h"
#include "core/work/ExecuteSupervisor.h"

namespace corvana {

namespace {

constexpr int kTellAndClean = 2;
constexpr double kSurveyInterval = 20.0;
constexpr double kAfterReSurvey = 10.0;
constexpr double kRetryDelay = 3.0;
constexpr int kRetries = 3;
constexpr double kAfterDeletion = 0.5;
constexpr double kPauseDelay = 0.01;
constexpr double kProgressInterval = 0.5;
constexpr int kCleanLooks = 5;

std::string listOf(const std::vector<std::string>& paths) {
  std::string list;
  for (const std::string& path : paths) list += (list.empty() ? "" : ", ") + path;
  return list;
}

}  // namespace

VolumesFolderSurvey::VolumesFolderSurvey(Records& records, ExecuteSupervisor& supervisor)
    : m(records),
      mSupervisor(supervisor),
      mFolder(m.platform.volumes),
      mRemoval(m.platform, mFolder),
      mStrays(m.platform),
      mSchedulerVolumesFolderErrorNextCheck(m.state.deadlines) {
  mStrays.onCounted = [this] { m.changes.note(Change::strayFolders); };
}

bool VolumesFolderSurvey::isErrorShown() const {
  return m.platform.userInterface.isWindowVisible(Window::volumesFolderError);
}

ReferenceTime VolumesFolderSurvey::nextSurvey() const {
  const bool looks = m.preferences.mSurveyVolumesFolder != 0 && !mCheckingVolumesFolder;
  return looks && !isErrorShown() ? mSchedulerVolumesFolderErrorNextCheck.passing() : kNever;
}

void VolumesFolderSurvey::surveyVolumesFolder() {
  const SurveyExecution::Bracket bracket(m.survey, "surveyVolumesFolder");
  mCheckingVolumesFolder = true;
  if (mFolder.checkVolumesFolder()) {
    mCheckingVolumesFolder = false;
  } else {
    m.platform.runLoop.performAfter(kRetryDelay, [this] { reSurveyVolumesFolder(0); });
  }
  mSchedulerVolumesFolderErrorNextCheck.set(m.platform.clock.now() + kSurveyInterval);
}

bool VolumesFolderSurvey::holdsLaunchBack() {
  if (isHolding()) return true;
  if (m.preferences.mSurveyVolumesFolder == 0 || mFolder.checkVolumesFolder()) return false;
  mCheckingVolumesFolder = true;
  m.platform.runLoop.performOnMain([this] { reSurveyVolumesFolder(0); });
  return true;
}

void VolumesFolderSurvey::reSurveyVolumesFolder(int retry) {
  mCheckingVolumesFolder = true;
  const auto faulty = mFolder.getFaultyFoldersInVolumes();
  if (!faulty) return endSurvey();
  if (retry < kRetries) {
    m.platform.runLoop.performAfter(kRetryDelay,
                                    [this, retry] { reSurveyVolumesFolder(retry + 1); });
    mSchedulerVolumesFolderErrorNextCheck.set(m.platform.clock.now() + kAfterReSurvey);
    return;
  }
  const bool executing = m.state.mExecuting;
  if (executing) {
    m.state.mMenuWasUsed = true;
    mSupervisor.clearFinishedProcess();
    m.channel.postToExecute("ActionStopVolume");
  }
  if (m.preferences.mSurveyVolumesFolder == kTellAndClean) {
    mRemoval.run(StrayRemoval::Way::aside, executing ? 0 : kAfterDeletion,
                 [this, executing](const StrayRemoval::Taken& taken) {
                   tellOf(taken);
                   const auto remaining = mFolder.getFaultyFoldersInVolumes();
                   if (!executing && remaining) showError(*remaining);
                   endSurvey();
                 });
    return;
  }
  if (executing) {
    tell("ReportIncorrectVolumes", *faulty);
  } else {
    showError(*faulty);
  }
  endSurvey();
}

void VolumesFolderSurvey::endSurvey() {
  mSchedulerVolumesFolderErrorNextCheck.set(m.platform.clock.now() + kAfterReSurvey);
  mCheckingVolumesFolder = false;
}

void VolumesFolderSurvey::showError(const std::vector<std::string>& paths) {
  mStrays.count(paths);
  mErrorVolumesFolderDate = m.strings.getShortTimeWithSeconds(m.platform.clock.now());
  mVolumesFolderNoErrorCounter = 0;
  m.platform.systemLog.write(
      m.texts.text("ReportIncorrectVolumes", {VolumesFolder::namesOf(paths)}));
  m.platform.userInterface.showWindowQuietly(Window::volumesFolderError);
  if (m.state.mPause) return;
  m.platform.runLoop.performAfter(kPauseDelay, [this] {
    if (m.state.mPause) return;
    onPauseWanted();
    mHasPaused = true;
  });
}

void VolumesFolderSurvey::pauseChanged(bool isPaused) {
  mHasPaused = false;
  if (!isPaused) mCheckingVolumesFolder = false;
}

void VolumesFolderSurvey::checkIfVolumesFolderClean() {
  if (!mFolder.checkVolumesFolder()) {
    mVolumesFolderNoErrorCounter = 0;
    return;
  }
  ++mVolumesFolderNoErrorCounter;
  if (mVolumesFolderNoErrorCounter != kCleanLooks || !isErrorShown()) return;
  onContinueWanted();
}

void VolumesFolderSurvey::moveAside(std::function<void()> onClean) {
  clean(StrayRemoval::Way::aside, std::nullopt, std::move(onClean));
}

void VolumesFolderSurvey::deleteStrays(const std::vector<std::string>& paths,
                                       std::function<void()> onClean) {
  clean(StrayRemoval::Way::deleted, paths, std::move(onClean));
}

void VolumesFolderSurvey::clean(StrayRemoval::Way way, std::optional<std::vector<std::string>> only,
                                std::function<void()> onClean) {
  if (std::exchange(mIsCleaning, true)) return;
  mRemoval.run(
      way, kAfterDeletion,
      [this, onClean = std::move(onClean)](const StrayRemoval::Taken& taken) {
        mIsCleaning = false;
        tellOf(taken);
        const auto remaining = mFolder.getFaultyFoldersInVolumes();
        std::string text;
        const auto add = [&](const char* key, const std::string& names) {
          if (!text.empty()) text += '\n';
          text += m.texts.text(key, {names});
        };
        if (!taken.aside.empty()) add("ReportIncorrectVolumesAside", listOf(taken.aside));
        if (!taken.deleted.empty())
          add("ReportIncorrectVolumesDeleted", VolumesFolder::namesOf(taken.deleted));
        if (remaining) {
          tell("ReportIncorrectVolumes", *remaining);
          mStrays.count(*remaining);
          add("ReportIncorrectVolumes", VolumesFolder::namesOf(*remaining));
        }
        m.platform.userInterface.alert(
            m.texts.text(remaining ? "NoRepairVolumeTitle" : "RepairVolumeTitle"), text,
            m.texts.text("OKButton"));
        if (!remaining) onClean();
      },
      std::move(only));
  followProgress();
}

void VolumesFolderSurvey::removeExtraItemsInVolumesFolder() {
  mRemoval.run(StrayRemoval::Way::aside, 0, [this](const auto& taken) { tellOf(taken); });
}

void VolumesFolderSurvey::followProgress() {
  m.changes.note(Change::strayFolders);
  if (mIsCleaning) m.platform.runLoop.performAfter(kProgressInterval, [this] { followProgress(); });
}

std::string VolumesFolderSurvey::progressText() const {
  if (!mIsCleaning) return {};
  return m.texts.text("StrayFoldersDeleting",
                      {m.strings.getUnsignedWithSeparators(mRemoval.countOfGone())});
}

/// Whoever looks for what was moved needs to know where it is.
void VolumesFolderSurvey::tellOf(const StrayRemoval::Taken& taken) {
  if (!taken.aside.empty())
    note(m.texts.text("ReportIncorrectVolumesAside", {listOf(taken.aside)}));
  if (!taken.deleted.empty()) tell("ReportIncorrectVolumesDeleted", taken.deleted);
}

void VolumesFolderSurvey::tell(const char* key, const std::vector<std::string>& paths) {
  note(m.texts.text(key, {VolumesFolder::namesOf(paths)}));
}

void VolumesFolderSurvey::note(const std::string& text) {
  m.store.texts().addToReportFile(text);
  m.log.addSchedulerLog(LogCode::message, text);
}

}  // namespace corvana
