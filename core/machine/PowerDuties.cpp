#include "core/machine/PowerDuties.h"

#include <algorithm>
#include <cmath>
#include <filesystem>

#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"

namespace corvana {

namespace {

const std::string kIdentifier = "com.zan.corvana9";
/// What was refused last is remembered over a restart of the agent, so that it is said once.
const std::string kRefusal = "WakeupRefusal";
constexpr double kAheadOfAction = 10.0;
constexpr double kNearest = 60.0;
constexpr double kWhileExecuting = 300.0;
constexpr double kRetryRefused = 300.0;
/// So little a change of the date leaves the wake-up as it is.
constexpr std::int64_t kTolerance = 300;

}  // namespace

bool WakeUp::isOn() const { return m.preferences.mCheckWakeupMachine; }

std::optional<ReferenceTime> WakeUp::nextWakeDate() const {
  if (m.state.mExecuting) {
    const ReferenceTime now = m.platform.clock.now();
    if (now <= static_cast<double>(m.preferences.mSchedulerLastWakeupTime)) return std::nullopt;
    return now + kWhileExecuting;
  }
  return mEvaluation.nextRun();
}

std::optional<std::int64_t> WakeUp::timeToProgram() const {
  if (!isOn()) return std::nullopt;
  const auto date = nextWakeDate();
  if (!date || *date - m.platform.clock.now() < kNearest) return std::nullopt;
  const auto time = static_cast<std::int64_t>(std::floor(*date - kAheadOfAction));
  const std::int64_t difference = time - m.preferences.mSchedulerLastWakeupTime;
  if (difference > -kTolerance && difference < kTolerance) return std::nullopt;
  return time;
}

bool WakeUp::retryIsDue() const {
  const ReferenceTime now = m.platform.clock.now();
  return isOn() && mRefused && now > *mRefused + kRetryRefused &&
         static_cast<double>(m.preferences.mSchedulerLastWakeupTime) > now;
}

ReferenceTime WakeUp::nextWork() const {
  const ReferenceTime now = m.platform.clock.now();
  if (!isOn()) return kNever;
  if (timeToProgram() || retryIsDue()) return kAtOnce;
  const auto last = static_cast<double>(m.preferences.mSchedulerLastWakeupTime);
  const ReferenceTime passed = m.state.mExecuting && last >= now ? last : kNever;
  return mRefused && last > now ? std::min(passed, *mRefused + kRetryRefused) : passed;
}

void WakeUp::doSetWakeup() {
  const auto time = timeToProgram();
  if (!time) {
    if (retryIsDue()) schedule(m.preferences.mSchedulerLastWakeupTime);
    return;
  }
  if (const std::int64_t last = m.preferences.mSchedulerLastWakeupTime; last != 0)
    m.platform.power.cancelWake(last, kIdentifier);
  m.preferences.mSchedulerLastWakeupTime = *time;
  m.preferences.setPref(PreferenceKey::lastWakeupTime, static_cast<long long>(*time));
  m.preferences.savePrefs();
  schedule(*time);
  const auto running = m.platform.processes.running();
  m.store.activity().saveActivity(std::nullopt, m.siblingWatch.isMainAppAmong(running),
                                  m.siblingWatch.isExecuteAppAmong(running),
                                  static_cast<double>(*time), running);
}

void WakeUp::followPreferences() {
  if (isOn() || m.preferences.mSchedulerLastWakeupTime == 0) return;
  m.platform.power.cancelWake(m.preferences.mSchedulerLastWakeupTime, kIdentifier);
  m.preferences.mSchedulerLastWakeupTime = 0;
  m.preferences.setPref(PreferenceKey::lastWakeupTime, 0);
  m.preferences.savePrefs();
  mRefused.reset();
}

void WakeUp::restoreWakeup() {
  followPreferences();
  const std::int64_t time = m.preferences.mSchedulerLastWakeupTime;
  if (isOn() && static_cast<double>(time) > m.platform.clock.now()) schedule(time);
}

std::string WakeUp::hindrance() const {
  if (!m.platform.power.canWake()) return m.texts.text("LackingWake");
  return m.platform.machine.userDefault(kRefusal).string();
}

void WakeUp::schedule(std::int64_t time) {
  Machine& machine = m.platform.machine;
  const Outcome scheduled = m.platform.power.scheduleWake(time, kIdentifier);
  std::string refusal = scheduled ? std::string() : scheduled.error().text;
  if (!scheduled && !m.platform.power.canWake()) refusal = m.texts.text("LackingWake");
  mRefused = scheduled ? std::nullopt : std::optional(m.platform.clock.now());
  if (refusal == machine.userDefault(kRefusal).string()) return;
  machine.setUserDefault(kRefusal, refusal.empty() ? ZAN_Value() : ZAN_Value(refusal));
  if (refusal.empty()) return;
  m.platform.systemLog.write(scheduled.error().text);
  m.messages.displayStandardMessage(m.texts.text("WakeUpRefused", {refusal}),
                                    LogCode::schedulerMessage);
}

const std::string& ShutdownHelper::bundle() const {
  return m.store.installPaths().installPathForCode(InstallPaths::shutDownBundle);
}

void ShutdownHelper::update() {
  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getListOfShutDownActions(actions);
  if (actions.empty()) return end();
  std::error_code ignored;
  if (!std::filesystem::exists(bundle(), ignored)) return;
  const auto running = m.platform.processes.running();
  if (std::ranges::find(running, bundle(), &RunningProcess::bundlePath) != running.end()) return;
  if (const Outcome opened = m.platform.processes.open(bundle()); !opened)
    m.platform.systemLog.write(opened.error().text);
}

void ShutdownHelper::end() {
  const auto running = m.platform.processes.running();
  const auto found = std::ranges::find(running, bundle(), &RunningProcess::bundlePath);
  if (found != running.end()) m.platform.processes.kill(found->pid);
}

}  // namespace corvana
