#include "core/work/TriggerEvaluation.h"

#include <algorithm>
#include <utility>

#include "actions/ActionsTools.h"
#include "actions/Forecast.h"
#include "actions/RecordKeys.h"
#include "actions/Schedule.h"
#include "core/record/Records.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

constexpr double kAheadOfLaunch = 2.0;
constexpr double kYear = 31536000.0;
constexpr double kDay = 86400.0;
/// So long after its date an action has not missed it.
constexpr double kOnTime = 2.0;
constexpr double kActiveUser = 60.0;

NextAction groupEntry(const ProgrammedAction& group) {
  NextAction entry;
  entry.isGroup = true;
  entry.ref = group.getReference();
  entry.title = group.getSettings()["Title"];
  entry.shortcutText = group.getSettings()["Shortcut"];
  return entry;
}

NextAction actionEntry(const ProgrammedAction& action) {
  const TriggerSettings& trigger = action.triggerSettings();
  NextAction entry;
  entry.ref = action.getReference();
  entry.actionType = trigger.mode;
  entry.title = trigger.title;
  entry.shortcutText = trigger.shortcut;
  return entry;
}

}  // namespace

/// One pass over the tree.
struct TriggerEvaluation::Walk {
  ActionsTools tools;
  StartSituation situation;
  bool onlyListing;  ///< nothing is enqueued, no deadline moves
  bool collectsNotExecuted;
  bool looksBack;
  ReferenceTime startOfNextAction;
  std::string nextTitle{};
  bool foundNext = false;

  /// What is to be queued when the walk is over, and when it was due.
  struct Due {
    ReferenceTime date;
    std::int64_t ref;
    bool isLate;
  };
  std::vector<Due> due{};

  ReferenceTime now() const { return tools.now(); }
};

TriggerEvaluation::TriggerEvaluation(Records& records, VolumeIdentity& volumes, ActionQueue& queue)
    : m(records),
      mVolumes(volumes),
      mQueue(queue),
      mCalendar(m.platform.machine.timeZoneName(), m.platform.machine.regionName()),
      mStartOfNextAction(m.state.deadlines),
      mMissedRuns(records) {}

void TriggerEvaluation::checkActionsToLaunch(std::optional<std::string_view> mountedDevice) {
  const ReferenceTime now = m.platform.clock.now();
  SchedulerState& state = m.state;
  if (state.mStartedFromNewMachine || state.mScheduleDisabledWhenDone) {
    state.checkAt(now + 15.0);
    return;
  }
  state.mMainAppLaunched = m.siblingWatch.isMainAppLaunched();
  if (state.mScheduleDisabled && state.mFirstCheckAfterStartup) {
    if (m.preferences.mPrefScheduleDisabled != 0) mMissedRuns.nobodyWantsAny(mCalendar);
    state.checkAt(now + (state.mMainAppLaunched ? 1.0 : 5.0));
    return;
  }
  // While the main application runs, it merges the changes itself; a failure is logged there.
  if (!state.mMainAppLaunched) (void)m.tree.updateActionsWithChanges(true);
  updateCalendar();

  followIdleTime();
  const ProgrammedAction& root = m.tree.rootItem();
  const bool userIsActive = now - state.mStartOfIdleTime.at() < kActiveUser;
  const std::string device(mountedDevice.value_or(""));
  const std::string localizedDevice =
      mountedDevice ? mVolumes.reference().localizedPath(device) : std::string();
  Walk walk{
      .tools = ActionsTools(mCalendar, now,
                            [this](const std::string& line) { m.platform.systemLog.write(line); }),
      .situation = {.context = static_cast<ActionContext>(state.mContext),
                    .scheduleDisabled = state.mScheduleDisabled,
                    .firstAfterStartup = state.mFirstCheckAfterStartup,
                    .mountedDevice = device,
                    .localizedDevice = localizedDevice,
                    .volumes = &mVolumes,
                    .applications = device.empty() ? &mApplications : nullptr,
                    .startOfIdleTime = state.mStartOfIdleTime.at()},
      .onlyListing = false,
      .collectsNotExecuted = userIsActive && !mNotificationNotExecutedDone,
      // While the agent starts, execution is off although the user has not switched it off.
      .looksBack =
          !mountedDevice && (!state.mScheduleDisabled || m.preferences.mPrefScheduleDisabled != 0),
      .startOfNextAction = now + kYear};
  // A mount is no occasion for actions that wait for the end of an application: what ended since is
  // kept for the next full evaluation.
  if (!mountedDevice) updateAppLists();
  mActionsNextList.clear();
  mIdleTimeScheduling = false;
  if (walk.looksBack) mMissedRuns.begin(mCalendar);
  walkGroup(walk, root);
  enqueue(walk);

  mStartOfNextAction.set(walk.startOfNextAction);
  if (walk.foundNext || !mountedDevice) nameNextAction(walk);
  sortActions(mActionsNextList);
  if (state.mScheduleDisabled) {
    state.checkAt(now + 60.0);
    mStartOfNextAction.clear();
  }
  if (walk.looksBack) mMissedRuns.end();
  if (userIsActive) mNotificationNotExecutedDone = true;
  if (mountedDevice)
    // All but the actions of that volume are listed without their dates.
    state.checkAt(now);
  else
    state.mFirstCheckAfterStartup = false;
  state.updateMenu();
  listChanged();
}

void TriggerEvaluation::rebuildActionsList() {
  updateCalendar();
  Walk walk{.tools = ActionsTools(mCalendar, m.platform.clock.now()),
            .situation = {.context = static_cast<ActionContext>(m.state.mContext)},
            .onlyListing = true,
            .collectsNotExecuted = false,
            .looksBack = false,
            .startOfNextAction = 0};
  mActionsNextList.clear();
  walkGroup(walk, m.tree.rootItem());
  sortActions(mActionsNextList);
  listChanged();
}

void TriggerEvaluation::listChanged() {
  mNextRun.reset();
  m.changes.note(Change::nextActions);
}

std::optional<ReferenceTime> TriggerEvaluation::nextRun() const {
  if (mNextRun) return *mNextRun;
  std::optional<ReferenceTime> first;
  for (const NextAction& next : mActionsNextList) {
    // Hours make a date later, never earlier.
    if (next.isGroup || (next.hasDate && first && next.date >= *first)) continue;
    const ProgrammedAction* const action = m.tree.rootItem().actionForReference(next.ref);
    if (action == nullptr) continue;
    const auto date = next.hasDate && !action->schedule().hasAllowedHours ? std::optional(next.date)
                                                                          : nextRunOf(*action);
    if (date && (!first || *date < *first)) first = date;
  }
  mNextRun = first;
  return first;
}

std::optional<ReferenceTime> TriggerEvaluation::nextRunOf(const ProgrammedAction& action) const {
  const Schedule& schedule = action.schedule();
  const StartSituation situation{.context = static_cast<ActionContext>(m.state.mContext)};
  const ReferenceTime now = m.platform.clock.now();
  const auto verdictAt = [&](ReferenceTime then) {
    return StartVerdict::of(action, ActionsTools(mCalendar, then), situation);
  };
  const StartVerdict verdict = verdictAt(now);
  if (!verdict.automatic || !verdict.inContext) return std::nullopt;
  if (!verdict.inHours && mMissedRuns.isWaiting(action.getReference())) return verdict.changesAt;
  const auto run = Forecast(mCalendar, schedule).next(now);
  if (!run || run->shutDown) return std::nullopt;
  const StartVerdict then = verdictAt(std::max(run->date, now));
  return then.inHours ? run->date : then.changesAt;
}

void TriggerEvaluation::enqueueActionsDueWithinAMinute() {
  if (mQueue.enqueueActionsDueWithinAMinute(mActionsNextList) == 0) return;
  const ReferenceTime start = mStartOfNextAction.at();
  checkActionsToLaunch();
  mStartOfNextAction.set(start);
}

void TriggerEvaluation::updateCalendar() {
  const std::string zone = m.platform.machine.timeZoneName();
  const std::string region = m.platform.machine.regionName();
  if (zone == mCalendar.zoneName() && region == mCalendar.regionName()) return;
  mCalendar = ZAN_DateUtils(zone, region);
  m.strings.setTimeZone(zone);
}

/// In the order in which they were due: after a sleep many come at once.
void TriggerEvaluation::enqueue(Walk& walk) {
  std::ranges::stable_sort(walk.due, {}, &Walk::Due::date);
  mQueue.batch([&] {
    for (const Walk::Due& one : walk.due) {
      mQueue.addActionToQueue(one.ref, walk.now() + kAheadOfLaunch, -1,
                              one.isLate ? std::optional(one.date) : std::nullopt);
    }
  });
}

void TriggerEvaluation::walkGroup(Walk& walk, const ProgrammedAction& group) {
  for (const auto& child : group.getChildrenList()) {
    if (child->isGroup()) {
      mActionsNextList.push_back(groupEntry(*child));
      walkGroup(walk, *child);
    } else {
      walkAction(walk, *child);
    }
  }
}

void TriggerEvaluation::walkAction(Walk& walk, ProgrammedAction& action) {
  const ReferenceTime now = walk.now();
  if (!walk.onlyListing) {
    const auto last = action.schedule().lastScheduleDate;
    if (last && *last > now + kDay) {
      m.platform.systemLog.write("The last schedule date of \"" + action.getTitle() +
                                 "\" lies more than a day ahead; it is now taken as now");
      action.setLastScheduleDate(now);
    }
  }
  mActionsNextList.push_back(actionEntry(action));
  const std::size_t listed = mActionsNextList.size() - 1;
  SchedulerState& state = m.state;
  if (walk.collectsNotExecuted) collectNotExecuted(now, action, action.triggerSettings());

  const StartVerdict verdict = StartVerdict::of(action, walk.tools, walk.situation);
  const auto enqueueDueSince = [&](ReferenceTime since) {
    walk.due.push_back({since, action.getReference(), since < now - kOnTime});
  };
  if (verdict.nothingInTheWay() && walk.situation.applications != nullptr &&
      action.schedule().kind == ScheduleKind::idle)
    mIdleTimeScheduling = true;
  if (verdict.lookAgainIn) state.checkAtTheLatestAt(now + *verdict.lookAgainIn);
  if (verdict.changesAt && !walk.onlyListing) state.checkAtTheLatestAt(*verdict.changesAt);
  if (verdict.startedByEvent) {
    enqueueDueSince(now);
    return;
  }
  if (walk.looksBack) {
    if (const auto missed = mMissedRuns.dueNow(action, verdict)) {
      m.store.texts().addToReportFile(m.texts.text(
          "ReportRunMadeUp", {action.getTitle(), m.strings.getShortTimeDate(*missed)}));
      enqueueDueSince(*missed);
      state.checkAtTheLatestAt(now + 5.0);
    }
  }
  if (!walk.onlyListing && !state.mScheduleDisabled && verdict.nothingInTheWay()) {
    // Its target could not be reached; what was queued since has tried.
    const auto again = action.getSettings()[EngineKey::tryAgain].asDate();
    const auto last = action.schedule().lastScheduleDate;
    if (again && *again > now) {
      state.checkAtTheLatestAt(*again);
    } else if (again && *again > 0 && (!last || *last < *again)) {
      enqueueDueSince(*again);
      state.checkAt(now + 5.0);
    }
  }
  const auto date = verdict.date;
  if (!date) return;
  mActionsNextList[listed].hasDate = true;
  mActionsNextList[listed].date = *date;
  if (walk.onlyListing) return;
  if (*date <= now) {
    if (state.mScheduleDisabled) return;
    enqueueDueSince(*date);
    state.checkAt(now + 5.0);
    return;
  }
  state.checkAtTheLatestAt(*date);
  if (*date < walk.startOfNextAction) {
    walk.startOfNextAction = *date;
    walk.nextTitle = mActionsNextList[listed].name();
    walk.foundNext = true;
  }
}

void TriggerEvaluation::nameNextAction(const Walk& walk) {
  mNextActionText.clear();
  if (walk.foundNext) {
    mNextActionText = m.texts.text(
        "NextAction", {walk.nextTitle, m.strings.getShortTime(walk.startOfNextAction)});
    mListNextWasUpdated = false;
  }
  if (!mQueue.headIsRunning()) m.state.mStatusTitle = mNextActionText;
}

void TriggerEvaluation::collectNotExecuted(ReferenceTime now, const ProgrammedAction& action,
                                           const TriggerSettings& trigger) {
  if (trigger.notExecuted == 0) return;
  const auto since = lastSignOfLife(action.getSettings());
  if (!since) return;
  const std::int64_t limit =
      trigger.notExecutedDays > 0 ? trigger.notExecutedDays : kUsualLimitInDays;
  if ((now - *since) / kDay >= static_cast<double>(limit))
    mNotificationNotExecutedSince.push_back(action.getSettings());
}

std::optional<ReferenceTime> TriggerEvaluation::lastSignOfLife(const ZAN_Value& settings) {
  if (const auto date = ActionsTools::getLastExecutionDateForSettings(settings)) return date;
  return settings["SaveEditDate"].asDate();
}

ZAN_Value TriggerEvaluation::takeNotExecuted() {
  if (mNotificationNotExecutedSince.empty()) return {};
  const ZAN_Value settings = mNotificationNotExecutedSince.front();
  mNotificationNotExecutedSince.pop_front();
  return settings;
}

void TriggerEvaluation::followIdleTime() {
  const ReferenceTime now = m.platform.clock.now();
  if (const auto idle = m.platform.input.idleSeconds()) {
    const ReferenceTime lastUse = now - std::max(*idle, 0.0);
    if (lastUse > m.state.mStartOfIdleTime.at()) m.state.userWasActive(lastUse);
  } else if (!m.platform.input.pointer()) {
    m.state.userWasActive(now);
  }
}

void TriggerEvaluation::updateAppLists() { mApplications.update(m.platform.processes); }

bool TriggerEvaluation::isApplicationOpened(std::string_view path) const {
  return mApplications.isOpened(path);
}

bool TriggerEvaluation::didApplicationQuit(std::string_view path) const {
  return mApplications.didQuit(path);
}

}  // namespace corvana
