#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>

namespace corvana {

/// The address of a machine, IPv4 ("192.168.1.7") or IPv6 ("fe80::1", also with a zone behind "%",
/// which does not count). Thread: any.
class ZAN_IPAddress {
 public:
  /// Nothing when the text is neither.
  static std::optional<ZAN_IPAddress> parse(std::string_view text);

  bool isIPv4() const { return mIsIPv4; }
  /// How many bits an address of this family has.
  unsigned bits() const { return mIsIPv4 ? 32 : 128; }
  /// Whether both are of one family and have the first `bits` bits in common.
  bool sharesNetwork(const ZAN_IPAddress& other, unsigned bits) const;

 private:
  bool mIsIPv4 = false;
  std::array<std::uint8_t, 16> mBytes{};  ///< an IPv4 address has the first four
};

}  // namespace corvana
