#pragma once

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionTree.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SchedulerState.h"
#include "core/work/ActionQueue.h"
#include "core/work/ExecuteSupervisor.h"
#include "core/work/TriggerEvaluation.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "ui/LaunchByHand.h"
#include "ui/UserInterfaceSources.h"

namespace corvana {

// What the models of the windows are written with: the parts of the sources that they read, and
// what several of them say of an action.

/// What a code of the log or the history says of an execution; empty for other events.
std::string resultInWords(std::int64_t code, const ZAN_StringTable& texts);

/// Why an action does not run now or will not at its next date, and what would make it run; a
/// reason a line. Empty when the action is gone or nothing is in its way.
std::string reasonsText(const UserInterfaceSources& sources, std::int64_t ref);

}  // namespace corvana
