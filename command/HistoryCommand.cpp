#include <algorithm>
#include <cmath>
#include <map>
#include <optional>
#include <ostream>

#include "actions/History.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunningAgent.h"

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

std::string twoDigits(std::int64_t number) {
  return (number < 10 ? "0" : "") + std::to_string(number);
}

std::string durationInWords(double seconds) {
  const auto whole = std::max<std::int64_t>(0, std::llround(seconds));
  return std::to_string(whole / 3600) + ":" + twoDigits(whole / 60 % 60) + ":" +
         twoDigits(whole % 60);
}

std::string latenessInWords(double seconds) {
  if (seconds < kOnTime) return "on time";
  const auto minutes = static_cast<std::int64_t>(seconds / 60);
  if (minutes < 60) return std::to_string(minutes) + " min late";
  if (minutes < 48 * 60)
    return std::to_string(minutes / 60) + " h " + std::to_string(minutes % 60) + " min late";
  return std::to_string(minutes / (24 * 60)) + " days late";
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

/// One execution as it is shown.
struct Execution {
  Execution(const ZAN_Value& entry, const Launches& launches)
      : title(entry.string("Title")),
        ref(entry.integer("Ref")),
        start(entry["Date"].asDate()),
        end(entry["EndDate"].asDate()),
        code(entry.integer("C")),
        errors(entry.integer("ActionErrors")) {
    const auto* launch = start ? launches.launchOf(ref, *start) : nullptr;
    if (launch == nullptr) return;
    if (code == kLaunched && launch->crashed) code = kCrashed;
    if (launch->due) late = std::max(0.0, *start - *launch->due);
  }

  std::string title;
  std::int64_t ref;
  std::optional<ReferenceTime> start, end;
  std::int64_t code;
  std::int64_t errors;
  std::optional<double> late;
};

std::string lineOf(const Execution& execution, const CommandHome& home) {
  std::string line = execution.start ? home.dateText(*execution.start) : "at some time";
  line += "  ";
  line += execution.start && execution.end ? durationInWords(*execution.end - *execution.start)
                                           : "-:--:--";
  line += "  " + printable(execution.title);
  if (execution.ref != 0) line += " [" + std::to_string(execution.ref) + "]";
  line += ": " + resultInWords(execution.code);
  if (execution.errors != 0)
    line +=
        ", " + std::to_string(execution.errors) + (execution.errors == 1 ? " error" : " errors");
  if (execution.late) line += ", " + latenessInWords(*execution.late);
  return line;
}

ZAN_Value asValue(const Execution& execution) {
  const auto date = [](const std::optional<ReferenceTime>& when) {
    return when ? ZAN_Value(*when) : ZAN_Value();
  };
  return ZAN_Value::dictionary({{"title", execution.title},
                                {"ref", execution.ref},
                                {"start", date(execution.start)},
                                {"end", date(execution.end)},
                                {"code", execution.code},
                                {"result", resultInWords(execution.code)},
                                {"errors", execution.errors},
                                {"late", date(execution.late)}});
}

}  // namespace

int historyCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const auto count = arguments.number("--count", 1, History::kMaximum);
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  ZAN_Value list = ZAN_Value::array();
  if (home.isThere()) {
    History history(home.store());
    const Launches launches(history.log().readLogList());
    const auto all = static_cast<std::int64_t>(history.historyCount());
    for (auto i = std::max<std::int64_t>(0, all - count.value_or(kUsualCount)); i < all; ++i) {
      const Execution execution(history.historyEntryAtIndex(i), launches);
      if (json) {
        list.append(asValue(execution));
      } else {
        console.out << lineOf(execution, home) << '\n';
      }
    }
    if (!json && all == 0) console.out << "Nothing has been executed yet.\n";
  } else if (!json) {
    console.out << "Nothing has been executed yet.\n";
  }
  if (json) console.out << jsonText(list);
  return kDone;
}

}  // namespace corvana
