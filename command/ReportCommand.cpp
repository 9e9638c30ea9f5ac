#include <array>
#include <charconv>
#include <optional>
#include <ostream>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "command/CommandHome.h"
#include "command/Commands.h"
#include "command/ReportMail.h"
#include "command/RunningAgent.h"

namespace corvana {

namespace {

/// The first instant of a day "2026-11-24"; nothing for other texts and days that do not exist.
std::optional<ReferenceTime> dayFrom(std::string_view text, const ZAN_DateUtils& calendar) {
  std::array<int, 3> numbers{};
  const char* next = text.data();
  const char* const end = text.data() + text.size();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0 && (next == end || *next++ != '-')) return std::nullopt;
    const auto [stop, error] = std::from_chars(next, end, numbers[i]);
    if (error != std::errc() || numbers[i] < 0) return std::nullopt;
    next = stop;
  }
  if (next != end) return std::nullopt;
  return calendar.dateForDay(numbers[2], numbers[1], numbers[0]);
}

}  // namespace

int reportCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const bool preview = arguments.flag("--preview");
  const bool mail = arguments.flag("--mail");
  const auto dateWord = arguments.option("--date");
  if ((preview && mail) || (dateWord && (preview || mail)))
    arguments.complain("--date, --preview and --mail are three different things");
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(console, words.error());
  CommandHome home(console);
  if (preview) return previewReportMail(home, json, console);
  if (mail) return sendReportMail(home, json, console);
  const auto day = dateWord ? dayFrom(*dateWord, home.calendar()) : home.now();
  if (!day) {
    return wrongWords(console, {ErrorKind::refused,
                                "--date wants a day as 2026-11-24, not \"" + *dateWord + "\""});
  }
  const std::string shownDay = home.calendar().format(*day, "%Y-%m-%d");
  const Error none{ErrorKind::absent, "there is no report of " + shownDay};
  if (!home.isThere()) return failed(console, none);
  const std::string path = home.store().texts().reportFileNameForDate(*day);
  if (!ZAN_FilesUtils::exists(path)) return failed(console, none);
  const auto contents = ZAN_FilesUtils::readFile(path);
  if (!contents) return failed(console, contents.error());
  if (json) {
    console.out << jsonText(
        ZAN_Value::dictionary({{"day", shownDay}, {"path", path}, {"text", contents->bytes}}));
    return kDone;
  }
  printLines(contents->bytes, console.out);
  return kDone;
}

}  // namespace corvana
