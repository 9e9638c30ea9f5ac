#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

/// The form in which Finder information lies in its extended attribute: type, creator and flags,
/// the rest 0.
using ZAN_FinderInfoBytes = std::array<char, 32>;

inline constexpr const char* kFinderInfoAttribute = "user.com.apple.FinderInfo";

inline ZAN_FinderInfoBytes bytesOfFinderInfo(const ZAN_FinderInfo& info) {
  ZAN_FinderInfoBytes bytes{};
  std::copy_n(info.type.begin(), std::min<std::size_t>(4, info.type.size()), bytes.begin());
  std::copy_n(info.creator.begin(), std::min<std::size_t>(4, info.creator.size()),
              bytes.begin() + 4);
  bytes[8] = static_cast<char>(info.flags >> 8);
  bytes[9] = static_cast<char>(info.flags & 0xFF);
  return bytes;
}

inline ZAN_FinderInfo finderInfoOfBytes(const ZAN_FinderInfoBytes& bytes) {
  const auto code = [&](std::size_t offset) {
    std::string text(bytes.data() + offset, 4);
    text.erase(std::find(text.begin(), text.end(), '\0'), text.end());
    return text;
  };
  return {.type = code(0),
          .creator = code(4),
          .flags = static_cast<std::uint16_t>(static_cast<unsigned char>(bytes[8]) << 8 |
                                              static_cast<unsigned char>(bytes[9]))};
}

}  // namespace corvana
