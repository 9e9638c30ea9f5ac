#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace corvana {

/// Whether the bytes are well-formed UTF-8: no overlong forms, no surrogates, nothing above
/// U+10FFFF.
bool isUtf8(std::string_view text);

/// The text with every byte that belongs to no well-formed character replaced by U+FFFD.
std::string withReplacedBytes(std::string_view text);

/// The longest beginning of a well-formed text that takes at most so many bytes and ends between
/// two characters.
std::string_view beginningOfBytes(std::string_view text, std::size_t bytes);

/// The text in UTF-16 units; what is no UTF-8 becomes U+FFFD.
std::u16string utf16(std::string_view text);

}  // namespace corvana
