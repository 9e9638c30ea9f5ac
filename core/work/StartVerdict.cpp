#include "core/work/StartVerdict.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionsTools.h"
#include "actions/ProgrammedAction.h"
#include "platform/Processes.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

std::string nameOf(std::string_view path) {
  return std::string(ZAN_FilesUtils::nameWithoutExtension(path));
}

}  // namespace

void ApplicationLists::update(Processes& processes) {
  std::unordered_set<std::string> opened;
  for (const RunningProcess& process : processes.running())
    opened.insert(nameOf(process.bundlePath.empty() ? process.executable : process.bundlePath));
  mQuitted.clear();
  for (const std::string& name : mOpened)
    if (!opened.contains(name)) mQuitted.insert(name);
  mOpened = std::move(opened);
}

bool ApplicationLists::isOpened(std::string_view path) const {
  return mOpened.contains(nameOf(path));
}

bool ApplicationLists::didQuit(std::string_view path) const {
  return mQuitted.contains(nameOf(path));
}

namespace {

constexpr double kUsualIdleTime = 600.0;
/// An action that ran shortly before the user went away has not waited for it.
constexpr double kBeforeIdleTime = 180.0;
constexpr double kOften = 5.0;
constexpr double kSeldom = 15.0;

StartVerdict::Hours hoursOfToday(const Schedule& schedule, const ActionsTools& tools) {
  const auto bound = [&](const std::optional<ReferenceTime>& time) {
    const ZAN_DateUtils& calendar = tools.calendar();
    return calendar.timeOfDay(tools.now(), time ? calendar.secondsInDay(*time) : 0);
  };
  return {bound(schedule.allowedFrom), bound(schedule.allowedTo)};
}

ReferenceTime nextDay(const ActionsTools& tools) { return tools.calendar().nextDay(tools.now()); }

/// When hours of another time of the day begin.
std::optional<ReferenceTime> beginOf(const StartVerdict::Hours& hours, const Schedule& schedule,
                                     const ActionsTools& tools) {
  if (hours.neverCome()) return std::nullopt;
  if (tools.now() < hours.from) return hours.from;
  const ZAN_DateUtils& calendar = tools.calendar();
  return calendar.timeOfDay(
      nextDay(tools), schedule.allowedFrom ? calendar.secondsInDay(*schedule.allowedFrom) : 0);
}

/// Whether tomorrow may bring a date that today does not show.
bool beginsAnew(const Schedule& schedule, std::optional<ReferenceTime> date,
                const ActionsTools& tools) {
  if (schedule.kind == ScheduleKind::hourly || schedule.kind == ScheduleKind::threeHourly)
    return !date || *date >= nextDay(tools);
  return !date && (schedule.kind == ScheduleKind::minutes || !schedule.list.empty());
}

bool concernsMountedVolume(const ZAN_Value& settings, const StartSituation& situation) {
  const auto sources = ActionsTools::getSourcesForAction(settings);
  if (sources.empty()) return false;
  // The disk may have got another name since it was described.
  const auto mount = situation.volumes->reference().ofPath(std::string(situation.mountedDevice));
  const bool isKnown = mount && mount->target == situation.mountedDevice;
  // Our own program would only say that it is another one.
  const bool isStrict = isKnown && ActionsTools::isExecutedByUs(settings) &&
                        !ActionsTools::toleratesOtherVolumes(settings);
  const auto onVolume = [&](const FolderDescription& item) {
    if (isKnown && situation.volumes->isOn(item, *mount)) return true;
    if (isStrict && situation.volumes->isAnother(item, *mount)) return false;
    return ZAN_FilesUtils::isAtOrBelow(item.pathLocalized(), situation.mountedDevice) ||
           ZAN_FilesUtils::isAtOrBelow(item.pathLocalized(), situation.localizedDevice);
  };

  if (!std::ranges::any_of(sources, onVolume) &&
      !std::ranges::any_of(VolumeIdentity::destinationsOf(settings), onVolume))
    return false;
  return situation.volumes->checkIfAllVolumesMounted(settings);
}

void lookAtEvents(StartVerdict& verdict, const TriggerSettings& trigger, const ActionsTools& tools,
                  const StartSituation& situation) {
  if (trigger.schedule.kind == ScheduleKind::idle) {
    const double span =
        trigger.idleMinutes > 0 ? static_cast<double>(trigger.idleMinutes) * 60.0 : kUsualIdleTime;
    if (tools.now() > situation.startOfIdleTime + span) {
      const auto last = tools.getLastScheduleDateForSettings(trigger.schedule, false);
      verdict.startedByEvent = !last || situation.startOfIdleTime > *last + kBeforeIdleTime;
    } else {
      // A tick later than the end of the span, when that comes first.
      constexpr double kTick = 0.5;
      verdict.lookAgainIn =
          std::clamp(situation.startOfIdleTime + span + kTick - tools.now(), kTick, kSeldom);
    }
  } else if (trigger.schedule.kind == ScheduleKind::applicationQuit &&
             !situation.scheduleDisabled) {
    const std::string_view path = trigger.appQuitPath.stringView();
    verdict.lookAgainIn = situation.applications->isOpened(path) ? kOften : kSeldom;
    verdict.startedByEvent = situation.applications->didQuit(path);
  }
}

}  // namespace

StartVerdict StartVerdict::of(const ProgrammedAction& action, const ActionsTools& tools,
                              const StartSituation& situation) {
  const TriggerSettings& trigger = action.triggerSettings();
  const Schedule& schedule = trigger.schedule;
  StartVerdict verdict{.automatic = schedule.automatic,
                       .inContext = !isOtherContext(trigger.context, situation.context),
                       .inHours = true};
  if (!situation.goesOn && !(verdict.automatic && verdict.inContext)) return verdict;
  if (schedule.hasAllowedHours) {
    verdict.hours = hoursOfToday(schedule, tools);
    verdict.inHours = verdict.hours->contain(tools.now());
    if (!verdict.inHours) {
      verdict.changesAt = beginOf(*verdict.hours, schedule, tools);
      if (!situation.goesOn) return verdict;
    }
  }
  if (!situation.mountedDevice.empty()) {
    verdict.startedByEvent = schedule.kind == ScheduleKind::volumeMounted &&
                             !situation.scheduleDisabled &&
                             concernsMountedVolume(action.getSettings(), situation);
    return verdict;
  }
  if (situation.applications != nullptr) {
    lookAtEvents(verdict, trigger, tools, situation);
    if (verdict.startedByEvent) return verdict;
  }
  bool shutDown = false;
  verdict.date =
      tools.getNextScheduleDateForSettings(schedule, situation.firstAfterStartup, &shutDown);
  if (shutDown) {
    verdict.date.reset();
  } else if (!verdict.changesAt && beginsAnew(schedule, verdict.date, tools)) {
    verdict.changesAt = nextDay(tools);
  }
  return verdict;
}

}  // namespace corvana
