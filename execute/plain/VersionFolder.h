#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "execute/plain/VersionList.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// A folder of a version, by its name: "2026-11-22T041503Z", a number behind it when there are
/// several of that second, and what it is in the middle of.
struct VersionFolder {
  enum class State {
    dated,    ///< whole
    current,  ///< that of the newest version: takes in what the next run replaces
    fresh,    ///< is to be the current one
    going,    ///< is being removed
    merging,  ///< is being merged into the next older one
  };
  std::string name;
  std::string base;  ///< the name without its state
  State state = State::dated;
  ReferenceTime date = 0;
  int number = 1;
  /// Nothing for a folder without a list that can be read, as earlier runs made them.
  std::optional<VersionHeader> header = {};

  /// What lies in one and is nothing that a run has put there.
  static constexpr std::string_view kList = ".corvana9-list";
  static constexpr std::string_view kNewList = ".corvana9-list.new";
  static constexpr std::string_view kMerged = ".corvana9-merged";
  static constexpr std::string_view kJournal = ".corvana9-journal";

  static std::optional<VersionFolder> fromName(const std::string& name);
  /// The other way round.
  static std::string named(const std::string& base, State state);
  bool isOlderThan(const VersionFolder& other) const {
    return date != other.date ? date < other.date : number < other.number;
  }
  /// All that lie there with their headers, oldest first.
  static std::vector<VersionFolder> all(const HeldFolder& versions);
  /// What it takes up on its disk, `versions` being the folder that it lies in.
  std::uint64_t bytesOnDisk(const HeldFolder& versions) const;
  /// Of the versions of one action, oldest first, the first one that is known: where one is
  /// missing, nobody knows what the older ones had. `all`: that lie there; what is being merged is
  /// not missing.
  static std::size_t firstKnown(const std::vector<VersionFolder>& chain,
                                const std::vector<VersionFolder>& all);
  /// Its new list, which is whole and synchronised, takes the place of its list; errno else.
  static bool takeNewList(const HeldFolder& folder);
};

/// "path: reason" of what has just failed there, by errno.
Error unwritable(const HeldFolder& folder, std::string_view name = {});

/// Makes sure that what was made, renamed and removed in a folder is on the disk.
Outcome synchronise(const HeldFolder& folder);

}  // namespace corvana
