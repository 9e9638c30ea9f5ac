#pragma once

#include <string>
#include <string_view>

namespace corvana {

/// The text as it counts in comparisons without regard to case: two texts are equal then exactly
/// when their folded forms are, and are ordered as these are, byte by byte. Bytes that are no UTF-8
/// become U+FFFD. Thread: any.
std::string foldedCase(std::string_view text);

/// The text in lower case, by no region's special rules. Thread: any.
std::string lowercase(std::string_view text);

}  // namespace corvana
