#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// The words behind a subcommand, taken out one by one: first flags and options, then `words`,
/// which says whether anything is left that nobody asked for. What follows "--" is no flag.
///
/// A wrong word is remembered, so that a command asks for all it knows and then looks at `words`
/// alone.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> words);

  /// Whether "--name" is there.
  bool flag(std::string_view name);
  /// The value of "--name value" or "--name=value"; nothing without it. Given twice the last one
  /// counts.
  std::optional<std::string> option(std::string_view name);
  /// Every value of an option that may be given several times, in order.
  std::vector<std::string> options(std::string_view name);
  /// A whole decimal number within the range, otherwise the words are wrong.
  std::optional<std::int64_t> number(std::string_view name, std::int64_t least, std::int64_t most);
  bool json() { return flag("--json"); }

  /// The words that are neither flag nor option, at least `least` and at most `most` of them.
  /// Fails, with `refused`, when their number is another, when a flag is left that nobody took, or
  /// when an option was wrong. Call it last.
  Result<std::vector<std::string>> words(std::size_t least, std::size_t most);

  /// A command that finds a value wrong says so here, before `words`.
  void complain(std::string reason);

 private:
  std::vector<std::string> mFlags;  ///< and options with their values, before "--"
  std::vector<std::string> mBehind;
  std::string mComplaint;
};

}  // namespace corvana
