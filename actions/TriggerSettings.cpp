#include "actions/TriggerSettings.h"

namespace corvana {

TriggerSettings::TriggerSettings(const ZAN_Value& settings)
    : schedule(settings),
      title(settings["Title"]),
      shortcut(settings["Shortcut"]),
      mode(settings.integer("Mode")),
      context(static_cast<ActionContext>(settings.integer("TriggerContextPopup"))),
      idleMinutes(settings.integer("TriggerScheduleMinutes")),
      notExecuted(settings.integer("TriggerNotificationNotExecuted")),
      notExecutedDays(settings.integer("TriggerDelayNotExecuted")) {
  const ZAN_Value& path = settings["TriggerAppQuitPath"];
  if (path.isString()) appQuitPath = path;
}

bool TriggerSettings::dependsOnKey(std::string_view key) {
  return Schedule::dependsOnKey(key) || key == "Title" || key == "Shortcut" || key == "Mode" ||
         key == "TriggerContextPopup" || key == "TriggerScheduleMinutes" ||
         key == "TriggerNotificationNotExecuted" || key == "TriggerDelayNotExecuted" ||
         key == "TriggerAppQuitPath";
}

}  // namespace corvana
