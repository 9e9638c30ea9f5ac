#include "core/work/MissedRuns.h"

#include <algorithm>
#include <utility>

#include "actions/Forecast.h"
#include "actions/RecordKeys.h"
#include "core/record/Records.h"

namespace corvana {

namespace {

/// So late a look is still the one that was to come.
constexpr double kLateLook = 5.0;

}  // namespace

void MissedRuns::begin(const ZAN_DateUtils& calendar) {
  read();
  mCalendar = calendar;
  mThis = {.at = m.platform.clock.now(),
           .active = m.preferences.mPrefScheduleDisabled == 0 && !m.state.mPause,
           .context = static_cast<ActionContext>(m.state.mContext)};
  mIsGap = mLast && mLast->active && mThis.active && mThis.at > mLast->next + kLateLook;
  mStillWaiting.clear();
}

std::optional<ReferenceTime> MissedRuns::dueNow(const ProgrammedAction& action,
                                                const StartVerdict& verdict) {
  if (!wasMissed(action, verdict)) return std::nullopt;
  const std::int64_t ref = action.getReference();
  const ReferenceTime date = mWaiting[ref];
  if (verdict.inHours && !m.state.mScheduleDisabled) return date;
  mStillWaiting[ref] = date;
  return std::nullopt;
}

/// Whether a run of the action waits to be made up.
bool MissedRuns::wasMissed(const ProgrammedAction& action, const StartVerdict& verdict) {
  const std::int64_t ref = action.getReference();
  if (!verdict.automatic || !verdict.inContext || !mThis.active) return false;
  if (!mIsGap && !mWaiting.contains(ref)) return false;
  if (action.getSettings().integer(ActionKey::makesUpMissed) == 0) return false;
  const Schedule& schedule = action.schedule();
  if (mIsGap && !isOtherContext(action.getActionContext(), mLast->context)) {
    if (const auto missed = Forecast(*mCalendar, schedule).lastWithin(mLast->at, mThis.at))
      mWaiting[ref] = *missed;
  }
  const auto missed = mWaiting.find(ref);
  if (missed == mWaiting.end()) return false;
  // It has run or was edited since, or is due by itself.
  const auto last = schedule.lastScheduleDate;
  return !(last && *last >= missed->second) && !(verdict.date && *verdict.date <= mThis.at);
}

void MissedRuns::end() {
  const bool isOther = !mLast || mIsGap || mLast->active != mThis.active ||
                       mLast->context != mThis.context || mWaiting != mStillWaiting;
  mThis.next = std::max(mThis.at, m.state.mNextCheck.at());
  mLast = mThis;
  mWaiting = std::exchange(mStillWaiting, {});
  mCalendar.reset();
  if (isOther)
    save();
  else
    m.store.files().writeRarely(DataFolder::kLastLook, [this] { save(); });
}

void MissedRuns::read() {
  if (std::exchange(mIsRead, true)) return;
  const ZAN_Value stored = m.store.files().readObjectFromFile(DataFolder::kLastLook);
  const auto at = stored["Date"].asDate();
  const auto next = stored["Next"].asDate();
  if (!at || !next) return;
  mLast = {.at = *at,
           .next = *next,
           .active = stored.integer("Active") != 0,
           .context = static_cast<ActionContext>(stored.integer("Context"))};
  for (const ZAN_Value& one : stored["Missed"].elements()) {
    if (const auto date = one["Date"].asDate()) mWaiting[one.integer("Ref")] = *date;
  }
}

void MissedRuns::save() {
  ZAN_Value missed = ZAN_Value::array();
  for (const auto& [ref, date] : mWaiting)
    missed.append(ZAN_Value::dictionary({{"Ref", ref}, {"Date", ZAN_Value::date(date)}}));
  (void)m.store.files().writeObjectToFile(
      ZAN_Value::dictionary({{"Date", ZAN_Value::date(mLast->at)},
                             {"Next", ZAN_Value::date(mLast->next)},
                             {"Active", mLast->active ? 1 : 0},
                             {"Context", static_cast<std::int64_t>(mLast->context)},
                             {"Missed", missed}}),
      DataFolder::kLastLook, DataFiles::Saving::soon);
}

}  // namespace corvana
