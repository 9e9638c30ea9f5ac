#pragma once

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace corvana {

/// Takes the first word, up to a blank, off the rest of a line.
inline std::string_view takeWord(std::string_view& rest) {
  const auto end = std::min(rest.find(' '), rest.size());
  const std::string_view word = rest.substr(0, end);
  rest.remove_prefix(std::min(end + 1, rest.size()));
  return word;
}

/// Both sides of the first such letter.
inline std::pair<std::string_view, std::string_view> cutAt(std::string_view text, char letter) {
  const auto at = text.find(letter);
  if (at == std::string_view::npos) return {text, {}};
  return {text.substr(0, at), text.substr(at + 1)};
}

/// As a shell takes it for one word.
inline std::string shellWord(std::string_view word) {
  std::string text = "'";
  for (const char letter : word)
    text += letter == '\'' ? std::string("'\\''") : std::string(1, letter);
  return text + "'";
}

/// Whether the whole text is a number that fits.
template <class Number>
bool parseNumber(std::string_view text, Number& number, int base = 10) {
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number, base);
  return error == std::errc() && end == text.data() + text.size();
}

}  // namespace corvana
