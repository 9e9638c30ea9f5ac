#include "ZANCocoaFramework/ZAN_Value.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <unordered_map>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_Opaque.h"

namespace corvana {

namespace {

/// Below this many entries a scan over the hashes, which lie in the entries themselves, is quickest.
constexpr std::size_t kScanLimit = 128;

std::uint32_t hashOf(std::string_view text) {
  std::uint32_t hash = 2166136261U;
  for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
  return hash;
}

const ZAN_Value& nullValue() {
  static const ZAN_Value value;
  return value;
}

}  // namespace

struct ZAN_Value::Node {
  mutable std::atomic<std::uint32_t> references{1};
};

/// The characters follow the node in the same allocation.
struct ZAN_Value::StringNode : Node {
  std::uint32_t length = 0;
  char* characters() { return reinterpret_cast<char*>(this + 1); }
  const char* characters() const { return reinterpret_cast<const char*>(this + 1); }
  std::string_view view() const { return {characters(), length}; }

  static StringNode* make(std::string_view text) {
    void* memory = ::operator new(sizeof(StringNode) + text.size());
    auto* node = new (memory) StringNode;
    node->length = static_cast<std::uint32_t>(text.size());
    std::memcpy(node->characters(), text.data(), text.size());
    return node;
  }
};

struct ZAN_Value::DataNode : Node {
  std::vector<std::byte> bytes;
};

struct ZAN_Value::ArrayNode : Node {
  std::vector<ZAN_Value> elements;
};

struct ZAN_Value::DictionaryNode : Node {
  std::vector<Entry> entries;
  /// Text keys of a large dictionary to the last entry of that key; empty below kScanLimit.
  std::unordered_multimap<std::uint32_t, std::uint32_t> index;

  static constexpr std::size_t npos = std::numeric_limits<std::size_t>::max();

  static bool matches(const Entry& entry, std::uint32_t hash, std::string_view key) {
    return entry.key.mTag == hash && entry.key.isString() && entry.key.stringView() == key;
  }

  std::size_t find(std::string_view key) const {
    const std::uint32_t hash = hashOf(key);
    if (!index.empty()) {
      std::size_t found = npos;
      const auto [first, last] = index.equal_range(hash);
      for (auto it = first; it != last; ++it) {
        if (matches(entries[it->second], hash, key) && (found == npos || it->second > found)) found = it->second;
      }
      return found;
    }
    for (std::size_t i = entries.size(); i-- > 0;) {
      if (matches(entries[i], hash, key)) return i;
    }
    return npos;
  }

  void rebuildIndex() {
    index.clear();
    if (entries.size() < kScanLimit) return;
    index.reserve(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) addToIndex(i);
  }

  void addToIndex(std::size_t i) {
    if (entries[i].key.isString()) index.emplace(entries[i].key.mTag, static_cast<std::uint32_t>(i));
  }

  void append(Entry entry) {
    entries.push_back(std::move(entry));
    if (entries.size() == kScanLimit) {
      rebuildIndex();
    } else if (entries.size() > kScanLimit) {
      addToIndex(entries.size() - 1);
    }
  }
};

struct ZAN_Value::IndexSetNode : Node {
  std::vector<Range> ranges;
};

struct ZAN_Value::OpaqueNode : Node {
  std::shared_ptr<const ZAN_Opaque> object;
};

ZAN_Value::ZAN_Value(bool value) : mKind(Kind::number), mLetter('c') { mInteger = value ? 1 : 0; }
ZAN_Value::ZAN_Value(int value) : mKind(Kind::number), mLetter('i') { mInteger = value; }
ZAN_Value::ZAN_Value(long value) : mKind(Kind::number), mLetter('q') { mInteger = value; }
ZAN_Value::ZAN_Value(long long value) : mKind(Kind::number), mLetter('q') { mInteger = value; }
ZAN_Value::ZAN_Value(unsigned value) : mKind(Kind::number), mLetter('q') { mInteger = value; }
ZAN_Value::ZAN_Value(unsigned long value) : ZAN_Value(static_cast<unsigned long long>(value)) {}
ZAN_Value::ZAN_Value(unsigned long long value) : mKind(Kind::number) {
  mLetter = value <= static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()) ? 'q' : 'Q';
  mInteger = static_cast<std::int64_t>(value);
}
ZAN_Value::ZAN_Value(double value) : mKind(Kind::number), mLetter('d') { mReal = value; }
ZAN_Value::ZAN_Value(const char* text) : ZAN_Value(std::string_view(text)) {}
ZAN_Value::ZAN_Value(const std::string& text) : ZAN_Value(std::string_view(text)) {}
ZAN_Value::ZAN_Value(std::string_view text) : mKind(Kind::string), mTag(hashOf(text)) {
  mNode = StringNode::make(text);
}

ZAN_Value ZAN_Value::integer(std::int64_t value, char letter) {
  ZAN_Value number(static_cast<long long>(value));
  number.mLetter = letter == 'l' ? 'q' : letter == 'L' ? 'Q' : letter;
  return number;
}

ZAN_Value ZAN_Value::unsignedInteger(std::uint64_t value) {
  return integer(static_cast<std::int64_t>(value), 'Q');
}

ZAN_Value ZAN_Value::real(double value, char letter) {
  ZAN_Value number(value);
  number.mLetter = letter;
  return number;
}

ZAN_Value ZAN_Value::date(ReferenceTime time) {
  ZAN_Value value(time);
  value.mKind = Kind::date;
  value.mLetter = 0;
  return value;
}

ZAN_Value ZAN_Value::withNode(Kind kind, Node* node) {
  ZAN_Value value;
  value.mKind = kind;
  value.mNode = node;
  return value;
}

ZAN_Value ZAN_Value::data(std::span<const std::byte> bytes) {
  auto node = std::make_unique<DataNode>();
  node->bytes.assign(bytes.begin(), bytes.end());
  return withNode(Kind::data, node.release());
}

ZAN_Value ZAN_Value::data(std::string_view bytes) {
  return data(std::as_bytes(std::span(bytes.data(), bytes.size())));
}

ZAN_Value ZAN_Value::array(std::vector<ZAN_Value> elements) {
  auto node = std::make_unique<ArrayNode>();
  node->elements = std::move(elements);
  return withNode(Kind::array, node.release());
}

ZAN_Value ZAN_Value::set(std::vector<ZAN_Value> elements) {
  ZAN_Value value = array(std::move(elements));
  value.mKind = Kind::set;
  return value;
}

ZAN_Value ZAN_Value::dictionary(std::initializer_list<std::pair<std::string_view, ZAN_Value>> entries) {
  std::vector<Entry> list;
  list.reserve(entries.size());
  for (const auto& [key, value] : entries) list.push_back({ZAN_Value(key), value});
  return dictionaryOf(std::move(list));
}

ZAN_Value ZAN_Value::dictionaryOf(std::vector<Entry> entries) {
  auto node = std::make_unique<DictionaryNode>();
  node->entries = std::move(entries);
  node->rebuildIndex();
  return withNode(Kind::dictionary, node.release());
}

ZAN_Value ZAN_Value::indexSet(std::vector<Range> ranges) {
  std::sort(ranges.begin(), ranges.end(), [](const Range& a, const Range& b) { return a.location < b.location; });
  auto node = std::make_unique<IndexSetNode>();
  for (const Range& range : ranges) {
    if (range.length == 0) continue;
    const std::uint64_t room = std::numeric_limits<std::uint64_t>::max() - range.location;
    const std::uint64_t end = range.location + std::min(range.length, room);
    auto& merged = node->ranges;
    if (!merged.empty() && merged.back().location + merged.back().length >= range.location) {
      const std::uint64_t previousEnd = merged.back().location + merged.back().length;
      merged.back().length = std::max(previousEnd, end) - merged.back().location;
    } else {
      merged.push_back({range.location, end - range.location});
    }
  }
  return withNode(Kind::indexSet, node.release());
}

ZAN_Value ZAN_Value::opaque(std::shared_ptr<const ZAN_Opaque> object) {
  auto node = std::make_unique<OpaqueNode>();
  node->object = std::move(object);
  return withNode(Kind::opaque, node.release());
}

void ZAN_Value::retain() const {
  if (hasNode()) mNode->references.fetch_add(1, std::memory_order_relaxed);
}

void ZAN_Value::release() {
  if (!hasNode() || mNode->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
  switch (mKind) {
    case Kind::string: {
      auto* node = static_cast<StringNode*>(mNode);
      node->~StringNode();
      ::operator delete(node);
      break;
    }
    case Kind::data: std::default_delete<DataNode>()(static_cast<DataNode*>(mNode)); break;
    case Kind::array:
    case Kind::set: std::default_delete<ArrayNode>()(static_cast<ArrayNode*>(mNode)); break;
    case Kind::dictionary: std::default_delete<DictionaryNode>()(static_cast<DictionaryNode*>(mNode)); break;
    case Kind::indexSet: std::default_delete<IndexSetNode>()(static_cast<IndexSetNode*>(mNode)); break;
    case Kind::opaque: std::default_delete<OpaqueNode>()(static_cast<OpaqueNode*>(mNode)); break;
    default: break;
  }
}

ZAN_Value::ZAN_Value(const ZAN_Value& other)
    : mKind(other.mKind), mLetter(other.mLetter), mFlags(other.mFlags), mTag(other.mTag) {
  mInteger = other.mInteger;
  retain();
}

ZAN_Value::ZAN_Value(ZAN_Value&& other) noexcept
    : mKind(other.mKind), mLetter(other.mLetter), mFlags(other.mFlags), mTag(other.mTag) {
  mInteger = other.mInteger;
  other.mKind = Kind::null;
}

ZAN_Value& ZAN_Value::operator=(const ZAN_Value& other) {
  ZAN_Value copy(other);
  return *this = std::move(copy);
}

ZAN_Value& ZAN_Value::operator=(ZAN_Value&& other) noexcept {
  if (this == &other) return *this;
  // The old contents go last: `other` may be part of them.
  ZAN_Value old(std::move(*this));
  mKind = other.mKind;
  mLetter = other.mLetter;
  mFlags = other.mFlags;
  mTag = other.mTag;
  mInteger = other.mInteger;
  other.mKind = Kind::null;
  return *this;
}

ZAN_Value::~ZAN_Value() { release(); }

std::int64_t ZAN_Value::integerValue() const {
  if (isString()) {
    // The text is not terminated, and a number longer than this is out of range anyway.
    char digits[64] = {};
    stringView().copy(digits, sizeof digits - 1);
    return std::strtoll(digits, nullptr, 10);
  }
  if (!isNumber()) return 0;
  if (!isReal()) return mInteger;
  if (std::isnan(mReal)) return 0;
  if (mReal >= 9223372036854775808.0) return std::numeric_limits<std::int64_t>::max();
  if (mReal <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(mReal);
}

std::uint64_t ZAN_Value::unsignedValue() const {
  if (!isReal()) return static_cast<std::uint64_t>(integerValue());
  if (std::isnan(mReal) || mReal <= 0) return 0;
  if (mReal >= 18446744073709551616.0) return std::numeric_limits<std::uint64_t>::max();
  return static_cast<std::uint64_t>(mReal);
}

double ZAN_Value::doubleValue() const {
  if (isString()) {
    char digits[128] = {};
    stringView().copy(digits, sizeof digits - 1);
    return std::strtod(digits, nullptr);
  }
  if (!isNumber()) return 0;
  if (isReal()) return mReal;
  if (mLetter == 'Q') return static_cast<double>(static_cast<std::uint64_t>(mInteger));
  return static_cast<double>(mInteger);
}

std::string_view ZAN_Value::stringView() const {
  return isString() ? static_cast<const StringNode*>(mNode)->view() : std::string_view();
}

std::optional<std::string> ZAN_Value::asString() const {
  return isString() ? std::optional<std::string>(stringView()) : std::nullopt;
}

std::span<const std::byte> ZAN_Value::bytes() const {
  if (!isData()) return {};
  return static_cast<const DataNode*>(mNode)->bytes;
}

std::optional<ReferenceTime> ZAN_Value::asDate() const {
  return isDate() ? std::optional<ReferenceTime>(mReal) : std::nullopt;
}

const ZAN_Opaque* ZAN_Value::asOpaque() const {
  return isOpaque() ? static_cast<const OpaqueNode*>(mNode)->object.get() : nullptr;
}

std::span<const ZAN_Value::Range> ZAN_Value::ranges() const {
  if (!isIndexSet()) return {};
  return static_cast<const IndexSetNode*>(mNode)->ranges;
}

bool ZAN_Value::containsIndex(std::uint64_t index) const {
  const auto list = ranges();
  const auto after = std::upper_bound(list.begin(), list.end(), index,
                                      [](std::uint64_t i, const Range& range) { return i < range.location; });
  return after != list.begin() && index - std::prev(after)->location < std::prev(after)->length;
}

std::size_t ZAN_Value::size() const {
  if (isIndexSet()) {
    std::size_t count = 0;
    for (const Range& range : ranges()) count += range.length;
    return count;
  }
  return isDictionary() ? entries().size() : elements().size();
}

std::span<const ZAN_Value> ZAN_Value::elements() const {
  if (!isArray() && !isSet()) return {};
  return static_cast<const ArrayNode*>(mNode)->elements;
}

const ZAN_Value& ZAN_Value::at(std::size_t index) const {
  const auto list = elements();
  return index < list.size() ? list[index] : nullValue();
}

std::span<const ZAN_Value::Entry> ZAN_Value::entries() const {
  if (!isDictionary()) return {};
  return static_cast<const DictionaryNode*>(mNode)->entries;
}

const ZAN_Value& ZAN_Value::value(std::string_view key) const {
  if (!isDictionary()) return nullValue();
  const auto* node = static_cast<const DictionaryNode*>(mNode);
  const std::size_t i = node->find(key);
  return i == DictionaryNode::npos ? nullValue() : node->entries[i].value;
}

bool ZAN_Value::containsNull(std::string_view key) const {
  return isDictionary() && static_cast<const DictionaryNode*>(mNode)->find(key) != DictionaryNode::npos;
}

ZAN_Value::ArrayNode* ZAN_Value::mutableArray() {
  if (isNull()) *this = array();
  if (!isArray() && !isSet()) return nullptr;
  if (mNode->references.load(std::memory_order_acquire) > 1) {
    auto copy = std::make_unique<ArrayNode>();
    copy->elements = static_cast<ArrayNode*>(mNode)->elements;
    release();
    mNode = copy.release();
  }
  return static_cast<ArrayNode*>(mNode);
}

ZAN_Value::DictionaryNode* ZAN_Value::mutableDictionary() {
  if (isNull()) *this = dictionary();
  if (!isDictionary()) return nullptr;
  if (mNode->references.load(std::memory_order_acquire) > 1) {
    auto copy = std::make_unique<DictionaryNode>();
    copy->entries = static_cast<DictionaryNode*>(mNode)->entries;
    copy->index = static_cast<DictionaryNode*>(mNode)->index;
    release();
    mNode = copy.release();
  }
  return static_cast<DictionaryNode*>(mNode);
}

ZAN_Value::IndexSetNode* ZAN_Value::mutableIndexSet() {
  if (isNull()) *this = indexSet();
  if (!isIndexSet()) return nullptr;
  if (mNode->references.load(std::memory_order_acquire) > 1) {
    auto copy = std::make_unique<IndexSetNode>();
    copy->ranges = static_cast<IndexSetNode*>(mNode)->ranges;
    release();
    mNode = copy.release();
  }
  return static_cast<IndexSetNode*>(mNode);
}

void ZAN_Value::setValue(std::string_view key, ZAN_Value value) {
  DictionaryNode* node = mutableDictionary();
  if (node == nullptr) return;
  const std::size_t i = node->find(key);
  if (i == DictionaryNode::npos) {
    node->append({ZAN_Value(key), std::move(value)});
  } else {
    node->entries[i].value = std::move(value);
  }
}

bool ZAN_Value::removeKey(std::string_view key) {
  if (!containsNull(key)) return false;
  DictionaryNode* node = mutableDictionary();
  const std::uint32_t hash = hashOf(key);
  std::erase_if(node->entries, [&](const Entry& entry) { return DictionaryNode::matches(entry, hash, key); });
  node->rebuildIndex();
  return true;
}

void ZAN_Value::append(ZAN_Value element) {
  if (ArrayNode* node = mutableArray()) node->elements.push_back(std::move(element));
}

void ZAN_Value::insert(std::size_t index, ZAN_Value element) {
  ArrayNode* node = mutableArray();
  if (node == nullptr) return;
  index = std::min(index, node->elements.size());
  node->elements.insert(node->elements.begin() + static_cast<std::ptrdiff_t>(index), std::move(element));
}

void ZAN_Value::removeAt(std::size_t index) { removeRange(index, 1); }

void ZAN_Value::removeRange(std::size_t first, std::size_t count) {
  if (first >= elements().size()) return;
  ArrayNode* node = mutableArray();
  count = std::min(count, node->elements.size() - first);
  const auto begin = node->elements.begin() + static_cast<std::ptrdiff_t>(first);
  node->elements.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
}

void ZAN_Value::setAt(std::size_t index, ZAN_Value element) {
  if (index >= elements().size()) return;
  mutableArray()->elements[index] = std::move(element);
}

void ZAN_Value::addIndex(std::uint64_t index) {
  IndexSetNode* node = mutableIndexSet();
  if (node == nullptr || containsIndex(index)) return;
  auto& list = node->ranges;
  const auto next = std::upper_bound(list.begin(), list.end(), index,
                                     [](std::uint64_t i, const Range& range) { return i < range.location; });
  const bool joinsPrevious = next != list.begin() && std::prev(next)->location + std::prev(next)->length == index;
  const bool joinsNext = next != list.end() && next->location == index + 1;
  if (joinsPrevious && joinsNext) {
    std::prev(next)->length += 1 + next->length;
    list.erase(next);
  } else if (joinsPrevious) {
    ++std::prev(next)->length;
  } else if (joinsNext) {
    --next->location;
    ++next->length;
  } else {
    list.insert(next, {index, 1});
  }
}

void ZAN_Value::removeIndexesUpTo(std::uint64_t index) {
  if (ranges().empty() || ranges().front().location > index) return;
  auto& list = mutableIndexSet()->ranges;
  std::erase_if(list, [&](const Range& range) { return range.location + (range.length - 1) <= index; });
  if (!list.empty() && list.front().location <= index) {
    const std::uint64_t cut = index - list.front().location + 1;
    list.front().location += cut;
    list.front().length -= cut;
  }
}

std::uint64_t ZAN_Value::identity() const {
  if (hasNode()) return reinterpret_cast<std::uint64_t>(mNode);
  return mTag;
}

void ZAN_Value::setScalarIdentity(std::uint32_t number) {
  if (!hasNode()) mTag = number;
}

bool ZAN_Value::operator==(const ZAN_Value& other) const {
  if (mKind != other.mKind) return false;
  if (hasNode() && mNode == other.mNode) return true;
  switch (mKind) {
    case Kind::null: return true;
    case Kind::number:
      if (isReal() || other.isReal()) return doubleValue() == other.doubleValue();
      // The same bits mean two numbers when one is unsigned and above the signed range.
      return mInteger == other.mInteger && (mInteger >= 0 || (mLetter == 'Q') == (other.mLetter == 'Q'));
    case Kind::date: return mReal == other.mReal;
    case Kind::string: return mTag == other.mTag && stringView() == other.stringView();
    case Kind::data: return std::ranges::equal(bytes(), other.bytes());
    case Kind::array: return std::ranges::equal(elements(), other.elements());
    case Kind::set:
      return elements().size() == other.elements().size() &&
             std::is_permutation(elements().begin(), elements().end(), other.elements().begin());
    case Kind::indexSet: return std::ranges::equal(ranges(), other.ranges());
    case Kind::dictionary:
      return size() == other.size() && std::ranges::all_of(entries(), [&](const Entry& entry) {
               if (entry.key.isString()) {
                 const std::string_view key = entry.key.stringView();
                 return other.contains(key) && other.value(key) == entry.value;
               }
               return std::ranges::any_of(other.entries(), [&](const Entry& candidate) {
                 return candidate.key == entry.key && candidate.value == entry.value;
               });
             });
    case Kind::opaque: return asOpaque() != nullptr && other.asOpaque() != nullptr && *asOpaque() == *other.asOpaque();
  }
  return false;
}

std::size_t ZAN_Value::footprint() const {
  std::unordered_set<const Node*> seen;
  std::vector<const ZAN_Value*> pending{this};
  std::size_t total = 0;
  while (!pending.empty()) {
    const ZAN_Value& value = *pending.back();
    pending.pop_back();
    if (!value.hasNode() || !seen.insert(value.mNode).second) continue;
    total += sizeof(DictionaryNode);
    total += value.stringView().size() + value.bytes().size() + value.ranges().size_bytes();
    total += value.elements().size_bytes() + value.entries().size_bytes();
    for (const ZAN_Value& element : value.elements()) pending.push_back(&element);
    for (const Entry& entry : value.entries()) {
      pending.push_back(&entry.key);
      pending.push_back(&entry.value);
    }
  }
  return total;
}

}  // namespace corvana
