#pragma once

#include "core/drive/LaunchStep.h"
#include "core/machine/MachineDuties.h"
#include "core/record/Records.h"
#include "core/record/SchedulerCommands.h"
#include "core/work/Work.h"
#include "platform/Clock.h"
#include "ui/LaunchByHand.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

// What the models of the windows are written with: the parts of the sources that they read, and
// what several of them say of an action.

/// What a code of the log or the history says of an execution; empty for other events.
std::string resultInWords(std::int64_t code, const ZAN_StringTable& texts);

/// The title of an entry of the history or the log, with what it was when that was no run.
std::string titleOf(const ZAN_Value& entry, const ZAN_StringTable& texts);

/// Why an action does not run now or will not at its next date, and what would make it run; a
/// reason a line. Empty when the action is gone or nothing is in its way.
std::string reasonsText(const UserInterfaceSources& sources, std::int64_t ref);

}  // namespace corvana
