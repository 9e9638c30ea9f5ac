#pragma once

#include <string_view>

namespace corvana {

/// What a record says, in keys of this system's own, of the engine that keeps its copies.
namespace EngineKey {
inline constexpr std::string_view name = "Engine";  ///< missing: plain folders
}  // namespace EngineKey

}  // namespace corvana
