#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Property lists, binary ("bplist00") and XML, read from bytes that need not be trusted. What a
/// binary list shares stays shared. Thread: any.
class ZAN_PropertyList {
 public:
  ZAN_PropertyList() = delete;

  /// Whether the bytes begin as a binary or XML property list.
  static bool isPropertyList(std::span<const std::byte> data);

  /// Integers get the letter 'q' ('Q' above its range), booleans 'c'. The error's text is the
  /// reason alone.
  static Result<ZAN_Value> propertyListWithData(std::span<const std::byte> data);

  /// The list as XML, UTF-8. Null, sets, index sets, opaque values and entries whose key is not a
  /// text have no form there and are left out, as are control characters; a root of such a kind
  /// gives an empty dictionary. What the value shares is written out each time, so not for bytes
  /// from outside.
  static std::string xmlPropertyList(const ZAN_Value& root);

  /// The value as people read it: a text as it is, containers in braces and parentheses, one
  /// element a line, keys in order.
  static std::string description(const ZAN_Value& value);
};

}  // namespace corvana
