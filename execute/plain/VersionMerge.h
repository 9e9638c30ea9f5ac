#pragma once

#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/plain/VersionFolder.h"

namespace corvana {

/// Takes a version out of the middle of others: what older ones need of it goes to the next older
/// one. Whatever is cut off can be gone on with. Thread: one.
class VersionMerge {
 public:
  /// `versions`: the folder that they lie in; it outlives this.
  explicit VersionMerge(const HeldFolder& versions) : mAll(versions) {}

  Outcome perform(const VersionFolder& older, const VersionFolder& newer) const;
  /// Goes on with one that was cut off in that older version, or undoes what little there was.
  Outcome settle(const VersionFolder& older) const;

 private:
  /// Writes what `into` has when it has taken up `from`, whose name without its state is `newer`.
  static Outcome list(const HeldFolder& into, const HeldFolder& from, const std::string& newer);
  Outcome finish(const HeldFolder& older, const std::string& merging) const;

  const HeldFolder& mAll;
};

}  // namespace corvana
