// The commands that show what happened: history and log.

#include <algorithm>
#include <cmath>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/History.h"
#include "actions/TaskRequest.h"
#include "command/ActionWords.h"

namespace corvana {

namespace {

constexpr std::int64_t kUsualCount = 20;
constexpr std::int64_t kLaunched = 1;
constexpr std::int64_t kCrashed = 6;
/// Between a launch in the log and what the execute program takes as its start.
constexpr double kStartAtMost = 60;
constexpr double kClockStep = 1;
constexpr double kOnTime = 60;

std::string resultInWords(std::int64_t code) {
  switch (code) {
    case kLaunched:
      return "not ended";
    case 2:
      return "completed";
    case 3:
      return "stopped by the user";
    case 4:
      return "cancelled, a volume or folder was not found";
    case 5:
      return "aborted by an unexpected error";
    case kCrashed:
      return "crashed";
    case 11:
      return "timed out";
    case 14:
      return "completed with errors";
    case 15:
      return "aborted, its volume went away";
    case 17:
      return "cancelled, a volume or folder was not available";
    default:
      return "ended with code " + std::to_string(code);
  }
}

std::string durationInWords(const ZAN_Value& execution) {
  if (execution["start"].isNull() || execution["end"].isNull()) return "-:--:--";
  const double seconds = execution["end"].doubleValue() - execution["start"].doubleValue();
  return ZAN_StringUtils::getDuration(std::llround(seconds));
}

/// ", 12 files (3.4 MB) copied, 2 deleted".
std::string workInWords(const ZAN_Value& execution) {
  if (!execution.contains("files")) return {};
  const std::int64_t files = execution.integer("files");
  const std::string kind = execution.string("kind");
  std::string text = ", " + std::to_string(files) + (files == 1 ? " file (" : " files (") +
                     ZAN_StringUtils("C").getShortSizeBytes(execution["bytes"].unsignedValue()) +
                     (kind == TaskRequest::kVerify    ? ") read"
                      : kind == TaskRequest::kRestore ? ") restored"
                                                      : ") copied");
  for (const auto& [key, word] : {std::pair{"filesReplaced", " replaced"},
                                  {"filesDeleted", " deleted"},
                                  {"skipped", " skipped"},
                                  {"notPossible", " not possible"}}) {
    if (execution.integer(key) > 0) text += ", " + std::to_string(execution.integer(key)) + word;
  }
  return text;
}

std::string latenessInWords(const ZAN_Value& late) {
  if (late.isNull()) return {};
  if (late.doubleValue() < kOnTime) return ", on time";
  const auto minutes = static_cast<std::int64_t>(late.doubleValue() / 60);
  if (minutes < 60) return ", " + std::to_string(minutes) + " min late";
  if (minutes < 48 * 60)
    return ", " + std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min late";
  return ", " + std::to_string(minutes / (24 * 60)) + " days late";
}

/// What the log tells of the executions.
class Launches {
 public:
  explicit Launches(const ZAN_Value& log) {
    for (const ZAN_Value& entry : log.elements()) {
      const auto date = entry["M"].asDate();
      if (!date) continue;
      if (entry.integer("C") == kLaunched)
        mLaunches[entry.integer("R")].push_back({*date, entry["D"].asDate(), false});
      auto& launches = mLaunches[entry.integer("R")];
      if (entry.integer("C") == kCrashed && !launches.empty()) launches.back().crashed = true;
    }
  }

  struct Launch {
    ReferenceTime date = 0;
    std::optional<ReferenceTime> due;
    bool crashed = false;
  };
  /// The launch that led to an execution begun at `start`.
  const Launch* launchOf(std::int64_t ref, ReferenceTime start) const {
    const auto found = mLaunches.find(ref);
    if (found == mLaunches.end()) return nullptr;
    const auto& launches = found->second;
    const auto before = std::find_if(launches.rbegin(), launches.rend(), [&](const Launch& one) {
      return one.date <= start + kClockStep && start - one.date <= kStartAtMost;
    });
    return before == launches.rend() ? nullptr : &*before;
  }

 private:
  std::map<std::int64_t, std::vector<Launch>> mLaunches;
};

/// An entry of the history as it is shown.
ZAN_Value executionOf(const ZAN_Value& entry, const Launches& launches) {
  const auto start = entry["Date"].asDate();
  const auto end = entry["EndDate"].asDate();
  const std::int64_t ref = entry.integer("Ref");
  std::int64_t code = entry.integer("C");
  ZAN_Value late;
  if (const auto* launch = start ? launches.launchOf(ref, *start) : nullptr) {
    if (code == kLaunched && launch->crashed) code = kCrashed;
    if (launch->due && !entry.contains(TaskRequest::kTaskKey))
      late = std::max(0.0, *start - *launch->due);
  }
  ZAN_Value execution = ZAN_Value::dictionary(
      {{"title", entry.string("Title")},
       {"ref", ref},
       {"start", start ? ZAN_Value(*start) : ZAN_Value()},
       {"end", end ? ZAN_Value(*end) : ZAN_Value()},
       {"code", code},
       {"result", entry.integer(RunKey::onlyLacks) != 0 ? "completed but for what cannot be copied"
                                                        : resultInWords(code)},
       {"kind", entry.contains(TaskRequest::kTaskKey) ? entry.string(TaskRequest::kTaskKey)
                                                      : std::string("run")},
       {"errors", entry.integer("ActionErrors")},
       {"late", late}});
  // What an execute program of another kind does not count is not there.
  for (const auto& [name, key] : {std::pair{"files", RunKey::filesCopied},
                                  {"bytes", RunKey::bytesCopied},
                                  {"filesReplaced", RunKey::filesReplaced},
                                  {"bytesReplaced", RunKey::bytesReplaced},
                                  {"filesDeleted", RunKey::filesDeleted},
                                  {"bytesDeleted", RunKey::bytesDeleted},
                                  {"skipped", RunKey::skipped},
                                  {"notPossible", RunKey::notPossible},
                                  {"reason", RunKey::reason}}) {
    if (entry.contains(key)) execution.setValue(name, entry[key]);
  }
  if (start && end) {
    const double seconds = *end - *start;
    execution.setValue("seconds", seconds);
    if (entry.contains(RunKey::bytesCopied) && seconds >= 1)
      execution.setValue("bytesPerSecond", entry[RunKey::bytesCopied].doubleValue() / seconds);
  }
  return execution;
}

ZAN_Value eventOf(const ZAN_Value& entry) {
  ZAN_Value value = ZAN_Value::dictionary({{"date", entry["M"]},
                                           {"code", entry.integer("C")},
                                           {"text", ActionLog::messageForEntry(entry)}});
  for (const auto& [name, key] :
       {std::pair{"name", "N"}, {"ref", "R"}, {"path", "P"}, {"status", "S"}})
    if (entry.contains(key)) value.setValue(name, entry[key]);
  return value;
}

}  // namespace

Answer historyCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto count = arguments.number("--count", 1, History::kMaximum);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  ZAN_Value list = ZAN_Value::array();
  if (home.isThere()) {
    History history(home.store());
    const Launches launches(history.log().readLogList());
    const auto all = static_cast<std::int64_t>(history.historyCount());
    for (auto i = std::max<std::int64_t>(0, all - count.value_or(kUsualCount)); i < all; ++i)
      list.append(executionOf(history.historyEntryAtIndex(i), launches));
  }
  TextForm form(home.calendar());
  form.with("duration", durationInWords).with("lateness", latenessInWords);
  form.with("work", workInWords).with("task", taskInWords);
  form.with("errors", [](const ZAN_Value& errors) {
    const std::int64_t number = errors.integerValue();
    return std::to_string(number) + (number == 1 ? " error" : " errors");
  });
  return {list, form.fill("{!Nothing has been executed yet.\n}"
                          "{*{start:date}  {:duration}  {title}{ref? [{ref}]}{kind:task}: {result}"
                          "{errors?, {errors:errors}}{:work}{late:lateness}\n}",
                          list)};
}

Answer logCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  const auto count = arguments.number("--count", 1, ActionLog::kMaximum);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  const ZAN_Value log = home.isThere() ? ActionLog(home.store()).readLogList() : ZAN_Value::array();
  const auto shown = std::min(log.size(), static_cast<std::size_t>(count.value_or(kUsualCount)));
  ZAN_Value list = ZAN_Value::array();
  for (const ZAN_Value& entry : log.elements().last(shown)) list.append(eventOf(entry));
  return {list, TextForm(home.calendar())
                    .fill("{!Nothing has happened yet.\n}{*{date:seconds}  {text}\n}", list)};
}

}  // namespace corvana
