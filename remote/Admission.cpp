#include "remote/Admission.h"

#include <charconv>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

namespace {

std::optional<unsigned> numberUpTo(std::string_view text, unsigned most) {
  unsigned number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size() || number > most)
    return std::nullopt;
  return number;
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
    const auto address = ZAN_IPAddress::parse(word.substr(0, slash));
    const auto bits = !address || slash == std::string_view::npos
                          ? std::optional<unsigned>(128)
                          : numberUpTo(word.substr(slash + 1), address->bits());
    if (!address || !bits) {
      mWrong.emplace_back(word);
      continue;
    }
    mNetworks.push_back({*address, *bits});
  }
}

bool AllowedAddresses::allows(std::string_view text) const {
  if (!mRestricts) return true;
  const auto address = ZAN_IPAddress::parse(text);
  return address && std::ranges::any_of(mNetworks, [&](const Network& one) {
           return address->sharesNetwork(one.address, one.bits);
         });
}

}  // namespace corvana
