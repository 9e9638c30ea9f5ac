#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvana {

// Small text operations of the mail dialogue. Thread: any.

/// A text cut at a character.
struct SplitText {
  std::string first;                ///< before it
  std::optional<std::string> rest;  ///< behind it; nothing when it was not found
  char separator = 0;               ///< the character that was found, or 0
};
/// Cuts at the first character that is in `set`.
SplitText splitStringAtCharacterFromSet(std::string_view text, std::string_view set);

/// The pieces between single blanks or tabs; two in a row have an empty piece between them.
std::vector<std::string> splitAtWhitespace(std::string_view text);
std::vector<std::string> splitAt(std::string_view text, char separator);
/// Without blanks of any width and tabs at both ends; `trimmed` takes line ends away, too.
std::string_view trimmedOfBlanks(std::string_view text);
std::string_view trimmed(std::string_view text);

/// With a blank for each control character: it begins no line, and so no command or header, of its
/// own.
std::string inOneLine(std::string_view text);

/// The number a text begins with, after blanks and a sign; 0 without one, the nearest bound when it
/// is too large.
std::int64_t integerValue(std::string_view text);

/// Two upper-case digits a byte.
std::string hex(const std::array<std::byte, 16>& bytes);

/// The answer to a challenge of CRAM-MD5: HMAC-MD5 of it under the key, in upper-case digits.
std::string cramMD5(std::string_view challenge, std::string_view key);

std::string base64Of(std::string_view text);

}  // namespace corvana
