#include "core/work/WhyNot.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ProgrammedAction.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {
namespace {

constexpr std::int64_t kOnMount = 10;
constexpr std::int64_t kOnQuit = 11;
constexpr std::int64_t kOnIdle = 40;

std::string quoted(std::string_view text) { return "\"" + std::string(text) + "\""; }

std::string contextName(std::int64_t context) {
  constexpr std::array<std::string_view, 4> names{"none", "Office", "Home", "Nomad"};
  return std::string(context >= 0 && context < 4 ? names[static_cast<std::size_t>(context)]
                                                 : "unknown");
}

std::string volumeName(const ZAN_Value& item) {
  const std::string name = item.string("VolumeFolderName");
  const std::string uuid = item.string("uuid");
  std::string text = name.empty() ? "the volume of " + item.string("VolumeFolderPath")
                                  : "the volume " + quoted(name);
  return uuid.empty() ? text : text + " (UUID " + uuid + ")";
}

bool isStartUpFrequency(std::int64_t frequency) { return frequency >= 30 && frequency <= 32; }

}  // namespace

WhyNot::WhyNot(const ActionsTools& tools, ActionsTools::Texts texts, VolumeIdentity& volumes,
               std::function<std::string(std::int64_t)> titleOf)
    : mTools(tools), mTexts(texts), mVolumes(volumes), mTitleOf(std::move(titleOf)) {}

std::optional<ReferenceTime> WhyNot::nextDate(const ProgrammedAction& action) const {
  bool shutDown = false;
  const auto date = mTools.getNextScheduleDateForSettings(action.schedule(), false, &shutDown);
  return shutDown ? std::nullopt : date;
}

std::vector<WhyNot::Reason> WhyNot::reasons(const ProgrammedAction& action,
                                            const Situation& situation) const {
  Reasons reasons;
  addQueue(reasons, action.getReference(), situation);
  if (!reasons.empty() && reasons.front().cause == Cause::running) return reasons;
  addAgent(reasons, situation);
  const ZAN_Value& settings = action.getSettings();
  if (const auto own = action.getActionContext();
      own != 0 && situation.context != 0 && own != situation.context) {
    reasons.push_back({Cause::otherContext,
                       "It belongs to the context " + contextName(own) + ", and the context is " +
                           contextName(situation.context) + ".",
                       "Set the context " + contextName(own) +
                           ", or give the action no context: corvana9 edit " +
                           std::to_string(action.getReference()) + " --context any"});
  }
  addVolumes(reasons, settings);
  if (reasons.empty() || reasons.front().cause != Cause::queued) {
    addHours(reasons, action);
    addTrigger(reasons, action, situation);
  }
  return reasons;
}

void WhyNot::addQueue(Reasons& reasons, std::int64_t reference, const Situation& situation) const {
  const auto& queue = situation.queue;
  const auto at = std::find(queue.begin(), queue.end(), reference);
  if (at == queue.end()) return;
  if (at == queue.begin()) {
    if (situation.headRuns) {
      reasons.push_back({Cause::running, "It is running.", {}});
    } else {
      reasons.push_back({Cause::queued, "It is the first in the queue and about to run.", {}});
    }
    return;
  }
  std::string text = "It is in the queue already, behind ";
  for (auto before = queue.begin(); before != at; ++before) {
    if (before != queue.begin()) text += ", ";
    text += quoted(mTitleOf(*before));
    if (before == queue.begin() && situation.headRuns) text += " (running)";
  }
  reasons.push_back({Cause::queued, text + ".", {}});
}

void WhyNot::addAgent(Reasons& reasons, const Situation& situation) const {
  if (situation.startedFromNewMachine) {
    reasons.push_back(
        {Cause::otherMachine,
         "The start-up disk is another one than before, and the question what to do is open.",
         "Answer the agent's question, or take this disk as the usual one: corvana9 post agent "
         "ConfirmStartupDisk"});
  }
  if (situation.scheduleDisabled) {
    reasons.push_back(
        {Cause::disabled, "Automatic execution is off.", "Switch it on: corvana9 enable"});
  } else if (situation.disabledWhenDone) {
    reasons.push_back(
        {Cause::disabledSoon,
         "Automatic execution goes off when the queue is empty, and takes nothing new.",
         "Switch it on: corvana9 enable"});
  }
  if (situation.paused) {
    reasons.push_back(
        {Cause::paused, "The execution is paused.", "Let it go on: corvana9 continue"});
  }
}

void WhyNot::addVolumes(Reasons& reasons, const ZAN_Value& settings) const {
  const bool tolerant = settings.integer("ItemsVolumeTolerance") != 0;
  auto items = ActionsTools::getSourcesForAction(settings);
  const ZAN_Value destination = ActionsTools::getDestinationForAction(settings);
  if (items.empty() || destination.isNull()) {
    reasons.push_back({Cause::incomplete,
                       std::string("It has no ") + (items.empty() ? "source." : "destination."),
                       "Give it one: corvana9 edit"});
  }
  if (!destination.isNull()) items.push_back(destination);
  const bool refused = settings.integer("TriggerIfVolumesMounted") != 0;
  std::vector<std::string> missing;
  for (const auto& item : items) {
    // The execution is stricter than the queue: a folder in the place of a volume is none.
    if (mVolumes.locate(item, tolerant) &&
        (!refused || mVolumes.checkIfVolumeMounted(item, tolerant)))
      continue;
    std::string name = volumeName(item);
    if (std::find(missing.begin(), missing.end(), name) == missing.end())
      missing.push_back(std::move(name));
  }
  for (const auto& name : missing) {
    reasons.push_back(
        {Cause::volumeMissing,
         "Not mounted, or another one is in its place: " + name + ". " +
             (refused ? "The action will not be queued." : "The execution would be cancelled."),
         "Connect it and have it mounted."});
  }
}

void WhyNot::addHours(Reasons& reasons, const ProgrammedAction& action) const {
  const Schedule& schedule = action.schedule();
  if (!schedule.hasAllowedHours || !schedule.automatic) return;
  const auto& calendar = mTools.calendar();
  const auto seconds = [&](const std::optional<ReferenceTime>& bound) {
    return bound ? calendar.secondsInDay(*bound) : 0;
  };
  const ReferenceTime today = calendar.todayAt0h00(mTools.now());
  const ReferenceTime from = calendar.timeOfDay(today, seconds(schedule.allowedFrom));
  const ReferenceTime to = calendar.timeOfDay(today, seconds(schedule.allowedTo));
  if (from <= mTools.now() && mTools.now() <= to) return;
  const std::string window = calendar.format(from, "%H:%M") + " to " + calendar.format(to, "%H:%M");
  if (to < from) {
    reasons.push_back({Cause::outOfHours,
                       "Its allowed hours, " + window + ", end before they begin: it never runs.",
                       "Give it hours within one day."});
  } else {
    reasons.push_back({Cause::outOfHours, "It is out of its allowed hours, " + window + ".",
                       "Wait for them, or change them."});
  }
}

void WhyNot::addTrigger(Reasons& reasons, const ProgrammedAction& action,
                        const Situation& situation) const {
  const ZAN_Value& settings = action.getSettings();
  const Schedule& schedule = action.schedule();
  const std::string launch = "Run it now: corvana9 launch " + std::to_string(action.getReference());
  if (!schedule.automatic) {
    reasons.push_back({Cause::notAutomatic, "It is not automatic: only a launch by hand runs it.",
                       launch + ", or give it a schedule: corvana9 edit " +
                           std::to_string(action.getReference())});
    return;
  }
  if (const auto date = nextDate(action)) {
    if (*date <= mTools.now()) return;
    std::string when = mTools.getNextScheduleStringForSettings(settings, mTexts);
    if (when.empty()) when = mTools.calendar().format(*date, "%a %Y-%m-%d %H:%M");
    reasons.push_back({Cause::notDue, "It is not due yet: " + when + ".", launch});
    return;
  }
  const auto waits = [&](const std::string& text) {
    reasons.push_back({Cause::waitsForEvent, text, launch});
  };
  if (schedule.frequency == kOnMount) {
    waits("It waits for a volume of its own to be mounted.");
  } else if (schedule.frequency == kOnQuit) {
    const auto name = ZAN_FilesUtils::pathWithoutExtension(
        ZAN_FilesUtils::lastPathComponent(action.triggerSettings().appQuitPath.stringView()));
    waits("It waits for the application " + quoted(name) + " to quit.");
  } else if (schedule.frequency == kOnIdle) {
    const auto minutes = action.triggerSettings().idleMinutes;
    waits("It waits until nobody has used the machine for " +
          std::to_string(minutes > 0 ? minutes : 10) + " minutes" +
          (situation.idleTimeIsSeen
               ? "."
               : ", which cannot be seen here: without a desktop the user counts as active."));
  } else if (isStartUpFrequency(schedule.frequency)) {
    waits("It waits for the next start of the agent.");
  } else if (std::any_of(schedule.list.begin(), schedule.list.end(),
                         [](const ScheduleEntry& entry) {
                           return entry.occasion == ScheduleEntry::Occasion::shutDown;
                         })) {
    waits("It waits for the machine to be shut down.");
  } else {
    const std::string text =
        !schedule.listDamage.empty() ? "Its schedule cannot be read: " + schedule.listDamage + "."
        : schedule.hasAllowedHours   ? "Its schedule has no date within its allowed hours."
                                     : "Its schedule has no date.";
    reasons.push_back(
        {Cause::noDate, text,
         "Give it another schedule: corvana9 edit " + std::to_string(action.getReference())});
  }
}

}  // namespace corvana
