#include "ZANCocoaFramework/ZAN_Utf8.h"

#include <cstdint>
#include <cstring>

namespace corvana {

namespace {

/// How many bytes the well-formed character at the start takes, 0 when there is none.
std::size_t characterLength(std::string_view text) {
  const auto byte = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  const auto follows = [&](std::size_t i, unsigned least, unsigned most) {
    return i < text.size() && byte(i) >= least && byte(i) <= most;
  };
  const unsigned first = byte(0);
  if (first < 0x80) return 1;
  if (first < 0xc2 || first > 0xf4) return 0;
  if (first < 0xe0) return follows(1, 0x80, 0xbf) ? 2 : 0;
  // The second byte keeps out overlong forms, surrogates and what lies above the last code point.
  const unsigned least = first == 0xe0 ? 0xa0 : first == 0xf0 ? 0x90 : 0x80;
  const unsigned most = first == 0xed ? 0x9f : first == 0xf4 ? 0x8f : 0xbf;
  if (!follows(1, least, most) || !follows(2, 0x80, 0xbf)) return 0;
  if (first < 0xf0) return 3;
  return follows(3, 0x80, 0xbf) ? 4 : 0;
}

/// How many bytes at the start are well-formed characters.
std::size_t wellFormedLength(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size()) {
    std::uint64_t word = 0;
    if (text.size() - i >= sizeof word) {
      std::memcpy(&word, text.data() + i, sizeof word);
      if ((word & 0x8080808080808080U) == 0) {
        i += sizeof word;
        continue;
      }
    }
    const std::size_t length = characterLength(text.substr(i));
    if (length == 0) return i;
    i += length;
  }
  return i;
}

}  // namespace

bool isUtf8(std::string_view text) { return wellFormedLength(text) == text.size(); }

std::string withReplacedBytes(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    const std::size_t good = wellFormedLength(text);
    out.append(text.substr(0, good));
    if (good < text.size()) out += "\xef\xbf\xbd";
    text.remove_prefix(good < text.size() ? good + 1 : good);
  }
  return out;
}

std::string_view beginningOfBytes(std::string_view text, std::size_t bytes) {
  if (text.size() <= bytes) return text;
  while (bytes > 0 && (static_cast<unsigned char>(text[bytes]) & 0xc0U) == 0x80) --bytes;
  return text.substr(0, bytes);
}

std::u16string utf16(std::string_view text) {
  const std::string whole = withReplacedBytes(text);
  std::u16string units;
  for (std::size_t i = 0; i < whole.size();) {
    const std::size_t length = characterLength(std::string_view(whole).substr(i));
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(whole[i + at]); };
    // The first byte's own bits, then six of each that follows.
    char32_t point = length == 1 ? byte(0) : byte(0) & (0xffU >> (length + 1));
    for (std::size_t at = 1; at < length; ++at) point = point << 6U | (byte(at) & 0x3fU);
    if (point < 0x10000) {
      units += static_cast<char16_t>(point);
    } else {
      units += static_cast<char16_t>(0xd7c0U + (point >> 10U));
      units += static_cast<char16_t>(0xdc00U + (point & 0x3ffU));
    }
    i += length;
  }
  return units;
}

}  // namespace corvana
