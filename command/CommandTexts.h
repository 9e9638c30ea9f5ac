#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"

namespace corvana {

class Machine;

/// Reads the agent's texts, which lie in its bundle: beside the folder of this command, or where an
/// installation puts it.
Outcome loadAgentTexts(ZAN_StringTable& texts, const Machine& machine);

}  // namespace corvana
