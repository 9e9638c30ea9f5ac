#include "core/work/WhyNot.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/Forecast.h"
#include "actions/ProgrammedAction.h"
#include "actions/RecordKeys.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/StartVerdict.h"
#include "platform/Input.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {
namespace {

std::string edit(std::int64_t reference) { return "corvana9 edit " + std::to_string(reference); }

std::string launch(std::int64_t reference) {
  return "corvana9 launch " + std::to_string(reference);
}

bool waitsForStart(ScheduleKind kind) {
  return kind == ScheduleKind::firstStartUpOfDay || kind == ScheduleKind::startUp ||
         kind == ScheduleKind::nextDay;
}

}  // namespace

WhyNot::Situation WhyNot::situationOf(const SchedulerState& state,
                                      const ExecuteSupervisor& supervisor, const ActionQueue& queue,
                                      Input& input, std::string headHold) {
  Situation situation{.scheduleDisabled = state.mScheduleDisabled,
                      .disabledWhenDone = state.mScheduleDisabledWhenDone,
                      .startedFromNewMachine = state.mStartedFromNewMachine,
                      .paused = state.mPause,
                      .headRuns = supervisor.isExecuting(),
                      .headHold = std::move(headHold),
                      .stuck = supervisor.stallText(),
                      .idleTimeIsSeen = input.idleSeconds().has_value(),
                      .context = static_cast<ActionContext>(state.mContext),
                      .queue = {}};
  for (const QueueRecord& record : queue.actionsList()) situation.queue.push_back(record.ref);
  return situation;
}

WhyNot::WhyNot(const ActionsTools& tools, ActionsTools::Texts texts, VolumeIdentity& volumes,
               std::function<std::string(std::int64_t)> titleOf)
    : mTools(tools), mTexts(texts), mVolumes(volumes), mTitleOf(std::move(titleOf)) {}

std::optional<ReferenceTime> WhyNot::nextDate(const ProgrammedAction& action) const {
  const auto run = Forecast(mTools.calendar(), action.schedule()).next(mTools.now());
  return run && !run->shutDown ? std::optional(run->date) : std::nullopt;
}

WhyNot::Reason WhyNot::reason(Cause cause, std::string text, const std::string& remedy,
                              const std::string& command) const {
  Reason made{cause, std::move(text), {}, {}};
  if (remedy.empty()) return made;
  made.remedy = mTexts.table.text("WhyRemedy", {remedy});
  made.remedyByCommand =
      command.empty() ? made.remedy : mTexts.table.text("WhyRemedyCommand", {remedy, command});
  return made;
}

WhyNot::Reason WhyNot::reasonToLaunch(Cause cause, std::string text, std::int64_t reference) const {
  Reason made =
      reason(cause, std::move(text), mTexts.table.text("WhyRunByHand"), launch(reference));
  made.remedy.clear();
  return made;
}

std::string WhyNot::volumeName(const FolderDescription& item) const {
  const std::string_view name = item.volumeName();
  const std::string_view uuid = item.uuid();
  if (item.isDamaged()) return mTexts.table.text("WhyVolumeDamaged");
  std::string text = name.empty() ? mTexts.table.text("WhyVolumeOfPath", {item.path()})
                                  : mTexts.table.text("WhyVolumeNamed", {name});
  return uuid.empty() ? text : mTexts.table.text("WhyVolumeUuid", {text, uuid});
}

std::vector<WhyNot::Reason> WhyNot::reasons(const ProgrammedAction& action,
                                            const Situation& situation) const {
  Reasons reasons;
  addQueue(reasons, action.getReference(), situation);
  if (!reasons.empty() && !situation.stuck.empty())
    reasons.push_back(reason(reasons.front().cause, situation.stuck,
                             mTexts.table.text("WhyStuckRemedy"), "corvana9 stop"));
  if (!reasons.empty() && reasons.front().cause == Cause::running) return reasons;
  addAgent(reasons, situation);
  const StartVerdict verdict =
      StartVerdict::of(action, mTools, {.context = situation.context, .goesOn = true});
  if (!verdict.inContext) {
    const std::string& own = contextName(action.getActionContext(), mTexts.table);
    reasons.push_back(reason(
        Cause::otherContext,
        mTexts.table.text("WhyOtherContext", {own, contextName(situation.context, mTexts.table)}),
        mTexts.table.text("WhyOtherContextRemedy", {own}),
        edit(action.getReference()) + " --context any"));
  }
  addVolumes(reasons, action);
  if (verdict.automatic) addTarget(reasons, action);
  addDeletions(reasons, action);
  if (reasons.empty() || reasons.front().cause != Cause::queued) {
    addHours(reasons, verdict);
    addTrigger(reasons, action, verdict, situation);
  }
  return reasons;
}

void WhyNot::addQueue(Reasons& reasons, std::int64_t reference, const Situation& situation) const {
  const auto& queue = situation.queue;
  const auto at = std::find(queue.begin(), queue.end(), reference);
  if (at == queue.end()) return;
  const std::string& hold = situation.headHold;
  if (at == queue.begin()) {
    reasons.push_back(situation.headRuns ? reason(Cause::running, mTexts.table.text("WhyRunning"))
                      : hold.empty()
                          ? reason(Cause::queued, mTexts.table.text("WhyQueuedFirst"))
                          : reason(Cause::queued, mTexts.table.text("WhyQueuedFirstHeld", {hold})));
    return;
  }
  std::string titles;
  for (auto before = queue.begin(); before != at; ++before) {
    const bool runs = before == queue.begin() && situation.headRuns;
    if (!titles.empty()) titles += ", ";
    titles += mTexts.table.text(runs ? "WhyTitleRunning" : "WhyTitle", {mTitleOf(*before)});
  }
  reasons.push_back(reason(Cause::queued, mTexts.table.text("WhyQueuedBehind", {titles})));
  if (!hold.empty()) reasons.push_back(reason(Cause::queued, hold + "."));
}

void WhyNot::addAgent(Reasons& reasons, const Situation& situation) const {
  const ZAN_StringTable& table = mTexts.table;
  if (situation.startedFromNewMachine) {
    reasons.push_back(reason(Cause::otherMachine, table.text("WhyOtherMachine"),
                             table.text("WhyOtherMachineRemedy"),
                             "corvana9 post agent ConfirmStartupDisk"));
  }
  if (situation.scheduleDisabled || situation.disabledWhenDone) {
    reasons.push_back(
        reason(situation.scheduleDisabled ? Cause::disabled : Cause::disabledSoon,
               table.text(situation.scheduleDisabled ? "WhyDisabled" : "WhyDisabledWhenDone"),
               table.text("WhyDisabledRemedy"), "corvana9 enable"));
  }
  if (situation.paused) {
    reasons.push_back(reason(Cause::paused, table.text("WhyPaused"), table.text("WhyPausedRemedy"),
                             "corvana9 continue"));
  }
}

void WhyNot::addVolumes(Reasons& reasons, const ProgrammedAction& action) const {
  const ZAN_StringTable& table = mTexts.table;
  const ZAN_Value& settings = action.getSettings();
  const bool tolerant = ActionsTools::toleratesOtherVolumes(settings);
  auto items = ActionsTools::getSourcesForAction(settings);
  const auto destinations = VolumeIdentity::destinationsOf(settings);
  // Other engines may keep copies where no volume is.
  const bool isMissing = destinations.empty() && !settings.contains(EngineKey::name);
  if (items.empty() || isMissing) {
    reasons.push_back(reason(Cause::incomplete,
                             table.text(items.empty() ? "WhyNoSource" : "WhyNoDestination"),
                             table.text("WhyIncompleteRemedy"), edit(action.getReference())));
  }
  const bool refused = settings.integer("TriggerIfVolumesMounted") != 0;
  // The execution is stricter than the queue: a folder in the place of a volume is none.
  const auto isThere = [&](const FolderDescription& item) {
    return mVolumes.locate(item, tolerant) &&
           (!refused || mVolumes.checkIfVolumeMounted(item, tolerant));
  };
  if (std::ranges::none_of(destinations, isThere))
    items.insert(items.end(), destinations.begin(), destinations.end());
  std::vector<std::string> missing;
  for (const auto& item : items) {
    if (isThere(item)) continue;
    std::string name = volumeName(item);
    if (std::find(missing.begin(), missing.end(), name) == missing.end())
      missing.push_back(std::move(name));
  }
  for (const auto& name : missing) {
    reasons.push_back(
        reason(Cause::volumeMissing,
               table.text(refused ? "WhyVolumeNotQueued" : "WhyVolumeCancelled", {name}),
               table.text("WhyVolumeRemedy")));
  }
}

void WhyNot::addTarget(Reasons& reasons, const ProgrammedAction& action) const {
  const auto again = action.getSettings()[EngineKey::tryAgain].asDate();
  if (!again || *again <= mTools.now()) return;
  reasons.push_back(
      reasonToLaunch(Cause::targetAway,
                     mTexts.table.text("WhyTargetAway", {mTexts.strings.getShortTimeDate(*again)}),
                     action.getReference()));
}

void WhyNot::addDeletions(Reasons& reasons, const ProgrammedAction& action) const {
  const std::int64_t count = action.getSettings().integer(DeletionKey::toConfirm);
  if (count <= 0) return;
  reasons.push_back(reason(Cause::deletionsToConfirm,
                           mTexts.table.text("WhyDeletionsToConfirm", {count}),
                           mTexts.table.text("WhyDeletionsToConfirmRemedy"),
                           "corvana9 confirm " + std::to_string(action.getReference())));
}

void WhyNot::addHours(Reasons& reasons, const StartVerdict& verdict) const {
  if (!verdict.automatic || verdict.inHours) return;
  const auto [from, to] = *verdict.hours;
  const bool never = verdict.hours->neverCome();
  reasons.push_back(reason(
      Cause::outOfHours,
      mTexts.table.text(never ? "WhyHoursNever" : "WhyOutOfHours",
                        {mTexts.strings.getShortTime(from), mTexts.strings.getShortTime(to)}),
      mTexts.table.text(never ? "WhyHoursNeverRemedy" : "WhyOutOfHoursRemedy")));
}

void WhyNot::addTrigger(Reasons& reasons, const ProgrammedAction& action,
                        const StartVerdict& verdict, const Situation& situation) const {
  const std::int64_t reference = action.getReference();
  if (!verdict.automatic) {
    Reason made = reason(Cause::notAutomatic, mTexts.table.text("WhyNotAutomatic"));
    made.remedyByCommand =
        mTexts.table.text("WhyNotAutomaticRemedy", {launch(reference), edit(reference)});
    reasons.push_back(std::move(made));
  } else if (const auto date = nextDate(action); !date) {
    addWaiting(reasons, action, situation);
  } else if (*date > mTools.now()) {
    const auto when = mTools.getNextScheduleStringForSettings(action.getSettings(), mTexts);
    reasons.push_back(
        reasonToLaunch(Cause::notDue, mTexts.table.text("WhyNotDue", {when}), reference));
  }
}

void WhyNot::addWaiting(Reasons& reasons, const ProgrammedAction& action,
                        const Situation& situation) const {
  const ZAN_StringTable& table = mTexts.table;
  const Schedule& schedule = action.schedule();
  const auto waits = [&](std::string text) {
    reasons.push_back(reasonToLaunch(Cause::waitsForEvent, std::move(text), action.getReference()));
  };
  if (schedule.kind == ScheduleKind::volumeMounted) {
    waits(table.text("WhyWaitsForVolume"));
  } else if (schedule.kind == ScheduleKind::applicationQuit) {
    const auto name =
        ZAN_FilesUtils::nameWithoutExtension(action.triggerSettings().appQuitPath.stringView());
    waits(table.text("WhyWaitsForApplication", {name}));
  } else if (schedule.kind == ScheduleKind::idle) {
    const auto minutes = action.triggerSettings().idleMinutes;
    waits(table.text(situation.idleTimeIsSeen ? "WhyWaitsForIdle" : "WhyIdleNotSeen",
                     {minutes > 0 ? minutes : 10}));
  } else if (waitsForStart(schedule.kind)) {
    waits(table.text("WhyWaitsForStart"));
  } else if (std::any_of(schedule.list.begin(), schedule.list.end(),
                         [](const ScheduleEntry& entry) {
                           return entry.occasion == ScheduleEntry::Occasion::shutDown;
                         })) {
    waits(table.text("WhyWaitsForShutDown"));
  } else {
    std::string text =
        !schedule.listDamage.empty()
            ? table.text("WhyScheduleDamaged", {schedule.listDamage})
            : table.text(schedule.hasAllowedHours ? "WhyNoDateInHours" : "WhyNoDate");
    reasons.push_back(reason(Cause::noDate, std::move(text), table.text("WhyNoDateRemedy"),
                             edit(action.getReference())));
  }
}

}  // namespace corvana
