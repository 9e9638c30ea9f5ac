#pragma once

#include "command/CommandHome.h"
#include "command/Commands.h"

namespace corvana {

/// What the agent would mail when it is asked for a report now: address lines, an empty line, the
/// message. Gives the exit code; when nothing would be sent the reason is on `err`.
int previewReportMail(CommandHome& home, bool json, const Console& console);

/// Mails it, in place of the agent, and keeps its record. Gives the exit code.
int sendReportMail(CommandHome& home, bool json, const Console& console);

/// Prints text line by line, without control characters.
void printLines(std::string_view text, std::ostream& out);

}  // namespace corvana
