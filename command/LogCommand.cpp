#include <algorithm>
#include <ostream>

#include "actions/ActionLog.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"

namespace corvana {

namespace {

constexpr std::int64_t kUsualCount = 20;

ZAN_Value asValue(const ZAN_Value& entry) {
  ZAN_Value value = ZAN_Value::dictionary({{"date", entry["M"]},
                                           {"code", entry.integer("C")},
                                           {"text", ActionLog::messageForEntry(entry)}});
  if (entry.contains("N")) value.setValue("name", entry["N"]);
  if (entry.contains("R")) value.setValue("ref", entry["R"]);
  if (entry.contains("P")) value.setValue("path", entry["P"]);
  if (entry.contains("S")) value.setValue("status", entry["S"]);
  return value;
}

}  // namespace

int logCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto count = arguments.number("--count", 1, ActionLog::kMaximum);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  const ZAN_Value log = home.isThere() ? ActionLog(home.store()).readLogList() : ZAN_Value::array();
  const auto shown = std::min(log.size(), static_cast<std::size_t>(count.value_or(kUsualCount)));
  ZAN_Value list = ZAN_Value::array();
  if (!json && log.empty()) console.out << "Nothing has happened yet.\n";
  for (std::size_t i = log.size() - shown; i < log.size(); ++i) {
    const ZAN_Value& entry = log.at(i);
    if (json) {
      list.append(asValue(entry));
      continue;
    }
    const auto date = entry["M"].asDate();
    console.out << (date ? home.calendar().format(*date, "%a %Y-%m-%d %H:%M:%S")
                         : std::string("at some time"))
                << "  " << printable(ActionLog::messageForEntry(entry)) << '\n';
  }
  if (json) console.out << jsonText(list);
  return kDone;
}

}  // namespace corvana
