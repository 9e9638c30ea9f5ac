#pragma once

#include "ZANCocoaFramework/ZAN_ArchiveStream.h"
#include "ZANCocoaFramework/ZAN_Opaque.h"

namespace corvana {

/// The objects of an archive that may come again, by identity.
///
/// A scalar's identity is unique within one archive only, so its contents belong to its key: values
/// of several archives may stand together.
class ZAN_SharedObjects {
 public:
  ZAN_SharedObjects() : mSlots(64) {}
  /// The number that the object has; `number` itself when it is new, which it is given then.
  std::uint32_t numberOf(const ZAN_Value& value, std::uint32_t number);

 private:
  struct Slot {
    std::uint64_t identity = 0;  ///< 0 is free
    std::uint64_t contents = 0;
    std::uint32_t number = 0;
    std::uint32_t shape = 0;  ///< kind and letter
  };
  void grow();
  Slot& find(const Slot& key);

  std::vector<Slot> mSlots;
  std::size_t mCount = 0;
};

/// The upper half of writing a sequential archive: objects, classes and groups.
class ZAN_ArchiveEncoder {
 public:
  ZAN_ArchiveEncoder() { mKnownClasses.fill(ZAN_ArchiveNumbers::kNone); }
  std::vector<std::byte> encode(const ZAN_Value& root);

 private:
  using Chain = std::span<const ZAN_Opaque::ClassName>;
  using Types = std::vector<archive::Type>;
  struct Leaves;

  void writeObject(const ZAN_Value& value, bool mayBeNil);
  void writeContents(const ZAN_Value& value);
  void writeText(std::string_view text);
  void writeData(std::span<const std::byte> bytes);
  void writeNumber(const ZAN_Value& value);
  void writeScalar(char letter, const ZAN_Value& value);
  void writeIndexSet(const ZAN_Value& value);
  void writeCString(std::string_view text);

  void writeKnownClass(archive::KnownClass known);
  void writeChain(Chain chain);
  bool canWrite(const ZAN_Opaque& opaque);
  static bool fits(const archive::Type& type, Leaves& leaves);
  const Types* typesOf(const std::string& types);
  void writeOpaque(const ZAN_Opaque& opaque);
  void writeLeaves(const archive::Type& type, Leaves& leaves);
  void writeLeaf(char code, const ZAN_Value& leaf);
  void writeClassLeaf(const ZAN_Value& leaf);

  ZAN_ArchiveOutput mOutput;
  ZAN_SharedObjects mShared;
  std::array<std::int64_t, archive::kKnownClasses> mKnownClasses;
  ZAN_ArchiveNumbers mOtherClasses;  ///< by their whole chain
  ZAN_ArchiveNumbers mCStrings;
  std::unordered_map<std::string, Types> mTypes;  ///< empty: cannot be written
  std::uint32_t mObjectCount = 0;  ///< objects, classes and C strings share one numbering
};

}  // namespace corvana
