#pragma once

#include <string_view>

namespace corvana {

/// What a record says, in keys of this system's own, of the engine that keeps its copies.
namespace EngineKey {
inline constexpr std::string_view name = "Engine";  ///< missing: plain folders
/// When an automatic action whose target could not be reached is tried again, and how often it has
/// been put off since its last success.
inline constexpr std::string_view tryAgain = "TryAgainDate";
inline constexpr std::string_view putOff = "TryAgainCount";
}  // namespace EngineKey

}  // namespace corvana
