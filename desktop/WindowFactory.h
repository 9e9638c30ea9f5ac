#pragma once

#include <memory>

#include "desktop/AgentWindow.h"

namespace corvana {

/// Makes a window; null for one that this desktop does not have. The floating icon is none of them.
std::unique_ptr<AgentWindow> makeWindow(Window which, const UserInterfaceSources& sources);

}  // namespace corvana
