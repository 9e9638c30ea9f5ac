#pragma once

#include <string>

#include "execute/plain/Versions.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// What an interrupted run has copied of a file stays in a hidden folder beside it, so that the
/// next run goes on from there. A half is only ever compared with: a wrong one costs time and
/// nothing else. rsync keeps it when it is told to end, and takes it away with the file's end.
struct HalfFiles {
  static constexpr std::string_view kName = Versions::kHalves;

  HalfFiles() = delete;
  /// Whether the copy has a half of the item.
  static bool has(const HeldFolder& copy, const std::string& item);
  /// Takes what a killed rsync left in the copy under a name of its own for a half of the item.
  static void take(const HeldFolder& copy, const std::string& left, const std::string& item);
};

}  // namespace corvana
