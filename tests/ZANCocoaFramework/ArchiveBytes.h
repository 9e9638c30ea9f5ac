#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace corvana {

using ArchiveBytes = std::vector<std::byte>;

/// Pairs of hexadecimal digits, blanks between them ignored; "'text'" stands for its characters.
inline ArchiveBytes fromHex(std::string_view hex) {
  ArchiveBytes bytes;
  for (std::size_t i = 0; i < hex.size();) {
    if (hex[i] == ' ') {
      ++i;
    } else if (hex[i] == '\'') {
      for (++i; hex[i] != '\''; ++i) bytes.push_back(static_cast<std::byte>(hex[i]));
      ++i;
    } else {
      bytes.push_back(
          static_cast<std::byte>(std::stoi(std::string(hex.substr(i, 2)), nullptr, 16)));
      i += 2;
    }
  }
  return bytes;
}

inline std::string toHex(std::span<const std::byte> bytes) {
  constexpr std::string_view kDigits = "0123456789abcdef";
  std::string hex;
  for (const std::byte byte : bytes) {
    hex += kDigits[static_cast<std::size_t>(byte) >> 4];
    hex += kDigits[static_cast<std::size_t>(byte) & 15];
  }
  return hex;
}

/// Header and the type of the root group, then `hex`; shared string 0 is "@".
inline ArchiveBytes archiveOf(std::string_view hex) {
  return fromHex("04 0b 'streamtyped' 81e803 84 01 '@' " + std::string(hex));
}

/// Pieces of archives in the order in which they can stand for the first time: an array is object 0
/// and class 1, the root class 2 (reference 94); shared strings: @ NSArray NSObject i.
inline constexpr std::string_view kArrayHead =
    "84 84 84 07 'NSArray' 00 84 84 08 'NSObject' 00 85 84 01 'i' ";

}  // namespace corvana
