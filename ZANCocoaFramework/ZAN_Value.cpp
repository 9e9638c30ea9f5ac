#include "ZANCocoaFramework/ZAN_Value.h"

#include <cmath>
#include <cstdlib>

#include "ZANCocoaFramework/ZAN_ValueNodes.h"

namespace corvana {

namespace {

const ZAN_Value& nullValue() {
  static const ZAN_Value value{};
  return value;
}

}  // namespace

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

void ZAN_Value::retainNode() const { mNode->references.fetch_add(1, std::memory_order_relaxed); }

void ZAN_Value::releaseNode() {
  if (mNode->references.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
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

}  // namespace corvana
