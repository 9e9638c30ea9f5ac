#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// "2026-11-21T09:30:00Z" of property lists: UTC, whole seconds. Nothing for any other text.
std::optional<ReferenceTime> timeOfXmlDate(std::string_view text);
/// Fractions are cut; times before year 1 or after 9999 become the nearest that has a form.
std::string xmlDateOfTime(ReferenceTime time);

/// The XML form of property lists; the contract is ZAN_PropertyList's.
Result<ZAN_Value> readXmlPropertyList(std::span<const std::byte> data);
std::string writeXmlPropertyList(const ZAN_Value& root);

}  // namespace corvana
