#pragma once

#include <string>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ExecuteSupervisor;

/// What a report of an execution's progress says besides the per cent: "1.2 GB of 3 GB, 35 MB/s,
/// 0:03:12 left", or "12,000 items found" while it is still being found out what there is to do.
/// Empty for a report that says nothing of it.
std::string progressInWords(const ZAN_Value& report, const ZAN_StringTable& texts,
                            const ZAN_StringUtils& strings);
/// The same of the latest report of what is executed; empty while nothing is.
std::string progressInWords(const ExecuteSupervisor& supervisor, const ZAN_StringTable& texts,
                            const ZAN_StringUtils& strings);

}  // namespace corvana
