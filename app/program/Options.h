#pragma once

#include <string>
#include <vector>

namespace corvana {

/// What the program was asked for by its arguments.
struct Options {
  enum class Wish { run, help, version, refuse };
  Wish wish = Wish::run;
  bool headless = false;  ///< no windows even where there is a desktop
  std::string wrong;      ///< the argument that is not understood, with `refuse`

  /// `arguments` without the program's name.
  static Options parse(const std::vector<std::string>& arguments);
  static std::string help();
};

}  // namespace corvana
