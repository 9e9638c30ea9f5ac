#pragma once

#include <cstddef>
#include <initializer_list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

struct ZAN_Opaque;

/// A property-list value: what the data files, the preferences and the messages are made of.
///
/// Sixteen bytes; text, data and containers are shared between copies until one of them is changed,
/// so a copy costs a reference count. Reading never fails: a missing key, an index out of range and
/// a value of another kind read as null, zero or empty. A null value stands both for "no value" and
/// for the null object.
///
/// What the archive's bytes depend on is carried along: the order of a dictionary's keys, whether a
/// text or a container was mutable, a number's stored type letter, and identity, that is whether
/// two places hold the same object or two equal ones. Copying a value copies its identity, as a
/// pointer would.
///
/// Thread: one value belongs to one thread; copies of it may be used on others.
class ZAN_Value {
 public:
  enum class Kind : std::uint8_t {
    null,
    number,
    string,
    data,
    date,
    array,
    dictionary,
    set,
    indexSet,
    opaque
  };
  /// A run of indexes: first, how many. Never empty in a stored index set.
  struct Range {
    std::uint64_t location = 0;
    std::uint64_t length = 0;
    bool operator==(const Range&) const = default;
  };
  struct Entry;

  ZAN_Value() = default;
  ZAN_Value(std::nullptr_t) {}
  ZAN_Value(bool value);           ///< letter 'c', 0 or 1
  ZAN_Value(int value);            ///< letter 'i'
  ZAN_Value(long value);           ///< letter 'q'
  ZAN_Value(long long value);      ///< letter 'q'
  ZAN_Value(unsigned value);       ///< letter 'q'
  ZAN_Value(unsigned long value);  ///< letter 'q' when it fits, else 'Q'
  ZAN_Value(unsigned long long value);
  ZAN_Value(double value);  ///< letter 'd'; a date is made by `date`
  ZAN_Value(const char* text);
  ZAN_Value(std::string_view text);
  ZAN_Value(const std::string& text);
  /// A pointer would otherwise turn into a bool.
  template <class T>
  ZAN_Value(T*) = delete;

  /// A number with a given type letter, one of "csifdqBCILSQ" ('l' and 'L' become 'q' and 'Q').
  static ZAN_Value integer(std::int64_t value, char letter);
  static ZAN_Value unsignedInteger(std::uint64_t value);  ///< letter 'Q'
  static ZAN_Value real(double value, char letter = 'd');
  static ZAN_Value date(ReferenceTime time);
  static ZAN_Value data(std::span<const std::byte> bytes);
  static ZAN_Value data(std::string_view bytes);
  static ZAN_Value array(std::vector<ZAN_Value> elements = {});
  static ZAN_Value set(std::vector<ZAN_Value> elements);
  static ZAN_Value dictionary(
      std::initializer_list<std::pair<std::string_view, ZAN_Value>> entries = {});
  static ZAN_Value dictionaryOf(std::vector<Entry> entries);
  /// Sorted and merged whatever the order and overlap of `ranges`; empty ranges are dropped.
  static ZAN_Value indexSet(std::vector<Range> ranges = {});
  static ZAN_Value opaque(std::shared_ptr<const ZAN_Opaque> object);

  ZAN_Value(const ZAN_Value& other) {
    copyFields(other);
    retain();
  }
  ZAN_Value(ZAN_Value&& other) noexcept {
    copyFields(other);
    other.clearFields();
  }
  ZAN_Value& operator=(const ZAN_Value& other) {
    if (this == &other) return *this;
    other.retain();
    ZAN_Value old(std::move(*this));
    copyFields(other);
    return *this;
  }
  ZAN_Value& operator=(ZAN_Value&& other) noexcept {
    if (this == &other) return *this;
    // The old contents go last: `other` may be part of them.
    ZAN_Value old(std::move(*this));
    copyFields(other);
    other.clearFields();
    return *this;
  }
  ~ZAN_Value() { release(); }

  Kind kind() const { return mKind; }
  bool isNull() const { return mKind == Kind::null; }
  bool isNumber() const { return mKind == Kind::number; }
  bool isString() const { return mKind == Kind::string; }
  bool isData() const { return mKind == Kind::data; }
  bool isDate() const { return mKind == Kind::date; }
  bool isArray() const { return mKind == Kind::array; }
  bool isDictionary() const { return mKind == Kind::dictionary; }
  bool isSet() const { return mKind == Kind::set; }
  bool isIndexSet() const { return mKind == Kind::indexSet; }
  bool isOpaque() const { return mKind == Kind::opaque; }

  // Numbers. A text that begins with a decimal number reads as that number, as the platform does;
  // anything else reads as 0. Reals are cut towards zero and held within the range of the result.
  std::int64_t integerValue() const;
  std::uint64_t unsignedValue() const;
  double doubleValue() const;
  bool boolValue() const { return isNumber() ? doubleValue() != 0 : integerValue() != 0; }
  /// The stored type letter of a number, 0 for other kinds.
  char letter() const { return mKind == Kind::number ? static_cast<char>(mOrdinal) : '\0'; }
  bool isReal() const { return letter() == 'd' || letter() == 'f'; }

  /// The UTF-8 text, empty for other kinds; valid as long as this value is neither changed nor
  /// destroyed.
  std::string_view stringView() const;
  std::string string() const { return std::string(stringView()); }
  std::optional<std::string> asString() const;
  std::span<const std::byte> bytes() const;  ///< of data; empty for other kinds
  std::optional<ReferenceTime> asDate() const;
  const ZAN_Opaque* asOpaque() const;
  std::span<const Range> ranges() const;  ///< of an index set, ascending, apart from each other
  bool containsIndex(std::uint64_t index) const;

  /// How many elements, entries or indexes a container holds; 0 for other kinds.
  std::size_t size() const;
  bool empty() const { return size() == 0; }
  /// The elements of an array or a set, in stored order; empty for other kinds.
  std::span<const ZAN_Value> elements() const;
  const ZAN_Value& at(std::size_t index) const;
  /// The entries of a dictionary in stored order; empty for other kinds.
  std::span<const Entry> entries() const;
  /// The value under a text key, null when there is none. With a key stored twice the last one
  /// counts.
  const ZAN_Value& value(std::string_view key) const;
  const ZAN_Value& operator[](std::string_view key) const { return value(key); }
  bool contains(std::string_view key) const;
  std::int64_t integer(std::string_view key) const { return value(key).integerValue(); }
  std::string string(std::string_view key) const { return value(key).string(); }

  // Changes. A null value becomes a container of the kind that the change needs; on another kind
  // nothing happens. What other copies see stays as it was.
  void setValue(std::string_view key, ZAN_Value value);  ///< replaces in place or appends
  bool removeKey(std::string_view key);                  ///< whether it was there
  void append(ZAN_Value element);                        ///< to an array
  void insert(std::size_t index, ZAN_Value element);     ///< at the end when index passes it
  void removeAt(std::size_t index);
  void removeRange(std::size_t first, std::size_t count);
  void setAt(std::size_t index, ZAN_Value element);
  void addIndex(std::uint64_t index);           ///< to an index set
  void removeIndexesUpTo(std::uint64_t index);  ///< removes every index <= `index`

  /// Whether the archive names the mutable class; new values are not mutable.
  bool isMutable() const { return (mFlags & kMutable) != 0; }
  void setMutable(bool flag) {
    mFlags = static_cast<std::uint8_t>(flag ? (mFlags | kMutable) : (mFlags & ~kMutable));
  }

  /// Something equal exactly for values that are one object: a shared node, or a scalar or a text
  /// of a ZAN_TextPool marked as shared. 0 for one of those that is an object of its own.
  std::uint64_t identity() const;
  /// Whether other values may be the same object; where it says no, nobody need remember the
  /// identity.
  bool mayBeShared() const;
  /// Gives a scalar (number, date, null) an identity that its copies keep; `number` is unique to
  /// the object within one archive and not 0. Ignored for kinds with a node. A null with an
  /// identity is the null object even where nil could stand.
  void setScalarIdentity(std::uint32_t number);

  /// Equal contents: order of keys, mutability, letters and identity do not count (1 equals 1.0).
  /// Nodes that are shared within both values are compared once.
  bool operator==(const ZAN_Value& other) const;

  /// Bytes that this value alone holds on to, nodes shared within it counted once; for budgets and
  /// figures.
  std::size_t footprint() const;

 private:
  friend class ZAN_TextPool;

  static constexpr std::uint8_t kMutable = 1;
  static constexpr std::uint8_t kPooled = 2;
  struct BytesNode;
  struct ArrayNode;
  struct DictionaryNode;
  struct IndexSetNode;
  struct OpaqueNode;
  struct Node;

  class Comparison;
  bool isPooled() const { return (mFlags & kPooled) != 0; }
  bool hasNode() const { return mKind >= Kind::string && mKind != Kind::date; }
  void copyFields(const ZAN_Value& other) {
    mKind = other.mKind;
    mFlags = other.mFlags;
    mOrdinal = other.mOrdinal;
    mTag = other.mTag;
    mInteger = other.mInteger;
  }
  void clearFields() {
    mKind = Kind::null;
    mFlags = 0;
    mOrdinal = 0;
    mTag = 0;
  }
  void retain() const {
    if (hasNode()) retainNode();
  }
  void release() {
    if (hasNode()) releaseNode();
  }
  void retainNode() const;
  void releaseNode();
  static ZAN_Value withNode(Kind kind, Node* node);
  ArrayNode* mutableArray();
  DictionaryNode* mutableDictionary();
  IndexSetNode* mutableIndexSet();

  Kind mKind = Kind::null;
  std::uint8_t mFlags = 0;
  std::uint16_t mOrdinal =
      0;                   ///< of a number: its letter; of a pooled text: which object, 0 unshared
  std::uint32_t mTag = 0;  ///< of a text: its hash; of a scalar: its identity
  union {
    std::int64_t mInteger = 0;
    double mReal;
    Node* mNode;
  };
};

struct ZAN_Value::Entry {
  ZAN_Value key;
  ZAN_Value value;
};

}  // namespace corvana
