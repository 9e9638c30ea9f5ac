#pragma once

#include "ZANCocoaFramework/ZAN_ArchiveStream.h"
#include "ZANCocoaFramework/ZAN_ValueNodes.h"

namespace corvana {

/// The upper half of reading a sequential archive: one pass that turns objects into values.
///
/// Values are built in the place where they stay, so that the table of objects holds only
/// addresses. Work and memory are bounded by the input: every element that a container announces
/// must be backed by bytes that no other open container counts on.
class ZAN_ArchiveDecoder {
 public:
  /// `asOpaque`: numbers of objects that are read as opaque although their class is known, because
  /// an earlier pass found their contents to be other than that class writes.
  ZAN_ArchiveDecoder(std::span<const std::byte> data, const std::vector<std::uint32_t>& asOpaque);

  /// `root` must stay in its place until this is done. False after damage.
  bool decode(ZAN_Value& root);
  Error error() const { return mStream.error(); }
  /// After a failure: the object that may be read as opaque instead; -1 when that would not help.
  std::int64_t misfit() const { return mMisfit; }

 private:
  enum class Position : std::uint8_t { element, key, leaf };
  struct Slot {
    enum class Kind : std::uint8_t { open, object, classEntry, cString };
    ZAN_Value* value;     ///< of an object: where it was put first
    std::uint32_t index;  ///< of a class or a C string: its entry
    Kind kind;
  };
  struct ClassEntry {
    std::int32_t name;
    std::int32_t version;
    std::int32_t super;  ///< -1 for a root class
    std::int32_t depth;
    archive::KnownClass known;
  };

  bool readObject(ZAN_Value& into, Position position);
  bool readNewObject(ZAN_Value& into, Position position);
  bool readContents(archive::KnownClass known, ZAN_Value& into, Position position);
  bool readReference(std::uint8_t head, ZAN_Value& into);
  bool readClass(std::int32_t& index);
  bool readCString(std::int32_t& string);

  /// A group of a single type; another type makes the current object a misfit.
  bool expectGroup(char letter);
  bool doesNotFit(const char* reason = "an object that holds other values than its class");
  bool reserve(std::size_t count, std::size_t bytesEach);

  bool readText(ZAN_Value& into, Position position);
  bool readData(ZAN_Value& into);
  bool readDate(ZAN_Value& into);
  bool readNumber(ZAN_Value& into);
  bool readElements(char countLetter, ZAN_Value& into);
  bool readDictionary(ZAN_Value& into);
  bool readIndexSet(ZAN_Value& into);
  bool readUnsigned32(std::uint64_t& value);
  bool readScalar(char letter, ZAN_Value& into);

  bool readOpaque(std::int32_t classIndex, ZAN_Value& into);
  bool readLeaves(const archive::Type& type, std::vector<ZAN_Value>& leaves);
  bool readLeaf(char code, ZAN_Value& into);
  bool readClassLeaf(ZAN_Value& into);
  bool sharedText(std::int32_t string, ZAN_Value& into);
  bool charge(std::size_t bytes);

  ZAN_ArchiveStream mStream;
  const std::vector<std::uint32_t>& mAsOpaque;
  ZAN_TextPool mKeys;
  std::vector<Slot> mSlots;
  std::vector<ClassEntry> mClasses;
  std::vector<ZAN_Value> mTexts;  ///< shared strings that became leaves of opaque objects
  std::size_t mPromised = 0;      ///< bytes that elements still to come need at the least
  std::size_t mBudget;            ///< for what opaque objects copy
  std::uint32_t mCurrent = 0;     ///< number of the innermost object that is being read
  std::int64_t mMisfit = -1;
  int mDepth = 0;
};

}  // namespace corvana
