#include "core/work/AgeAlarm.h"

#include <algorithm>

#include "actions/Forecast.h"
#include "core/record/Records.h"
#include "core/work/ActionQueue.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;
constexpr double kLeast = 2 * kDay;
constexpr double kMost = 14 * kDay;
constexpr double kInterval = 3600;
/// After the start what was missed gets its chance first.
constexpr double kFirstLook = 3600;
constexpr const char* kSaid = "SchedulerAgeAlarmsSaid";

/// The longest time between two of its next runs; nothing without dates.
std::optional<double> periodOf(const Schedule& schedule, const ZAN_DateUtils& calendar,
                               ReferenceTime now) {
  constexpr int kRuns = 8;
  Forecast forecast(calendar, schedule);
  std::optional<double> period;
  std::optional<ReferenceTime> last;
  for (int i = 0; i < kRuns; ++i) {
    const auto run = forecast.next(now);
    if (!run) break;
    now = std::max(now, run->date);
    if (last) period = std::max(period.value_or(0), now - *last);
    last = now;
    forecast.setLastRun(now);
  }
  return period;
}

}  // namespace

AgeAlarm::AgeAlarm(Records& records, const ActionQueue& queue)
    : m(records),
      mQueue(queue),
      mNextLook(m.state.deadlines, m.platform.clock.now() + kFirstLook) {}

std::optional<double> AgeAlarm::limitOf(const ProgrammedAction& action,
                                        const ZAN_DateUtils& calendar, ReferenceTime now) {
  if (!action.schedule().automatic) return {};
  const auto period = periodOf(action.schedule(), calendar, now);
  return period ? std::max(std::clamp(3 * *period, kLeast, kMost), *period + kLeast) : kMost;
}

std::optional<ReferenceTime> AgeAlarm::overdueSince(const ProgrammedAction& action,
                                                    const ZAN_DateUtils& calendar,
                                                    ReferenceTime now) {
  const ZAN_Value& settings = action.getSettings();
  if (settings.integer(ActionKey::ageAlarm) == 0 || !action.schedule().automatic) return {};
  const auto success = ActionsTools::getLastSuccessDateForSettings(settings);
  const auto since = success ? success : settings["SaveEditDate"].asDate();
  // No limit is shorter.
  if (!since || now - *since < kLeast) return {};
  return now - *since >= *limitOf(action, calendar, now) ? since : std::nullopt;
}

void AgeAlarm::look(const ZAN_DateUtils& calendar) {
  const ReferenceTime now = m.platform.clock.now();
  mNextLook.set(now + kInterval);
  const ZAN_Value before = m.preferences.prefForKey(kSaid);
  ZAN_Value said = ZAN_Value::array();
  bool isOther = false;
  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getListOfAllProgrammedActions(actions);
  for (const ProgrammedAction* action : actions) {
    const auto since = overdueSince(*action, calendar, now);
    if (!since) continue;
    const std::int64_t ref = action->getReference();
    std::optional<ReferenceTime> lastTime;
    for (const ZAN_Value& one : before.elements())
      if (one.integer("Ref") == ref) lastTime = one["Date"].asDate();
    // An hour's look a little early is no reason to wait for the next one.
    const bool saysIt =
        !mQueue.contains(ref) && (!lastTime || now >= *lastTime + kDay - 60 || *lastTime > now);
    if (saysIt) {
      const auto days = static_cast<std::int64_t>((now - *since) / kDay);
      m.messages.displayStandardMessage(
          m.texts.text("ReportNoSuccessSince", {action->getTitle(), days}), LogCode::message);
      lastTime = now;
      isOther = true;
    }
    if (lastTime)
      said.append(ZAN_Value::dictionary({{"Ref", ref}, {"Date", ZAN_Value::date(*lastTime)}}));
  }
  if (!isOther && said.size() == before.size()) return;
  m.preferences.setPref(kSaid, said.empty() ? ZAN_Value() : said);
  m.preferences.savePrefs();
}

}  // namespace corvana
