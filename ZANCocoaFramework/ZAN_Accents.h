#pragma once

#include <string>
#include <string_view>

namespace corvana {

/// The text with its letters without accents: "Élodie" becomes "Elodie". Letters that are not made
/// of another one and a mark, such as "ø", stay. Bytes that are no UTF-8 become U+FFFD. Thread:
/// any.
std::string withoutAccents(std::string_view text);

}  // namespace corvana
