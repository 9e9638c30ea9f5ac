#pragma once

#include <string>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// A date in the past as a user gives it: "yesterday" and "2026-11-14" (the last instant of that
/// day), "2026-11-14 18:30" and with seconds (the end of that minute or second), "today", "now",
/// "3 days ago" (minutes, hours, days, weeks, months, years). `refused` for anything else.
Result<ReferenceTime> pastDate(const std::string& words, ReferenceTime now,
                               const ZAN_DateUtils& calendar);

}  // namespace corvana
