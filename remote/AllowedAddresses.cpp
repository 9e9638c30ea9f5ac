#include "remote/AllowedAddresses.h"

#include <algorithm>
#include <charconv>
#include <optional>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

namespace {

std::optional<std::uint32_t> numberUpTo(std::string_view text, std::uint32_t most) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > most)
    return std::nullopt;
  return number;
}

std::optional<std::uint32_t> addressOf(std::string_view text) {
  std::uint32_t address = 0;
  for (int i = 0; i < 4; ++i) {
    const std::size_t dot = i < 3 ? text.find('.') : text.size();
    if (dot == std::string_view::npos) return std::nullopt;
    const auto part = numberUpTo(text.substr(0, dot), 255);
    if (!part) return std::nullopt;
    address = address << 8U | *part;
    text.remove_prefix(std::min(dot + 1, text.size()));
  }
  return address;
}

}  // namespace

AllowedAddresses::AllowedAddresses(const ZAN_Value& preference) {
  add(preference.stringView());
  for (const ZAN_Value& one : preference.elements()) add(one.stringView());
}

void AllowedAddresses::add(std::string_view text) {
  constexpr std::string_view kBetween = " ,;\t\n";
  for (;;) {
    const std::size_t begin = text.find_first_not_of(kBetween);
    if (begin == std::string_view::npos) return;
    text.remove_prefix(begin);
    const std::string_view word = text.substr(0, text.find_first_of(kBetween));
    text.remove_prefix(word.size());
    mRestricts = true;
    const std::size_t slash = word.find('/');
    const auto address = addressOf(word.substr(0, slash));
    const auto bits = slash == std::string_view::npos ? std::optional<std::uint32_t>(32)
                                                      : numberUpTo(word.substr(slash + 1), 32);
    if (!address || !bits) {
      mWrong.emplace_back(word);
      continue;
    }
    mNetworks.push_back({*address, *bits == 0 ? 0 : ~std::uint32_t{0} << (32 - *bits)});
  }
}

bool AllowedAddresses::allows(std::string_view text) const {
  if (!mRestricts) return true;
  const auto address = addressOf(text);
  return address && std::ranges::any_of(mNetworks, [&](const Network& one) {
           return ((*address ^ one.address) & one.mask) == 0;
         });
}

}  // namespace corvana
