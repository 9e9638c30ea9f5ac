#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// An object of a class that this program does not know, kept so that it is written back as it was.
struct ZAN_Opaque {
  struct ClassName {
    std::string name;
    std::int64_t version = 0;
    bool operator==(const ClassName&) const = default;
  };
  /// One encoded group: the type string and the leaves of its values in order. A leaf of type '@'
  /// is the object, of 'c', 'i', 'd' and their like a number, of '*', ':' and '%' a text or null,
  /// of '+' and '[Nc]' data, of '#' an array of [name, version] pairs, derived class first, or
  /// null.
  struct Group {
    std::string types;
    std::vector<ZAN_Value> leaves;
    bool operator==(const Group&) const = default;
  };

  std::vector<ClassName> classes;  ///< derived class first, root class last
  std::vector<Group> groups;

  bool operator==(const ZAN_Opaque&) const = default;
};

}  // namespace corvana
