#pragma once

#include <cstddef>
#include <span>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Reads the keyed archive, binary or XML, from bytes that need not be trusted; it is never
/// written.
///
/// Objects of classes that have no value of their own become opaque: the class names and, as one
/// group of type string "keyed", the dictionary of their keys. Those can be shown but not written
/// to a sequential archive. Thread: any.
class ZAN_KeyedUnarchiver {
 public:
  ZAN_KeyedUnarchiver() = delete;

  /// The object under the top key "root", or the only one when there is no such key, else a
  /// dictionary of all top keys. The error's text is the reason alone.
  static Result<ZAN_Value> unarchiveObjectWithData(std::span<const std::byte> data);

  /// The same in two steps, for callers that meet plain property lists as well.
  static bool isKeyedArchive(const ZAN_Value& propertyList);
  static Result<ZAN_Value> unarchiveObject(const ZAN_Value& propertyList);
};

}  // namespace corvana
