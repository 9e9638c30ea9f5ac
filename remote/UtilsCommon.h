#pragma once

#include <cstdint>
#include <string_view>

namespace corvana {

/// What the machines that control each other have to compute alike. Thread: any.
class UtilsCommon {
 public:
  UtilsCommon() = delete;

  /// The code that stands for a password on the network, which the password itself never leaves
  /// for; 0 for an empty one. It is computed from the UTF-16 units of the password, made longer by
  /// "*" and itself until it has 32 of them or more.
  static std::uint32_t getPasswordCode(std::string_view password);
};

}  // namespace corvana
