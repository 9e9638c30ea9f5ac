#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// A settings file of lines "key=value", the value in JSON on one line. Lines that are not
/// understood stay as they are. In a key a percent sign, an equals sign, blanks and control
/// characters are written as %XX. The file is read again when another program has changed it, and
/// replaced whole when written. Thread: main.
class UserDefaults {
 public:
  explicit UserDefaults(std::string path) : mPath(std::move(path)) {}

  /// Null without that key or with a value that is no JSON.
  ZAN_Value value(const std::string& key) const;
  /// Null removes the key. What cannot be written is kept for this run only.
  void setValue(const std::string& key, const ZAN_Value& value);

 private:
  struct Identity {
    std::uint64_t inode = 0;
    std::int64_t size = -1;
    std::int64_t changed = 0;
    bool operator==(const Identity&) const = default;
  };
  struct Line {
    std::string text;
    std::string key;  ///< empty: not a setting
    ZAN_Value value;
  };

  Identity identity() const;
  void refresh() const;
  void write();

  std::string mPath;
  mutable Identity mIdentity;
  mutable std::vector<Line> mLines;
};

}  // namespace corvana
