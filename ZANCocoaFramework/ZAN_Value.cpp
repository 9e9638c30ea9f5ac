#include "ZANCocoaFramework/ZAN_Value.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>
#include <set>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "ZANCocoaFramework/ZAN_TextPool.h"

namespace corvana {

namespace {

/// Below this many entries a scan over the hashes, which lie in the entries themselves, is
/// quickest.
constexpr std::size_t kScanLimit = 128;

std::uint32_t hashOf(std::string_view text) {
  constexpr std::uint64_t kMultiplier = 0x9e3779b97f4a7c15U;
  std::uint64_t hash = text.size() * kMultiplier;
  const char* next = text.data();
  for (std::size_t left = text.size(); left > 0;) {
    const std::size_t step = std::min<std::size_t>(left, 8);
    std::uint64_t word = 0;
    std::memcpy(&word, next, step);
    hash = (hash ^ word) * kMultiplier;
    hash ^= hash >> 29;
    next += step;
    left -= step;
  }
  return static_cast<std::uint32_t>(hash ^ (hash >> 32));
}

const ZAN_Value& nullValue() {
  static const ZAN_Value value{};
  return value;
}

}  // namespace

struct ZAN_Value::Node {
  mutable std::atomic<std::uint32_t> references{1};
};

/// Text or data; the bytes follow the node in the same allocation.
struct ZAN_Value::BytesNode : Node {
  std::uint32_t length = 0;
  std::uint16_t lastOrdinal = 0;  ///< of a pooled text: the last one given to an object
  char* characters() { return reinterpret_cast<char*>(this + 1); }
  const char* characters() const { return reinterpret_cast<const char*>(this + 1); }
  std::string_view view() const { return {characters(), length}; }

  static BytesNode* make(std::string_view text) {
    if (text.size() > std::numeric_limits<std::uint32_t>::max())
      throw std::length_error("ZAN_Value");
    void* memory = ::operator new(sizeof(BytesNode) + text.size());
    auto* node = new (memory) BytesNode;
    node->length = static_cast<std::uint32_t>(text.size());
    if (!text.empty()) std::memcpy(node->characters(), text.data(), text.size());
    return node;
  }
};

struct ZAN_Value::ArrayNode : Node {
  std::vector<ZAN_Value> elements;
};

struct ZAN_Value::DictionaryNode : Node {
  using Index = std::unordered_multimap<std::uint32_t, std::uint32_t>;

  std::vector<Entry> entries;
  std::unique_ptr<Index>
      index;  ///< hashes of a large dictionary's text keys; none below kScanLimit

  static constexpr std::size_t npos = std::numeric_limits<std::size_t>::max();

  static bool matches(const Entry& entry, std::uint32_t hash, std::string_view key) {
    return entry.key.mTag == hash && entry.key.isString() && entry.key.stringView() == key;
  }

  std::size_t find(std::string_view key) const {
    const std::uint32_t hash = hashOf(key);
    if (index) {
      std::size_t found = npos;
      const auto [first, last] = index->equal_range(hash);
      for (auto it = first; it != last; ++it) {
        if (matches(entries[it->second], hash, key) && (found == npos || it->second > found))
          found = it->second;
      }
      return found;
    }
    for (std::size_t i = entries.size(); i-- > 0;) {
      if (matches(entries[i], hash, key)) return i;
    }
    return npos;
  }

  void rebuildIndex() {
    index.reset();
    if (entries.size() < kScanLimit) return;
    index = std::make_unique<Index>();
    index->reserve(entries.size());
    for (std::size_t i = 0; i < entries.size(); ++i) addToIndex(i);
  }

  void addToIndex(std::size_t i) {
    if (entries[i].key.isString())
      index->emplace(entries[i].key.mTag, static_cast<std::uint32_t>(i));
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

ZAN_Value::ZAN_Value(bool value) : mKind(Kind::number), mOrdinal('c') { mInteger = value ? 1 : 0; }
ZAN_Value::ZAN_Value(int value) : mKind(Kind::number), mOrdinal('i') { mInteger = value; }
ZAN_Value::ZAN_Value(long value) : mKind(Kind::number), mOrdinal('q') { mInteger = value; }
ZAN_Value::ZAN_Value(long long value) : mKind(Kind::number), mOrdinal('q') { mInteger = value; }
ZAN_Value::ZAN_Value(unsigned value) : mKind(Kind::number), mOrdinal('q') { mInteger = value; }
ZAN_Value::ZAN_Value(unsigned long value) : ZAN_Value(static_cast<unsigned long long>(value)) {}
ZAN_Value::ZAN_Value(unsigned long long value) : mKind(Kind::number), mOrdinal('q') {
  if (value > static_cast<unsigned long long>(std::numeric_limits<std::int64_t>::max()))
    mOrdinal = 'Q';
  mInteger = static_cast<std::int64_t>(value);
}
ZAN_Value::ZAN_Value(double value) : mKind(Kind::number), mOrdinal('d') { mReal = value; }
ZAN_Value::ZAN_Value(const char* text) : ZAN_Value(std::string_view(text)) {}
ZAN_Value::ZAN_Value(const std::string& text) : ZAN_Value(std::string_view(text)) {}
ZAN_Value::ZAN_Value(std::string_view text) : mKind(Kind::string), mTag(hashOf(text)) {
  mNode = BytesNode::make(text);
}

ZAN_Value ZAN_Value::integer(std::int64_t value, char letter) {
  ZAN_Value number(static_cast<long long>(value));
  number.mOrdinal = static_cast<unsigned char>(letter == 'l' ? 'q' : letter == 'L' ? 'Q' : letter);
  return number;
}

ZAN_Value ZAN_Value::unsignedInteger(std::uint64_t value) {
  return integer(static_cast<std::int64_t>(value), 'Q');
}

ZAN_Value ZAN_Value::real(double value, char letter) {
  ZAN_Value number(value);
  number.mOrdinal = static_cast<unsigned char>(letter);
  return number;
}

ZAN_Value ZAN_Value::date(ReferenceTime time) {
  ZAN_Value value(time);
  value.mKind = Kind::date;
  value.mOrdinal = 0;
  return value;
}

ZAN_Value ZAN_Value::withNode(Kind kind, Node* node) {
  ZAN_Value value;
  value.mKind = kind;
  value.mNode = node;
  return value;
}

ZAN_Value ZAN_Value::data(std::span<const std::byte> bytes) {
  return data(std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

ZAN_Value ZAN_Value::data(std::string_view bytes) {
  return withNode(Kind::data, BytesNode::make(bytes));
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

ZAN_Value ZAN_Value::dictionary(
    std::initializer_list<std::pair<std::string_view, ZAN_Value>> entries) {
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
  std::sort(ranges.begin(), ranges.end(),
            [](const Range& a, const Range& b) { return a.location < b.location; });
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
    case Kind::string:
    case Kind::data: {
      auto* node = static_cast<BytesNode*>(mNode);
      node->~BytesNode();
      ::operator delete(node);
      break;
    }
    case Kind::array:
    case Kind::set:
      std::default_delete<ArrayNode>()(static_cast<ArrayNode*>(mNode));
      break;
    case Kind::dictionary:
      std::default_delete<DictionaryNode>()(static_cast<DictionaryNode*>(mNode));
      break;
    case Kind::indexSet:
      std::default_delete<IndexSetNode>()(static_cast<IndexSetNode*>(mNode));
      break;
    case Kind::opaque:
      std::default_delete<OpaqueNode>()(static_cast<OpaqueNode*>(mNode));
      break;
    default:
      break;
  }
}

ZAN_Value::ZAN_Value(const ZAN_Value& other)
    : mKind(other.mKind), mFlags(other.mFlags), mOrdinal(other.mOrdinal), mTag(other.mTag) {
  mInteger = other.mInteger;
  retain();
}

ZAN_Value::ZAN_Value(ZAN_Value&& other) noexcept
    : mKind(other.mKind), mFlags(other.mFlags), mOrdinal(other.mOrdinal), mTag(other.mTag) {
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
  mFlags = other.mFlags;
  mOrdinal = other.mOrdinal;
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
  if (letter() == 'Q') return static_cast<double>(static_cast<std::uint64_t>(mInteger));
  return static_cast<double>(mInteger);
}

std::string_view ZAN_Value::stringView() const {
  return isString() ? static_cast<const BytesNode*>(mNode)->view() : std::string_view();
}

std::optional<std::string> ZAN_Value::asString() const {
  return isString() ? std::optional<std::string>(stringView()) : std::nullopt;
}

std::span<const std::byte> ZAN_Value::bytes() const {
  if (!isData()) return {};
  const std::string_view view = static_cast<const BytesNode*>(mNode)->view();
  return std::as_bytes(std::span(view.data(), view.size()));
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
  const auto after =
      std::upper_bound(list.begin(), list.end(), index,
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

bool ZAN_Value::contains(std::string_view key) const {
  return isDictionary() &&
         static_cast<const DictionaryNode*>(mNode)->find(key) != DictionaryNode::npos;
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
    copy->rebuildIndex();
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
  if (!contains(key)) return false;
  DictionaryNode* node = mutableDictionary();
  const std::uint32_t hash = hashOf(key);
  std::erase_if(node->entries,
                [&](const Entry& entry) { return DictionaryNode::matches(entry, hash, key); });
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
  node->elements.insert(node->elements.begin() + static_cast<std::ptrdiff_t>(index),
                        std::move(element));
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
  const auto next =
      std::upper_bound(list.begin(), list.end(), index,
                       [](std::uint64_t i, const Range& range) { return i < range.location; });
  const bool joinsPrevious =
      next != list.begin() && std::prev(next)->location + std::prev(next)->length == index;
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
  std::erase_if(list,
                [&](const Range& range) { return range.location + (range.length - 1) <= index; });
  if (!list.empty() && list.front().location <= index) {
    const std::uint64_t cut = index - list.front().location + 1;
    list.front().location += cut;
    list.front().length -= cut;
  }
}

std::uint64_t ZAN_Value::identity() const {
  if (!hasNode()) return mTag;
  const auto node = reinterpret_cast<std::uint64_t>(mNode);
  if (!isPooled()) return node;
  // An address has 47 bits and is even, so this is exact and never another node's address.
  return mOrdinal == 0 ? 0 : node << 17 | std::uint64_t{mOrdinal} << 1 | 1;
}

bool ZAN_Value::mayBeShared() const {
  if (!hasNode()) return mTag != 0;
  return isPooled() ? mOrdinal != 0 : mNode->references.load(std::memory_order_relaxed) > 1;
}

void ZAN_Value::setScalarIdentity(std::uint32_t number) {
  if (!hasNode()) mTag = number;
}

/// Compares two values, and each pair of nodes that both sides share only once.
class ZAN_Value::Comparison {
 public:
  bool equal(const ZAN_Value& a, const ZAN_Value& b) {
    if (a.mKind != b.mKind) return false;
    if (a.hasNode() && a.mNode == b.mNode) return true;
    switch (a.mKind) {
      case Kind::null:
        return true;
      case Kind::number:
        if (a.isReal() || b.isReal()) return a.doubleValue() == b.doubleValue();
        // The same bits mean two numbers when one is unsigned and above the signed range.
        return a.mInteger == b.mInteger &&
               (a.mInteger >= 0 || (a.letter() == 'Q') == (b.letter() == 'Q'));
      case Kind::date:
        return a.mReal == b.mReal;
      case Kind::string:
        return a.mTag == b.mTag && a.stringView() == b.stringView();
      case Kind::data:
        return std::ranges::equal(a.bytes(), b.bytes());
      case Kind::indexSet:
        return std::ranges::equal(a.ranges(), b.ranges());
      default:
        return knownEqual(a, b) || (containersEqual(a, b) && remember(a, b));
    }
  }

 private:
  bool containersEqual(const ZAN_Value& a, const ZAN_Value& b) {
    const auto same = [this](const ZAN_Value& x, const ZAN_Value& y) { return equal(x, y); };
    const auto left = a.elements();
    const auto right = b.elements();
    switch (a.mKind) {
      case Kind::array:
        return std::ranges::equal(left, right, same);
      case Kind::set:
        return left.size() == right.size() &&
               std::is_permutation(left.begin(), left.end(), right.begin(), same);
      case Kind::dictionary:
        return a.size() == b.size() && std::ranges::all_of(a.entries(), [&](const Entry& entry) {
                 if (entry.key.isString()) {
                   const std::string_view key = entry.key.stringView();
                   return b.contains(key) && equal(b.value(key), entry.value);
                 }
                 return std::ranges::any_of(b.entries(), [&](const Entry& candidate) {
                   return equal(candidate.key, entry.key) && equal(candidate.value, entry.value);
                 });
               });
      default:
        return opaqueEqual(a.asOpaque(), b.asOpaque());
    }
  }

  bool opaqueEqual(const ZAN_Opaque* a, const ZAN_Opaque* b) {
    if (a == nullptr || b == nullptr) return a == b;
    return a->classes == b->classes &&
           std::ranges::equal(a->groups, b->groups, [this](const auto& x, const auto& y) {
             return x.types == y.types &&
                    std::ranges::equal(
                        x.leaves, y.leaves,
                        [this](const ZAN_Value& v, const ZAN_Value& w) { return equal(v, w); });
           });
  }

  static bool worthRemembering(const ZAN_Value& a, const ZAN_Value& b) {
    return a.mayBeShared() && b.mayBeShared();
  }
  bool knownEqual(const ZAN_Value& a, const ZAN_Value& b) const {
    return !mEqual.empty() && worthRemembering(a, b) && mEqual.contains({a.mNode, b.mNode});
  }
  bool remember(const ZAN_Value& a, const ZAN_Value& b) {
    if (worthRemembering(a, b)) mEqual.emplace(a.mNode, b.mNode);
    return true;
  }

  std::set<std::pair<const Node*, const Node*>> mEqual;
};

bool ZAN_Value::operator==(const ZAN_Value& other) const {
  return Comparison().equal(*this, other);
}

std::size_t ZAN_Value::footprint() const {
  std::unordered_set<const Node*> seen;
  std::vector<const ZAN_Value*> pending{this};
  std::size_t total = 0;
  while (!pending.empty()) {
    const ZAN_Value& value = *pending.back();
    pending.pop_back();
    if (!value.hasNode() || !seen.insert(value.mNode).second) continue;
    total += value.isDictionary() ? sizeof(DictionaryNode)
             : value.isArray()    ? sizeof(ArrayNode)
                                  : sizeof(BytesNode);
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

ZAN_TextPool::ZAN_TextPool() : mSlots(64) {}
ZAN_TextPool::~ZAN_TextPool() = default;

ZAN_Value ZAN_TextPool::text(std::string_view text) {
  const std::uint32_t hash = hashOf(text);
  std::size_t i = hash & (mSlots.size() - 1);
  for (; mSlots[i].isString(); i = (i + 1) & (mSlots.size() - 1)) {
    if (mSlots[i].mTag == hash && mSlots[i].stringView() == text) return mSlots[i];
  }
  ZAN_Value fresh(text);
  fresh.mFlags = ZAN_Value::kPooled;
  mSlots[i] = fresh;
  if (++mCount * 2 > mSlots.size()) grow();
  return fresh;
}

void ZAN_TextPool::grow() {
  std::vector<ZAN_Value> old(mSlots.size() * 2);
  old.swap(mSlots);
  for (ZAN_Value& slot : old) {
    if (!slot.isString()) continue;
    std::size_t i = slot.mTag & (mSlots.size() - 1);
    while (mSlots[i].isString()) i = (i + 1) & (mSlots.size() - 1);
    mSlots[i] = std::move(slot);
  }
}

void ZAN_TextPool::markShared(ZAN_Value& text) {
  if (!text.isPooled() || text.mOrdinal != 0) return;
  auto* node = static_cast<ZAN_Value::BytesNode*>(text.mNode);
  if (node->lastOrdinal < std::numeric_limits<std::uint16_t>::max()) {
    text.mOrdinal = ++node->lastOrdinal;
    return;
  }
  const bool isMutable = text.isMutable();
  text = ZAN_Value(text.stringView());
  text.setMutable(isMutable);
}

}  // namespace corvana
