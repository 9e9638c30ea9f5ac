#include <charconv>
#include <cmath>
#include <fstream>
#include <istream>
#include <iterator>
#include <ostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionsTools.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/RunsText.h"

namespace corvana {

namespace {

constexpr std::int64_t kUsualCount = 10;
constexpr std::int64_t kMostRuns = 100'000;

std::optional<ReferenceTime> numberOf(const std::string& text) {
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

Result<std::string> contentsOf(const std::string& path, const Console& console) {
  if (path == "-") return std::string(std::istreambuf_iterator<char>(console.in), {});
  std::ifstream file(path, std::ios::binary);
  if (!file) return Error{ErrorKind::unreadable, path + ": cannot be read"};
  return std::string(std::istreambuf_iterator<char>(file), {});
}

ActionsTools::Log logTo(const Console& console) {
  return [&console](const std::string& line) { console.err << "corvana9: " << line << '\n'; };
}

int printDatesOfRecords(const std::string& path, ReferenceTime now, bool firstAfterStartup,
                        const Console& console) {
  const Result<std::string> json = contentsOf(path, console);
  if (!json) return failed(console, json.error());
  const Result<ZAN_Value> records = ZAN_Json::valueWithJson(*json);
  if (!records) return failed(console, {records.error().kind, path + ": " + records.error().text});
  if (!records->isArray())
    return failed(console, {ErrorKind::damaged, path + ": not an array of records"});
  const std::string zone = ZAN_DateUtils::systemZoneName();
  const ZAN_DateUtils calendar(zone, ZAN_DateUtils::systemRegionName());
  if (!calendar.isKnownZone())
    console.err << "corvana9: " << zone << ": unknown time zone, UTC is used\n";
  const ActionsTools tools(calendar, now, logTo(console));
  for (const ZAN_Value& record : records->elements()) {
    bool shutDown = false;
    const auto date = tools.getNextScheduleDateForSettings(record, firstAfterStartup, &shutDown);
    console.out << "{\"date\": " << (date ? secondsText(*date) : "null")
                << ", \"shutdown\": " << (shutDown ? "true" : "false") << "}\n";
  }
  return kDone;
}

struct Form {
  std::int64_t count = kUsualCount;
  bool json = false;
  bool ics = false;
};

int printComingRuns(const Form& form, const Console& console) {
  CommandHome home(console);
  const std::vector<NamedRun> list =
      comingRuns(home, static_cast<std::size_t>(form.count), console);
  if (form.ics) {
    console.out << icsOfRuns(list, home);
  } else if (form.json) {
    console.out << jsonOfRuns(list);
  } else {
    console.out << textOfRuns(list, home);
  }
  return kDone;
}

}  // namespace

int nextCommand(Arguments& arguments, const Console& console) {
  const std::optional<std::string> records = arguments.option("--records");
  const std::optional<std::string> nowText = arguments.option("--now");
  const std::optional<ReferenceTime> now = nowText ? numberOf(*nowText) : std::nullopt;
  const bool firstAfterStartup = arguments.flag("--first-after-startup");
  const std::optional<std::int64_t> count = arguments.number("--count", 1, kMostRuns);
  const Form form{count.value_or(kUsualCount), arguments.json(), arguments.flag("--ics")};
  if (nowText && !now)
    arguments.complain("--now wants seconds since 2001-01-01 00:00:00 UTC, not \"" + *nowText +
                       "\"");
  if (records) {
    if (!nowText) arguments.complain("--records wants --now too");
    if (count || form.ics) arguments.complain("--count and --ics do not go with --records");
  } else if (nowText || firstAfterStartup) {
    arguments.complain("--now and --first-after-startup go with --records");
  } else if (form.ics && form.json) {
    arguments.complain("--ics or --json, not both");
  }
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  return records ? printDatesOfRecords(*records, *now, firstAfterStartup, console)
                 : printComingRuns(form, console);
}

}  // namespace corvana
