#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace corvana {

class ProgrammedAction;
class ZAN_StringTable;
struct UserInterfaceSources;

/// Queues actions as asked for by hand, those of a group each, and says in a line what came of it.
std::string launchByHand(const UserInterfaceSources& sources,
                         const std::vector<std::int64_t>& refs);

/// The title of an action or group; empty when it is gone.
std::string titleOf(const UserInterfaceSources& sources, std::int64_t ref);

/// What a code of the log or the history says of an execution; empty for other events.
std::string resultInWords(std::int64_t code, const ZAN_StringTable& texts);

/// 1:02:05, whole seconds as the history counts them.
std::string durationText(double seconds);

}  // namespace corvana
