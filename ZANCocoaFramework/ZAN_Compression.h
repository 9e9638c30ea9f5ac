#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// Whole buffers in the zlib format. Thread: any.
class ZAN_Compression {
 public:
  ZAN_Compression() = delete;

  /// More than this is never inflated unless the caller allows it.
  static constexpr std::size_t kDefaultLimit = std::size_t{64} << 20;

  static std::vector<std::byte> compressedData(std::span<const std::byte> data);
  /// `damaged` when the stream is not zlib's, is cut short or carries bytes behind its end; `limit`
  /// when it would inflate to more than `limit` bytes. The text is the reason alone.
  static Result<std::vector<std::byte>> decompressedData(std::span<const std::byte> data,
                                                         std::size_t limit = kDefaultLimit);
};

}  // namespace corvana
