#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// Messages of a stream, each behind its length in so many bytes, the highest first. Thread: any.
class Frames {
 public:
  Frames(std::size_t lengthBytes, std::size_t mostBytes)
      : mLengthBytes(lengthBytes), mMostBytes(mostBytes) {}

  void take(std::span<const std::byte> bytes);
  /// The next message that has come whole, or nothing yet; fails when one is longer than allowed.
  Result<std::optional<std::vector<std::byte>>> next();
  static std::vector<std::byte> framed(std::size_t lengthBytes, std::span<const std::byte> message);

 private:
  const std::size_t mLengthBytes;
  const std::size_t mMostBytes;
  std::vector<std::byte> mBytes;
};

}  // namespace corvana
