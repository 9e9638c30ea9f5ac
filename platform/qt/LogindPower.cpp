#include "platform/qt/LogindPower.h"

namespace corvana {

LogindPower::LogindPower(Logind& logind, WakeAlarm alarm)
    : mLogind(logind), mAlarm(std::move(alarm)) {
  mLogind.setHandlers({[this](bool begins) {
                         const auto& told = begins ? mObserver.willSleep : mObserver.didWake;
                         if (told) told();
                       },
                       [this](bool begins) {
                         if (!begins && mObserver.shutDownIsOff) mObserver.shutDownIsOff();
                       }});
}

LogindPower::~LogindPower() { mLogind.setHandlers({}); }

Outcome LogindPower::scheduleWake(std::int64_t time, const std::string&) {
  return mAlarm.set(time);
}

void LogindPower::cancelWake(std::int64_t time, const std::string&) { mAlarm.cancel(time); }

Outcome LogindPower::shutDown() {
  // Whoever has begun it decides whether it is a restart.
  return mLogind.isShuttingDown() ? Outcome() : mLogind.powerOff();
}

}  // namespace corvana
