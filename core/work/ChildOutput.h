#pragma once

#include <cstddef>
#include <deque>
#include <string>
#include <string_view>

namespace corvana {

/// The end of what a child has written, by lines. Bounded whatever the child writes. Thread: main.
class ChildOutput {
 public:
  static constexpr std::size_t kMaximumLines = 200;
  static constexpr std::size_t kMaximumLineLength = 4096;  ///< a longer one is broken, in bytes

  /// Takes what was written; returns the lines that are now complete, joined by line ends.
  std::string append(std::string_view data);
  /// No more comes: completes the last line and returns it, empty when there is none.
  std::string finish();
  void clear();

  const std::deque<std::string>& lastLines() const { return mLines; }

 private:
  void complete(std::string& completed);

  std::deque<std::string> mLines;
  std::string mUnfinished;
};

}  // namespace corvana
