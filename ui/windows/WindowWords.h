#pragma once

#include "core/drive/LaunchStep.h"
#include "core/machine/MachineDuties.h"
#include "core/record/SchedulerCommands.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

// What the models of the windows are written with: the parts of the sources that they read, and
// what several of them say of an action.

/// What a code of the log or the history says of an execution; empty for other events.
std::string resultInWords(std::int64_t code, const ZAN_StringTable& texts);

/// The title of an entry of the history or the log, with what it was when that was no run.
std::string titleOf(const ZAN_Value& entry, const ZAN_StringTable& texts);

/// What the history knows of one execution, in words.
class RunWords {
 public:
  RunWords(const ZAN_StringTable& texts, const ZAN_StringUtils& strings) : mT(texts), mS(strings) {}

  std::string result(const ZAN_Value& entry) const;
  /// What it has counted, how fast it was, and why it did not do all; empty where nothing is known.
  std::string work(const ZAN_Value& entry) const;
  /// Under a title, a line each, not too many.
  std::string list(const std::string& title, const ZAN_Value& lines) const;
  /// "Errors", "Excluded" and "Files" as far as they were kept, an empty line between them.
  std::string lists(const ZAN_Value& results) const;
  /// All of it.
  std::string details(const ZAN_Value& entry, const ZAN_Value& results) const;

  /// What was kept of an execution beside its entry, a dictionary of lists.
  static ZAN_Value resultsOf(const ZAN_Value& entry, ActionResults& results);
  static bool isFailure(const ZAN_Value& entry);
  static std::optional<double> bytesPerSecond(const ZAN_Value& entry);

 private:
  const ZAN_StringTable& mT;
  const ZAN_StringUtils& mS;
};

/// Why an action does not run now or will not at its next date, and what would make it run; a
/// reason a line. Empty when the action is gone or nothing is in its way.
std::string reasonsText(const UserInterfaceSources& sources, std::int64_t ref);

}  // namespace corvana
