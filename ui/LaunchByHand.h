#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvana {

struct UserInterfaceSources;

/// Queues an action as asked for by hand. Why that was refused, in a line; empty when it was not.
std::string queueByHand(const UserInterfaceSources& sources, std::int64_t ref);

/// The same for several, of a group each of its actions; says in a line what came of it.
std::string launchByHand(const UserInterfaceSources& sources,
                         const std::vector<std::int64_t>& refs);

}  // namespace corvana
