#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// What reader and writer of the sequential archive both know about its format.
namespace archive {

// Head bytes; every other one from 0x92 up to 0x7f is a small number itself.
inline constexpr std::uint8_t kInteger16 = 0x81;
inline constexpr std::uint8_t kInteger32 = 0x82;
inline constexpr std::uint8_t kReal = 0x83;
inline constexpr std::uint8_t kNew = 0x84;
inline constexpr std::uint8_t kNil = 0x85;
inline constexpr std::uint8_t kEnd = 0x86;
inline constexpr std::uint8_t kInteger64 = 0x87;
inline constexpr int kFirstReference = -110;  ///< how entry 0 of a table is named

inline constexpr std::string_view kLittleEndianSignature = "streamtyped";
inline constexpr std::string_view kBigEndianSignature = "typedstream";
inline constexpr std::uint8_t kStreamerVersion = 4;
inline constexpr int kSystemVersion = 1000;

/// The identity of a null object that was not read from an archive.
inline constexpr std::uint32_t kNullObject = 0xffffffff;

inline constexpr int kDepthLimit = 128;  ///< of objects within objects
inline constexpr int kClassDepthLimit = 64;
inline constexpr int kTypeDepthLimit = 16;
inline constexpr std::size_t kTypeLengthLimit = 4096;

/// A class whose objects have a value of their own.
enum class KnownClass : std::uint8_t {
  none,
  object,
  string,
  mutableString,
  data,
  mutableData,
  date,
  valueObject,
  number,
  array,
  mutableArray,
  dictionary,
  mutableDictionary,
  set,
  mutableSet,
  null,
  indexSet,
  mutableIndexSet,
};
inline constexpr std::size_t kKnownClasses = 18;

struct ClassLayout {
  std::string_view name;
  std::int32_t version;
  KnownClass super;
};
/// Of any class but `none`.
const ClassLayout& layout(KnownClass known);
/// `none` unless name, version and superclass all are as expected.
KnownClass knownClass(std::string_view name, std::int64_t version, KnownClass super);

/// The class that an object of this kind is written as; `none` for opaque values.
KnownClass classOf(const ZAN_Value& value);

/// Letters that a number may carry.
bool isNumberLetter(char letter);

/// A parsed type string: a tree of the values that one group holds.
struct Type {
  char code = 0;            ///< a letter, '[' for a run, '{' for fields
  std::uint32_t count = 0;  ///< of a run
  std::vector<Type> parts;  ///< the one element of a run, the fields of a structure

  bool isBytes() const { return code == '[' && (parts[0].code == 'c' || parts[0].code == 'C'); }
  /// Leaves that the values take, bytes counting as one; held at 2^40.
  std::uint64_t leaves() const;
};

/// Nothing when the string is not of the permitted types through and through, is nested too deeply,
/// or holds a value that might take no byte (only "[0c]" and "[0C]" alone may).
std::optional<std::vector<Type>> parseTypes(std::string_view types);

}  // namespace archive
}  // namespace corvana
