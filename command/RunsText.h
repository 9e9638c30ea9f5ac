#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class CommandHome;
struct Console;

/// A run of an action that lies ahead, with what people know the action by.
struct NamedRun {
  ReferenceTime date = 0;
  std::int64_t reference = 0;
  std::string title;
  bool shutDown = false;  ///< it runs when the machine is shut down, not at the date
};

/// The coming runs of all actions of that home, in order, `count` at most.
std::vector<NamedRun> comingRuns(CommandHome& home, std::size_t count, const Console& console);

/// The shortest decimal number that reads as the same instant.
std::string secondsText(ReferenceTime date);
/// One line a run: weekday, date and time on the user's clock, title and reference.
std::string textOfRuns(const std::vector<NamedRun>& runs, const CommandHome& home);
/// An array of {"date", "ref", "title", "shutdown"}.
std::string jsonOfRuns(const std::vector<NamedRun>& runs);
/// An iCalendar document (RFC 5545) with one event a run, in UTC.
std::string icsOfRuns(const std::vector<NamedRun>& runs, const CommandHome& home);

}  // namespace corvana
