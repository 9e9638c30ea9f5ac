#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace corvana {

/// The MD5 digest of the bytes. For the protocols that still ask for it, not for protection.
/// Thread: any.
std::array<std::byte, 16> md5(std::string_view bytes);

}  // namespace corvana
