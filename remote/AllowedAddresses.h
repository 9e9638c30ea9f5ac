#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_IPAddress.h"

namespace corvana {

class ZAN_Value;

/// The machines that may connect, by address ("192.168.1.7", "fe80::1") or network
/// ("192.168.1.0/24", "fd00::/8"). Thread: main.
class AllowedAddresses {
 public:
  /// Anybody.
  AllowedAddresses() = default;
  /// A text with blanks or commas between the addresses, or an array of such texts; anybody when
  /// there is none.
  explicit AllowedAddresses(const ZAN_Value& preference);

  bool allows(std::string_view address) const;
  /// What could not be read as an address; it allows nobody.
  const std::vector<std::string>& wrong() const { return mWrong; }

 private:
  struct Network {
    ZAN_IPAddress address;
    unsigned bits;
  };
  void add(std::string_view text);

  bool mRestricts = false;
  std::vector<Network> mNetworks;
  std::vector<std::string> mWrong;
};

}  // namespace corvana
