#include "platform/linux/WakeAlarm.h"

#include <fstream>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr double kHelperSeconds = 5;

std::string unixTime(std::int64_t time) {
  return std::to_string(time + static_cast<std::int64_t>(kReferenceEpochInUnixTime));
}

}  // namespace

bool WakeAlarm::canWake() const {
  const auto clocks = ZAN_FilesUtils::listFolder(mPlaces.clocks);
  if (!clocks) return false;
  for (const std::string& clock : *clocks) {
    std::ifstream file(mPlaces.clocks + "/" + clock + "/device/power/wakeup");
    std::string state;
    if (file >> state && state == "enabled") return true;
  }
  return false;
}

Outcome WakeAlarm::set(std::int64_t time) const {
  if (!canWake()) {
    return Error{ErrorKind::unavailable,
                 mPlaces.clocks +
                     ": this machine has no clock that could wake it; leave it switched "
                     "on when actions are due"};
  }
  if (const Outcome made = ZAN_FilesUtils::createFolder(mPlaces.folder, 0700); !made) return made;
  const auto ended =
      runToolBlocking({mPlaces.helper, "set", unixTime(time), mPlaces.folder}, kHelperSeconds);
  if (!ended) return ended.error();
  return {};
}

void WakeAlarm::cancel(std::int64_t time) const {
  // Without the helper there is no alarm either.
  static_cast<void>(
      runToolBlocking({mPlaces.helper, "cancel", unixTime(time), mPlaces.folder}, kHelperSeconds));
}

}  // namespace corvana
