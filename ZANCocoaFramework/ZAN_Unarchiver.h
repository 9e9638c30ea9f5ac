#pragma once

#include <cstddef>
#include <span>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Reads the sequential archive, of either byte order, from bytes that need not be trusted: any
/// damage ends in an error, and depth, work and memory stay within bounds that the input's size
/// sets. Thread: any.
class ZAN_Unarchiver {
 public:
  ZAN_Unarchiver() = delete;

  /// The one root object; a nil root is null. An object within it of a known class that holds
  /// something else than that class writes becomes opaque; a root like that is an error. The
  /// error's text is the reason alone; callers put the path in front of it. No bytes at all, or
  /// another container, is `damaged` too.
  static Result<ZAN_Value> unarchiveObjectWithData(std::span<const std::byte> data);

  /// Whether the bytes begin as a sequential archive.
  static bool isArchive(std::span<const std::byte> data);
};

}  // namespace corvana
