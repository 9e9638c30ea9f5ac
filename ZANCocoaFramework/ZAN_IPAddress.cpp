#include "ZANCocoaFramework/ZAN_IPAddress.h"

#include <arpa/inet.h>

#include <algorithm>
#include <string>

namespace corvana {

std::optional<ZAN_IPAddress> ZAN_IPAddress::parse(std::string_view text) {
  ZAN_IPAddress address;
  const std::string word(text.substr(0, text.find('%')));
  if (inet_pton(AF_INET, word.c_str(), address.mBytes.data()) == 1) {
    address.mIsIPv4 = true;
  } else if (inet_pton(AF_INET6, word.c_str(), address.mBytes.data()) != 1) {
    return std::nullopt;
  }
  return address;
}

bool ZAN_IPAddress::sharesNetwork(const ZAN_IPAddress& other, unsigned count) const {
  if (mIsIPv4 != other.mIsIPv4) return false;
  count = std::min(count, bits());
  const auto whole = mBytes.begin() + count / 8;
  if (!std::equal(mBytes.begin(), whole, other.mBytes.begin())) return false;
  if (count % 8 == 0) return true;
  return ((*whole ^ other.mBytes[count / 8]) >> (8 - count % 8)) == 0;
}

}  // namespace corvana
