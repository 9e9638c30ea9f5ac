#pragma once

#include <cstdint>

namespace corvana {

/// Differs from one run of the program to the next, so that nobody can prepare texts that all fall
/// together: it is where the system happened to load the program.
inline std::uint64_t hashSeed() {
  static const char kAnchor = 0;
  return reinterpret_cast<std::uint64_t>(&kAnchor);
}

}  // namespace corvana
