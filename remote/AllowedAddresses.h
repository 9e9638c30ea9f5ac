#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace corvana {

class ZAN_Value;

/// The machines that may connect, by IPv4 address ("192.168.1.7") or network ("192.168.1.0/24").
/// Thread: main.
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
    std::uint32_t address = 0;
    std::uint32_t mask = 0;
  };
  void add(std::string_view text);

  bool mRestricts = false;
  std::vector<Network> mNetworks;
  std::vector<std::string> mWrong;
};

}  // namespace corvana
