#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "execute/plain/Versions.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// Who fills a copy: a small hidden file in the folder of the copy names the action and its source,
/// so that no other one deletes there.
struct CopyMark {
  static constexpr std::string_view kName = Versions::kMark;

  std::string machine = {};  ///< its identifier
  std::string home = {};     ///< of the user
  std::int64_t reference = 0;
  std::string title = {};   ///< for who reads it
  std::string source = {};  ///< its path as the action describes it
  std::string volume = {};  ///< its UUID; empty: not known

  /// Actions that copy the same source to the same place do not spoil each other's copy.
  bool isOfSameSource(const CopyMark& other) const {
    return machine == other.machine && home == other.home && source == other.source &&
           (volume == other.volume || volume.empty() || other.volume.empty());
  }
  /// "action 77 "Letters" (/home/me/Documents)".
  std::string toText() const;

  /// Nothing without a mark, and for an empty one, which a power failure leaves; an error for one
  /// that cannot be read.
  static Result<std::optional<CopyMark>> read(const HeldFolder& copy);
  Outcome write(const HeldFolder& copy) const;
};

}  // namespace corvana
