#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class Clock;
class DataFolder;
class ZAN_FileWriter;

/// Earlier contents of the files that nobody could write again: the actions and both settings. They
/// lie in "Programmed Actions (Backup)" as "<name> <date in UTC>.cva9data", mode 0600: the last
/// ten, and of what is older the newest of each day for a month. Thread: main.
class Generations {
 public:
  struct Generation {
    std::string path;
    ReferenceTime date = 0;  ///< when it was kept
    std::uint64_t size = 0;
  };

  Generations(const DataFolder& folder, Clock& clock, const ZAN_FileWriter& writer)
      : mFolder(folder), mClock(clock), mWriter(writer) {}

  static bool areKeptOf(std::string_view fileName);
  /// A number for what is in a value but for dates, counters and what the agent notes by itself:
  /// two values with the same number are the same to the user.
  static std::uint64_t fingerprint(const ZAN_Value& value);

  /// Keeps these bytes, and removes what is too old. `print` is their fingerprint.
  Outcome keep(std::string_view fileName, std::string_view bytes, std::uint64_t print);
  /// The fingerprint of what this object has kept last of a file, 0 without any.
  std::uint64_t newest(const std::string& fileName) const;

  /// The newest first.
  std::vector<Generation> of(std::string_view fileName) const;
  /// Files of the data folder that were damaged and put aside: "<name> (damaged <date>)", the
  /// newest first.
  std::vector<Generation> damaged(std::string_view fileName) const;
  /// Moves those into the folder of the generations, since they were dealt with.
  void storeDamaged(std::string_view fileName) const;

 private:
  std::vector<Generation> filesWith(const std::string& folder, std::string_view begin,
                                    std::string_view end) const;
  void thinOut(std::string_view fileName) const;

  const DataFolder& mFolder;
  Clock& mClock;
  const ZAN_FileWriter& mWriter;
  std::map<std::string, std::uint64_t> mNewest;
};

}  // namespace corvana
