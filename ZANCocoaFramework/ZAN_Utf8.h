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

/// The text as it counts in comparisons without regard to case: two texts are equal then exactly
/// when their folded forms are, and are ordered as these are, byte by byte. Bytes that are no UTF-8
/// become U+FFFD. Thread: any.
std::string foldedCase(std::string_view text);

/// The text in lower case, by no region's special rules. Thread: any.
std::string lowercase(std::string_view text);

/// The text with its letters without accents: "Élodie" becomes "Elodie". Letters that are not made
/// of another one and a mark, such as "ø", stay. Bytes that are no UTF-8 become U+FFFD. Thread:
/// any.
std::string withoutAccents(std::string_view text);

/// The text in ASCII, as near as that comes: "Élodie – 5 €" becomes "Elodie - 5 EUR". A character
/// that is like none of ASCII becomes one "?". Thread: any.
std::string asciiWithLoss(std::string_view text);

}  // namespace corvana
