#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace corvana {

/// The standard alphabet with padding, without line breaks.
std::string base64(std::span<const std::byte> bytes);

/// The bytes as characters; blanks and line breaks are passed over. Nothing when anything else is
/// not of the alphabet or the padding is wrong.
std::optional<std::string> fromBase64(std::string_view text);

}  // namespace corvana
