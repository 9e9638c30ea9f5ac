#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// What of its older versions an action keeps, whichever engine keeps them.
struct VersionsKept {
  bool none = false;        ///< what a run replaces or deletes is gone
  double seconds = 0;       ///< none older than that; 0: however old
  std::uint64_t bytes = 0;  ///< no more than that in all; 0: as much as there is room for
  /// So much is to stay free on the volume, as far as what this run has added can give.
  std::uint64_t freeSpace = 0;
  std::uint64_t added = 0;

  static VersionsKept fromSettings(const ZAN_Value& settings);

  /// Which versions need not be kept at that time, by their places among the dates, oldest first:
  /// of the last two days all stay, one a day for a month, one a week for a year, then one a month,
  /// each the newest of its time; none that is older than the limit. The last one always stays, and
  /// none counts as older than that one is at `now`.
  std::vector<std::size_t> superfluous(const std::vector<ReferenceTime>& dates,
                                       ReferenceTime now) const;

  /// How many of the oldest versions stay for now whatever their age: the clock seems to have run
  /// ahead after them. That is, between them and the next one lies more than a month, and four
  /// times what usually lies between runs, and runs have gone on for less than a week since. A
  /// clock that is wrong is noticed by then; if it is right, it has done no harm to wait.
  static std::size_t beforeLeap(const std::vector<ReferenceTime>& dates, ReferenceTime now);
};

}  // namespace corvana
