#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "ZANCocoaFramework/ZAN_ValueNodes.h"

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

/// Reads one binary property list. Every object is built once, and all together may not take more
/// bytes than there are, so what overlaps or names itself is refused.
class ZAN_BinaryPropertyList {
 public:
  static constexpr std::string_view kMagic = "bplist00";
  /// The one key of the dictionary that a reference within a keyed archive becomes, as in the XML
  /// form.
  static constexpr std::string_view kReferenceKey = "CF$UID";

  explicit ZAN_BinaryPropertyList(std::span<const std::byte> data);
  Result<ZAN_Value> read();

 private:
  enum class State : std::uint8_t { unread, open, done };

  bool readTrailer();
  bool readObject(std::uint64_t index, int depth, ZAN_Value& into);
  bool parse(std::uint64_t offset, int depth, ZAN_Value& into);
  bool parseInteger(unsigned width, ZAN_Value& into);
  bool parseReal(unsigned width, ZAN_Value& into);
  bool parseText(std::uint64_t units, bool wide, ZAN_Value& into);
  bool parseElements(std::uint64_t count, bool isSet, int depth, ZAN_Value& into);
  bool parseDictionary(std::uint64_t count, int depth, ZAN_Value& into);
  bool parseReference(unsigned width, ZAN_Value& into);
  bool parseCount(unsigned nibble, std::uint64_t& count);

  /// The next bytes of the object that is being read; each counts once for the whole list.
  bool take(std::uint64_t count, std::string_view& bytes);
  bool takeNumber(unsigned width, std::uint64_t& number);
  std::uint64_t numberAt(std::uint64_t offset, unsigned width) const;
  bool fail(const char* reason, ErrorKind kind = ErrorKind::damaged);

  std::string_view mData;
  std::uint64_t mNext = 0;
  std::uint64_t mBudget;
  unsigned mOffsetSize = 0;
  unsigned mReferenceSize = 0;
  std::uint64_t mObjectCount = 0;
  std::uint64_t mTopObject = 0;
  std::uint64_t mOffsetTable = 0;
  std::vector<ZAN_Value> mObjects;
  std::vector<State> mStates;
  ZAN_TextPool mKeys;
  Error mError;
};

}  // namespace corvana
