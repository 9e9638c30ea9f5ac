// Settings files and actions with values of any type under any key: each is read as something, and
// what is saved afterwards can be read.

#include <cstdint>
#include <cstdlib>
#include <span>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionStore.h"
#include "actions/ActionsTools.h"
#include "actions/Forecast.h"
#include "actions/Schedule.h"
#include "core/record/Deadline.h"
#include "core/record/Preferences.h"
#include "platform/simulated/SimulatedPlatform.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvana;
  const auto value =
      ZAN_Json::valueWithJson(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!value || !value->isDictionary()) return 0;
  static SimulatedPlatform platform;
  platform.systemLog.lines.clear();
  ActionStore store(platform.clock, platform.machine, platform.systemLog);
  if (!store.files().writeObjectToFile(*value, DataFolder::kSchedulerSettings)) std::abort();
  DeadlineList deadlines;
  Preferences preferences(store.settings(), platform.machine, deadlines, platform.clock.now());
  preferences.loadPrefs();
  for (const Preference& one : Preferences::table()) static_cast<void>(preferences.valueOf(one));
  preferences.setPref("of the fuzzer", 7);
  preferences.savePrefs();
  if (ActionStore(platform.clock, platform.machine, platform.systemLog)
          .settings()
          .schedulerSettings()
          .integer("of the fuzzer") != 7)
    std::abort();
  static const ActionsTools tools(ZAN_DateUtils("Europe/Paris", "C"), platform.clock.now());
  const auto next = Forecast(tools.calendar(), Schedule(*value)).next(tools.now());
  if (next && next->date < tools.now() - 86400.0 * 366) std::abort();
  return 0;
}
