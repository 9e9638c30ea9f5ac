#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

/// A text file that grows by lines at its end, by the hands of several programs. Thread: any.
class LineFile {
 public:
  /// The lines that the file is to show, the oldest first.
  struct Lines {
    std::size_t count = 0;
    std::function<std::string(std::size_t)> line = {};  ///< without a line end
    /// Others than the last ones may have changed, so that the file is written anew.
    bool isAnew = true;
    std::string lockPath = {};               ///< excludes other programs that do the same
    std::function<void(double)> pause = {};  ///< blocks for so many seconds, for that lock
  };

  LineFile() = delete;

  /// Adds to the end in one piece. What a cut or a full disk has left of a line there becomes a
  /// line of its own. A file that another program replaces meanwhile gets the lines as well.
  static Outcome append(const std::string& path, std::string_view lines);

  /// Adds those lines that follow what the file ends with. It is written anew when it does not end
  /// with any of them, and when it has grown beyond a megabyte by lines that are no longer shown.
  static Outcome show(const std::string& path, const Lines& lines, const ZAN_FileWriter& writer);
};

}  // namespace corvana
