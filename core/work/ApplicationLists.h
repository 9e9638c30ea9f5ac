#pragma once

#include <string>
#include <string_view>
#include <unordered_set>

namespace corvana {

class Processes;

/// Which applications run, and which ended between the last two looks, by their names: the last
/// component of their path without its extension. Thread: main.
class ApplicationLists {
 public:
  /// Compares the running applications with those of the last call.
  void update(Processes& processes);
  /// Whether the application of this path ran at the last comparison.
  bool isOpened(std::string_view path) const;
  /// Whether it ended between the last two comparisons.
  bool didQuit(std::string_view path) const;

 private:
  std::unordered_set<std::string> mOpened;
  std::unordered_set<std::string> mQuitted;
};

}  // namespace corvana
