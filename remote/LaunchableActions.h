#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace corvana {

class ProgrammedAction;

/// An action as other machines see it. Thread: main.
struct LaunchableAction {
  std::int64_t ref = 0;
  std::string title;
  std::int64_t mode = 0;
  std::int64_t lastScheduleDate = 0;  ///< whole seconds since 2001-01-01 UTC; 0: never

  /// "Ref-12=Letters\t2\t12\t725889600" in 255 bytes at most: the title is cut between two
  /// characters as needed, and has blanks for its control characters.
  std::string text() const;
  /// Nothing when it is no such text.
  static std::optional<LaunchableAction> parse(std::string_view text);
};

/// The actions of a tree that other machines may launch, in its order.
std::vector<LaunchableAction> launchableActions(ProgrammedAction& root);

/// The texts of the service: those given first, then one for each action, 1,300 bytes in all at
/// most, as more does not travel. When the actions do not all fit, those scheduled most recently
/// are taken.
struct LaunchableTexts {
  std::vector<std::string> texts;
  std::size_t leftOut = 0;

  explicit LaunchableTexts(const std::vector<LaunchableAction>& actions,
                           std::vector<std::string> before = {});
};

}  // namespace corvana
