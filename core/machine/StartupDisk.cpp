#include "core/machine/StartupDisk.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/FolderDescription.h"
#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

constexpr std::string_view kName = "SchedulerStartupDiskName";
constexpr std::string_view kSize = "SchedulerStartupDiskSize";
constexpr std::string_view kDate = "SchedulerStartupDiskDate";
constexpr std::string_view kNoName = "/";
constexpr int kLooks = 5;
constexpr double kBetweenLooks = 2.0;
constexpr double kMainAppStarts = 2.0;
constexpr double kQuestionDelay = 2.0;

std::uint64_t difference(std::uint64_t a, std::uint64_t b) {
  if (a == 0 || b == 0) return 0;
  return a > b ? a - b : b - a;
}

FolderDescription descriptionOf(const StartupVolume& volume) {
  return FolderDescription()
      .setPath("/")
      .setPathLocalized("/")
      .setVolumeName(volume.name)
      .setVolumeSize(volume.volumeSize)
      .setVolumeDate(volume.creationDate);
}

}  // namespace

void StartupDisk::checkStartupDisk() {
  const auto normal = m.preferences.prefForKey(kName).asString();
  if (!normal) {
    saveStartupDiskReference();
    return;
  }
  mChange.differences = "???";
  auto volume = m.platform.machine.startupVolume();
  bool pending = false;
  if (volume && volume->name != *normal && volume->name != kNoName && *normal != kNoName) {
    pending = true;
    mChange.differences = m.texts.text("StartupVolumeNameChanged");
  } else {
    for (int look = 0; look < kLooks; ++look) {
      if (look > 0) {
        m.platform.clock.sleep(kBetweenLooks);
        volume = m.platform.machine.startupVolume();
      }
      pending = volume && comparedFigures(*volume);
      if (!pending) break;
    }
  }
  if (pending) {
    mChange.title = m.texts.text("StartupDiskChangedTitle");
    mChange.currentDisk = volume->name;
    mChange.normalDisk = *normal;
    mStartedFromNewMachineShowLogs = true;
  }
  setPending(pending);
}

/// Whether size or date is another one than usual; says which.
bool StartupDisk::comparedFigures(const StartupVolume& volume) {
  const std::uint64_t size =
      difference(volume.size, m.preferences.prefForKey(kSize).unsignedValue());
  const std::uint64_t date =
      difference(volume.creationDate, m.preferences.prefForKey(kDate).unsignedValue());
  if (size != 0 && date != 0) {
    mChange.differences = m.texts.text("StartupVolumeDateSizeChanged");
  } else if (size != 0) {
    mChange.differences =
        m.texts.text("StartupVolumeSizeChanged", {m.strings.getUnsignedWithSeparators(size)});
  } else if (date != 0) {
    mChange.differences =
        m.texts.text("StartupVolumeDateChanged", {m.strings.getUnsignedWithSeparators(date)});
  }
  return size != 0 || date != 0;
}

void StartupDisk::setPending(bool pending) {
  if (std::exchange(m.state.mStartedFromNewMachine, pending) == pending) return;
  m.state.updateMenu();
  // What was put off while the question was open is looked at now.
  if (!pending) m.state.checkAtTheLatestAt(m.platform.clock.now());
  m.executionStatusChanged();
}

void StartupDisk::saveStartupDiskReference() {
  if (const auto volume = m.platform.machine.startupVolume()) {
    m.preferences.setPref(kName, volume->name);
    m.preferences.setPref(kSize, ZAN_Value::unsignedInteger(volume->size));
    m.preferences.setPref(kDate, ZAN_Value::unsignedInteger(volume->creationDate));
    m.preferences.savePrefs();
  }
  setPending(false);
}

void StartupDisk::askAboutStartupDiskChange() {
  if (!m.state.mStartedFromNewMachine || std::exchange(mAsks, true)) return;
  m.log.addSchedulerLog(LogCode::message, mChange.title);
  UserInterface& ui = m.platform.userInterface;
  ui.bringWindowsToFront();
  ui.ask(Window::startupDisk, mChange.title,
         m.texts.text("StartupDiskChangedText",
                      {mChange.currentDisk, mChange.normalDisk, mChange.differences}),
         [this](bool confirmed) {
           mAsks = false;
           if (confirmed) confirmStartupDisk();
         });
}

void StartupDisk::askSoon() {
  m.platform.runLoop.performAfter(kQuestionDelay, [this] { askAboutStartupDiskChange(); });
}

void StartupDisk::confirmStartupDisk() {
  saveStartupDiskReference();
  haveActionsChecked();
}

void StartupDisk::haveActionsChecked() {
  const auto volume = m.platform.machine.startupVolume();
  if (!volume) return;
  const Machine& machine = m.platform.machine;
  const ActionsTools tools(ZAN_DateUtils(machine.timeZoneName(), machine.regionName()),
                           m.platform.clock.now());
  const auto actions = m.tree.rootItem().actionsNeedingUpdateForStartupDisk(
      descriptionOf(*volume), {SortMode::type, tools}, [this](const std::string& path) {
        const auto mount = VolumeReference(m.platform.volumes).ofPath(path);
        return mount && mount->target == "/";
      });
  if (actions.empty()) return;
  std::string names;
  for (const ProgrammedAction* action : actions)
    names += (names.empty() ? "" : ", ") + action->getTitle();
  const std::string text = m.texts.text("StartupDiskActionsToCheck", {names});
  if (!m.siblingWatch.isMainAppLaunched()) {
    if (!m.platform.processes.open(
            m.store.installPaths().installPathForCode(InstallPaths::mainAppBundle))) {
      m.messages.displayStandardMessage(text, LogCode::message);
      return;
    }
    m.platform.clock.sleep(kMainAppStarts);
  }
  m.channel.postToMainApp("CheckActionsForStartupDisk",
                          ZAN_Value::dictionary({{"N", text}, {"C", LogCode::message}}));
}

void StartupDisk::logStartupDiskInformation(bool always) {
  if (!always && !mStartedFromNewMachineShowLogs) return;
  const StartupVolume volume = m.platform.machine.startupVolume().value_or(StartupVolume());
  if (volume.size == mPreviousSize && volume.creationDate == mPreviousDate) return;
  const auto number = [&](std::uint64_t value) {
    return m.strings.getUnsignedWithSeparators(value);
  };
  m.platform.systemLog.write(ZAN_StringUtils::format(
      "Startup disk Information. Size: %@ --> %@ . Reference date: %@ --> %@",
      {number(mPreviousSize), number(volume.size), number(mPreviousDate),
       number(volume.creationDate)}));
  mPreviousSize = volume.size;
  mPreviousDate = volume.creationDate;
}

namespace {

constexpr double kDay = 86400;
constexpr double kLongTime = 2 * kDay;

}  // namespace

void LongDisabledWarning::checkIfExecutionIsDisabled() {
  if (!m.state.mScheduleDisabled && !m.state.mStartedFromNewMachine) return;
  if (m.tree.rootItem().numberOfActions() == 0) return;
  const ReferenceTime now = m.platform.clock.now();
  const auto count = static_cast<std::int64_t>(m.history.historyCount());
  const auto latest = m.history.historyEntryAtIndex(count - 1)["Date"].asDate();
  if (!latest || now - *latest <= kLongTime) return;
  const bool anyWasDue = std::ranges::any_of(
      mEvaluation.actionsNextList(),
      [now](const NextAction& action) { return action.hasDate && action.date < now; });
  if (!anyWasDue) return;
  const auto days = static_cast<std::int64_t>((now - *latest) / kDay);
  m.messages.displayStandardMessage(m.texts.text("ReportNoExecutionSince", {days}),
                                    LogCode::schedulerMessage);
}

}  // namespace corvana
