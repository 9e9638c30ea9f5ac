#pragma once

#include <array>
#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// The standard alphabet with padding, without line breaks.
std::string base64(std::span<const std::byte> bytes);

/// The bytes as characters; blanks and line breaks are passed over. Nothing when anything else is
/// not of the alphabet or the padding is wrong.
std::optional<std::string> fromBase64(std::string_view text);

/// The MD5 digest of the bytes. For the protocols that still ask for it, not for protection.
/// Thread: any.
std::array<std::byte, 16> md5(std::string_view bytes);

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
