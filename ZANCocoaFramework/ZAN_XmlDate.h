#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// "2026-11-21T09:30:00Z" of property lists: UTC, whole seconds. Nothing for any other text.
std::optional<ReferenceTime> timeOfXmlDate(std::string_view text);
/// Fractions are cut; times before year 1 or after 9999 become the nearest that has a form.
std::string xmlDateOfTime(ReferenceTime time);

}  // namespace corvana
