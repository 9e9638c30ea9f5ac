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

}  // namespace corvana
