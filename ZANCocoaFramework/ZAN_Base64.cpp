#include "ZANCocoaFramework/ZAN_Base64.h"

#include <cstdint>

namespace corvana {

namespace {

constexpr std::string_view kAlphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string base64(std::span<const std::byte> bytes) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 3) {
    std::uint32_t group = 0;
    for (std::size_t k = 0; k < 3; ++k) {
      group = group << 8 | (i + k < bytes.size() ? static_cast<std::uint32_t>(bytes[i + k]) : 0);
    }
    for (std::size_t k = 0; k < 4; ++k) {
      text += i + k <= bytes.size() ? kAlphabet[group >> (18 - 6 * k) & 63] : '=';
    }
  }
  return text;
}

std::optional<std::string> fromBase64(std::string_view text) {
  std::string bytes;
  std::uint32_t group = 0;
  std::size_t digits = 0;
  std::size_t padding = 0;
  for (const char c : text) {
    if (c == ' ' || c == '\n' || c == '\r' || c == '\t') continue;
    if (c == '=') {
      ++padding;
      continue;
    }
    const std::size_t value = kAlphabet.find(c);
    if (value == std::string_view::npos || padding > 0) return std::nullopt;
    group = group << 6 | static_cast<std::uint32_t>(value);
    if (++digits % 4 == 0) {
      for (const int shift : {16, 8, 0}) bytes += static_cast<char>(group >> shift & 0xff);
      group = 0;
    }
  }
  const std::size_t rest = digits % 4;
  if (rest == 1 || padding != (4 - rest) % 4) return std::nullopt;
  for (std::size_t k = 1; k < rest; ++k)
    bytes += static_cast<char>(group >> (6 * rest - 8 * k) & 0xff);
  return bytes;
}

}  // namespace corvana
