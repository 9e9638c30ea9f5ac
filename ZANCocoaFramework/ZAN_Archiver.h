#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
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
