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

/// What an entry of the log says, in keys of this system's own.
namespace LogKey {
inline constexpr std::string_view untold = "Untold";  ///< 1: no agent was there to take it
/// 1: the place of the copies did not answer, or others hold it.
inline constexpr std::string_view unreachable = "Unreachable";
}  // namespace LogKey

/// What a record says, in keys of this system's own, of the older versions of what it copies.
namespace VersionKey {
inline constexpr std::string_view none = "VersionsNone";  ///< 1: none are kept; missing: 0
inline constexpr std::string_view days = "VersionsDays";  ///< none older than that; 0: however old
inline constexpr std::string_view bytes = "VersionsBytes";  ///< no more in all; 0: as there is room
/// When the copies were last read and compared, and how many differed then.
inline constexpr std::string_view verified = "LastVerification";
inline constexpr std::string_view mismatches = "LastVerificationMismatches";
}  // namespace VersionKey

}  // namespace corvana
