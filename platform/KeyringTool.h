#pragma once

#include <string>
#include <vector>

namespace corvana {

/// The desktop's keyring, as the words of the program that asks it. A password there is known by
/// attributes of its own, names and values in turns. Thread: any.
struct KeyringTool {
  using Attributes = std::vector<std::string>;

  KeyringTool() = delete;

  /// How long the program may take: whoever has to unlock the keyring first needs a while.
  static constexpr double kSeconds = 60;

  static bool isThere();
  /// Says the password on its standard output.
  static std::vector<std::string> lookUp(const Attributes& attributes);
  /// Keeps what is in the file, as a password is no argument of a program. `name`: what the user
  /// sees it called, behind the product's name.
  static std::vector<std::string> store(const Attributes& attributes, const std::string& name,
                                        const std::string& file);
};

}  // namespace corvana
