#pragma once

#include <string>
#include <string_view>

namespace corvana {

/// The text with its letters without accents: "Élodie" becomes "Elodie". Letters that are not made
/// of another one and a mark, such as "ø", stay. Bytes that are no UTF-8 become U+FFFD. Thread:
/// any.
std::string withoutAccents(std::string_view text);

/// The text in ASCII, as near as that comes: "Élodie – 5 €" becomes "Elodie - 5 EUR". A character
/// that is like none of ASCII becomes one "?". Thread: any.
std::string asciiWithLoss(std::string_view text);

}  // namespace corvana
