#pragma once

#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

class ZAN_StringTable;

/// Why an action, by its title, could not be launched by hand, in the user's language.
std::string launchRefusal(const ZAN_StringTable& texts, const std::string& title,
                          const Error& error);

}  // namespace corvana
