// The command for the coming runs: as a list, as a calendar, or of records that it is given.

#include <array>
#include <charconv>
#include <cmath>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "command/CommandHome.h"
#include "command/RunningAgent.h"
#include "command/StorageCheck.h"

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

/// The shortest decimal number that reads as the same instant.
std::string secondsText(ReferenceTime date) {
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), date);
  return {buffer.data(), result.ptr};
}

/// A text value of iCalendar.
std::string escaped(std::string_view text) {
  std::string result;
  for (const char c : text) {
    if (c == '\\' || c == ';' || c == ',') result += '\\';
    if (c == '\n') {
      result += "\\n";
    } else if (static_cast<unsigned char>(c) >= 0x20 || c == '\t') {
      result += c;
    }
  }
  return result;
}

/// Adds a line, folded so that none is longer than 75 bytes and no character is cut.
void addLine(std::string& document, std::string line) {
  constexpr std::size_t kLongest = 75;
  while (line.size() > kLongest) {
    std::size_t cut = kLongest;
    while (cut > 1 && (static_cast<unsigned char>(line[cut]) & 0xC0) == 0x80) --cut;
    document.append(line, 0, cut) += "\r\n";
    line.replace(0, cut, " ");
  }
  document += line + "\r\n";
}

/// An iCalendar document (RFC 5545) with one event a run, in UTC; what is held up is tentative.
std::string calendarOf(const ZAN_Value& runs, const CommandHome& home,
                       const Circumstances& circumstances) {
  const ZAN_DateUtils utc("UTC", "C");
  const std::string_view pattern = "%Y%m%dT%H%M%SZ";
  std::string document;
  addLine(document, "BEGIN:VCALENDAR");
  addLine(document, "VERSION:2.0");
  addLine(document, "PRODID:-//Corvana 9//Scheduler//EN");
  addLine(document, "X-WR-TIMEZONE:" + escaped(home.calendar().zoneName()));
  for (const ZAN_Value& run : runs.elements()) {
    const std::string start = utc.format(run["date"].doubleValue(), pattern);
    addLine(document, "BEGIN:VEVENT");
    addLine(document, "UID:" + start + "-" + std::to_string(run.integer("ref")) + "@corvana9");
    addLine(document, "DTSTAMP:" + utc.format(home.now(), pattern));
    addLine(document, "DTSTART:" + start);
    addLine(document, "SUMMARY:" + escaped(run["title"].stringView()));
    std::string description = heldText(run, circumstances);
    addLine(document, description.empty() ? "STATUS:CONFIRMED" : "STATUS:TENTATIVE");
    if (run["shutdown"].boolValue()) {
      description = "Runs when the machine is shut down." +
                    (description.empty() ? std::string() : '\n' + description);
    }
    if (!description.empty()) addLine(document, "DESCRIPTION:" + escaped(description));
    addLine(document, "TRANSP:TRANSPARENT");
    addLine(document, "END:VEVENT");
  }
  addLine(document, "END:VCALENDAR");
  return document;
}

Answer datesOfRecords(const std::string& path, ReferenceTime now, bool firstAfterStartup,
                      const Console& console) {
  const Result<std::string> json = readText(path, console);
  if (!json) return json.error();
  const Result<ZAN_Value> records = ZAN_Json::valueWithJson(*json);
  if (!records) return Error{records.error().kind, path + ": " + records.error().text};
  if (!records->isArray()) return Error{ErrorKind::damaged, path + ": not an array of records"};
  const std::string zone = ZAN_DateUtils::systemZoneName();
  const ZAN_DateUtils calendar(zone, ZAN_DateUtils::systemRegionName());
  ConsoleLog log(console);
  if (!calendar.isKnownZone()) log.write(zone + ": unknown time zone, UTC is used");
  const ActionsTools tools(calendar, now, [&log](const std::string& line) { log.write(line); });
  std::string lines;
  for (const ZAN_Value& record : records->elements()) {
    bool shutDown = false;
    const auto date = tools.getNextScheduleDateForSettings(record, firstAfterStartup, &shutDown);
    lines += "{\"date\": " + (date ? secondsText(*date) : "null") +
             ", \"shutdown\": " + (shutDown ? "true" : "false") + "}\n";
  }
  return Answer::ofText(lines);
}

Answer comingRuns(std::size_t count, bool asCalendar, const Console& console) {
  CommandHome home(console);
  const Circumstances circumstances = RunningAgent(home).circumstances();
  const ZAN_Value runs = home.comingRuns(count, circumstances);
  if (asCalendar)
    return withStorageTroubles(Answer::ofText(calendarOf(runs, home, circumstances)), home);
  TextForm form(home.calendar());
  form.with("when", [&](const ZAN_Value& run) {
    const std::string held = heldText(run, circumstances);
    const bool isDue = run["date"].doubleValue() <= home.now();
    const char* when = run["shutdown"].boolValue() ? "  (at shutdown)"
                       : isDue && held.empty()     ? "  (due now)"
                                                   : "";
    return when + (held.empty() ? held : "  (" + held + ')');
  });
  return withStorageTroubles(
      {runs, form.fill("{!No run is scheduled.\n}{*{date:date}  {title} [{ref}]{:when}\n}", runs)},
      home);
}

}  // namespace

Answer nextCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const bool asCalendar = arguments.flag("--ics");
  const std::optional<std::string> records = arguments.option("--records");
  const std::optional<std::string> nowText = arguments.option("--now");
  const std::optional<ReferenceTime> now = nowText ? numberOf(*nowText) : std::nullopt;
  const bool firstAfterStartup = arguments.flag("--first-after-startup");
  const std::optional<std::int64_t> count = arguments.number("--count", 1, kMostRuns);
  if (nowText && !now)
    arguments.complain("--now wants seconds since 2001-01-01 00:00:00 UTC, not \"" + *nowText +
                       "\"");
  if (records) {
    if (!nowText) arguments.complain("--records wants --now too");
    if (count || asCalendar) arguments.complain("--count and --ics do not go with --records");
  } else if (nowText || firstAfterStartup) {
    arguments.complain("--now and --first-after-startup go with --records");
  } else if (asCalendar && json) {
    arguments.complain("--ics or --json, not both");
  }
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  return records ? datesOfRecords(*records, *now, firstAfterStartup, console)
                 : comingRuns(static_cast<std::size_t>(count.value_or(kUsualCount)), asCalendar,
                              console);
}

}  // namespace corvana
