#pragma once

#include <cstdint>
#include <string>

namespace corvana {

struct UserInterfaceSources;

/// Why an action does not run now or will not at its next date, and what would make it run; a
/// reason a line. Empty when the action is gone or nothing is in its way.
std::string reasonsText(const UserInterfaceSources& sources, std::int64_t ref);

}  // namespace corvana
