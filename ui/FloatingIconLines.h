#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ui/UserInterfaceSources.h"

namespace corvana {

/// The text beside the floating icon: what the agent does now and how far that is, then what comes,
/// `count` lines at most. Thread: main.
std::vector<std::string> floatingIconLines(const UserInterfaceSources& sources, std::size_t count);

}  // namespace corvana
