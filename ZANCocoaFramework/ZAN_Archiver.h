#pragma once

#include <cstddef>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Writes the sequential archive, the container of all data files.
///
/// The bytes follow from the value alone: from its order of keys, its mutable marks, its type
/// letters and which places hold the same object. What ZAN_Unarchiver read from a little-endian
/// archive gives the same bytes again, unless it was spelled in an unusual but permitted way.
/// Thread: any.
class ZAN_Archiver {
 public:
  ZAN_Archiver() = delete;

  /// A null root is written as nil. A null inside a container is the null object, as is a null key;
  /// there is one null object for all of them.
  static std::vector<std::byte> archivedDataWithRootObject(const ZAN_Value& root);
};

}  // namespace corvana
