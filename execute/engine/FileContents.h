#pragma once

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <utility>

namespace corvana {

/// Reads the first file, and with it the second unless that is -1, to their ends: whether they
/// are the same, and the first one's checksum. Nothing when they cannot be read.
std::optional<std::pair<bool, std::uint32_t>> readTogether(int one, int two);

/// Into an open file, with its holes; false with errno.
bool copyContents(int from, int to, off_t size);

}  // namespace corvana
