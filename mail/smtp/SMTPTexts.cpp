#include "mail/smtp/SMTPTexts.h"

#include <algorithm>
#include <limits>

#include "ZANCocoaFramework/ZAN_DataUtils.h"

namespace corvana {
namespace {

constexpr std::size_t kHmacBlock = 64;

// In UTF-8.
constexpr auto kBlanks = std::to_array<std::string_view>(
    {" ", "\t", "\u00a0", "\u1680", "\u2000", "\u2001", "\u2002", "\u2003", "\u2004", "\u2005",
     "\u2006", "\u2007", "\u2008", "\u2009", "\u200a", "\u202f", "\u205f", "\u3000"});
constexpr auto kLineEnds =
    std::to_array<std::string_view>({"\n", "\v", "\f", "\r", "\xc2\x85", "\u2028", "\u2029"});

/// How many bytes one of the set takes where the text begins, or ends; 0 when it is none.
std::size_t oneOf(std::span<const std::string_view> set, std::string_view text, bool atEnd) {
  for (const std::string_view one : set)
    if (atEnd ? text.ends_with(one) : text.starts_with(one)) return one.size();
  return 0;
}

std::string_view trimmedOf(std::span<const std::string_view> first,
                           std::span<const std::string_view> second, std::string_view text) {
  const auto size = [&](bool atEnd) {
    const std::size_t bytes = oneOf(first, text, atEnd);
    return bytes > 0 ? bytes : oneOf(second, text, atEnd);
  };
  while (const std::size_t bytes = size(false)) text.remove_prefix(bytes);
  while (const std::size_t bytes = size(true)) text.remove_suffix(bytes);
  return text;
}

std::string_view viewOf(const std::array<std::byte, 16>& bytes) {
  return {static_cast<const char*>(static_cast<const void*>(bytes.data())), bytes.size()};
}

std::string padded(std::string_view key, unsigned char pad) {
  std::string block(kHmacBlock, static_cast<char>(pad));
  for (std::size_t i = 0; i < key.size(); ++i)
    block[i] = static_cast<char>(static_cast<unsigned char>(key[i]) ^ pad);
  return block;
}

}  // namespace

SplitText splitStringAtCharacterFromSet(std::string_view text, std::string_view set) {
  const std::size_t at = text.find_first_of(set);
  if (at == std::string_view::npos) return {std::string(text), std::nullopt, 0};
  return {std::string(text.substr(0, at)), std::string(text.substr(at + 1)), text[at]};
}

std::vector<std::string> splitAt(std::string_view text, char separator) {
  std::vector<std::string> pieces;
  for (;;) {
    const std::size_t at = text.find(separator);
    pieces.emplace_back(text.substr(0, at));
    if (at == std::string_view::npos) return pieces;
    text.remove_prefix(at + 1);
  }
}

std::vector<std::string> splitAtWhitespace(std::string_view text) {
  std::string blanks(text);
  for (char& c : blanks)
    if (c == '\t') c = ' ';
  return splitAt(blanks, ' ');
}

std::string_view trimmedOfBlanks(std::string_view text) { return trimmedOf(kBlanks, {}, text); }

std::string_view trimmed(std::string_view text) { return trimmedOf(kBlanks, kLineEnds, text); }

std::string inOneLine(std::string_view text) {
  std::string line(text);
  std::ranges::replace_if(
      line, [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return line;
}

std::int64_t integerValue(std::string_view text) {
  text = trimmed(text);
  const bool negative = text.starts_with('-');
  if (negative || text.starts_with('+')) text.remove_prefix(1);
  constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max();
  std::int64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    const std::int64_t digit = c - '0';
    if (value > (kMost - digit) / 10) return negative ? -kMost - 1 : kMost;
    value = value * 10 + digit;
  }
  return negative ? -value : value;
}

std::string hex(const std::array<std::byte, 16>& bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::string text;
  for (const std::byte byte : bytes) {
    text += kDigits[std::to_integer<unsigned>(byte) >> 4U];
    text += kDigits[std::to_integer<unsigned>(byte) & 0xFU];
  }
  return text;
}

std::string cramMD5(std::string_view challenge, std::string_view key) {
  std::array<std::byte, 16> digest{};
  if (key.size() > kHmacBlock) {
    digest = md5(key);
    key = viewOf(digest);
  }
  const auto inner = md5(padded(key, 0x36).append(challenge));
  return hex(md5(padded(key, 0x5C).append(viewOf(inner))));
}

std::string base64Of(std::string_view text) {
  return base64(std::as_bytes(std::span(text.data(), text.size())));
}

}  // namespace corvana
