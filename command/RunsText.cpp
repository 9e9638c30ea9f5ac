#include "command/RunsText.h"

#include <array>
#include <charconv>
#include <optional>
#include <ostream>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ComingRuns.h"
#include "command/CommandHome.h"
#include "command/Commands.h"

namespace corvana {

namespace {

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

}  // namespace

std::string secondsText(ReferenceTime date) {
  std::array<char, 32> buffer{};
  const auto result = std::to_chars(buffer.data(), buffer.data() + buffer.size(), date);
  return {buffer.data(), result.ptr};
}

std::vector<NamedRun> comingRuns(CommandHome& home, std::size_t count, const Console& console) {
  ProgrammedAction::Nodes actions;
  if (home.isThere()) home.tree().rootItem().getListOfAllProgrammedActions(actions);
  ComingRuns runs(home.calendar(), home.now(), [&console](const std::string& line) {
    console.err << "corvana9: " << line << '\n';
  });
  for (const ProgrammedAction* action : actions) runs.add(action->schedule());
  std::vector<NamedRun> list;
  while (list.size() < count) {
    const std::optional<ComingRuns::Run> run = runs.next();
    if (!run) break;
    const ProgrammedAction& action = *actions[run->action];
    list.push_back({run->date, action.getReference(), action.getTitle(), run->shutDown});
  }
  return list;
}

std::string textOfRuns(const std::vector<NamedRun>& runs, const CommandHome& home) {
  if (runs.empty()) return "No run is scheduled.\n";
  std::string text;
  for (const NamedRun& run : runs) {
    const std::string_view when = run.date <= home.now() ? "  (due now)"
                                  : run.shutDown         ? "  (at shutdown)"
                                                         : "";
    text += home.dateText(run.date) + "  " + printable(run.title) + " [" +
            std::to_string(run.reference) + "]";
    text.append(when) += '\n';
  }
  return text;
}

std::string jsonOfRuns(const std::vector<NamedRun>& runs) {
  ZAN_Value list = ZAN_Value::array();
  for (const NamedRun& run : runs) {
    list.append(ZAN_Value::dictionary({{"date", run.date},
                                       {"ref", run.reference},
                                       {"title", run.title},
                                       {"shutdown", run.shutDown}}));
  }
  const auto json = ZAN_Json::jsonWithValue(list, {.plain = true});
  return json ? *json + "\n" : "[]\n";
}

std::string icsOfRuns(const std::vector<NamedRun>& runs, const CommandHome& home) {
  const ZAN_DateUtils utc("UTC", "C");
  const std::string_view pattern = "%Y%m%dT%H%M%SZ";
  std::string document;
  addLine(document, "BEGIN:VCALENDAR");
  addLine(document, "VERSION:2.0");
  addLine(document, "PRODID:-//Corvana 9//Scheduler//EN");
  addLine(document, "X-WR-TIMEZONE:" + escaped(home.calendar().zoneName()));
  for (const NamedRun& run : runs) {
    const std::string start = utc.format(run.date, pattern);
    addLine(document, "BEGIN:VEVENT");
    addLine(document, "UID:" + start + "-" + std::to_string(run.reference) + "@corvana9");
    addLine(document, "DTSTAMP:" + utc.format(home.now(), pattern));
    addLine(document, "DTSTART:" + start);
    addLine(document, "SUMMARY:" + escaped(run.title));
    if (run.shutDown) addLine(document, "DESCRIPTION:Runs when the machine is shut down.");
    addLine(document, "TRANSP:TRANSPARENT");
    addLine(document, "END:VEVENT");
  }
  addLine(document, "END:VCALENDAR");
  return document;
}

}  // namespace corvana
