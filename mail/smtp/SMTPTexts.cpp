#include "mail/smtp/SMTPTexts.h"

#include <limits>
#include <span>

#include "ZANCocoaFramework/ZAN_Base64.h"
#include "ZANCocoaFramework/ZAN_Md5.h"

namespace corvana {
namespace {

constexpr std::size_t kHmacBlock = 64;

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

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n\v\f";
  const std::size_t begin = text.find_first_not_of(kBlanks);
  if (begin == std::string_view::npos) return {};
  return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
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
