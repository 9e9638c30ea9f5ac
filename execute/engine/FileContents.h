#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <utility>

namespace corvana {

/// Called now and then with the bytes so far: whether to go on. A file may take hours.
using GoesOnWithin = std::function<bool(std::uint64_t bytes)>;

/// Reads the first file, and with it the second unless that is -1, to their ends: whether they
/// are the same, and the first one's checksum. Nothing, with errno, when they cannot be read;
/// ECANCELED when it was not to go on.
std::optional<std::pair<bool, std::uint32_t>> readTogether(int one, int two,
                                                           const GoesOnWithin& goesOn = {});

/// Into an open file, with its holes; false with errno as above.
bool copyContents(int from, int to, off_t size, const GoesOnWithin& goesOn = {});

}  // namespace corvana
