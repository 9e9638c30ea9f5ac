#pragma once

#include <cstddef>
#include <span>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// The XML form of property lists; the contract is ZAN_PropertyList's.
Result<ZAN_Value> readXmlPropertyList(std::span<const std::byte> data);
std::string writeXmlPropertyList(const ZAN_Value& root);

}  // namespace corvana
