#include <set>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_ValueNodes.h"

namespace corvana {

namespace {
constexpr std::size_t kManyElements = 64;
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
  ArrayNode* node = mutableArray();
  if (node == nullptr) return;
  // Long lists live long, as records do.
  auto& list = node->elements;
  if (list.size() == list.capacity() && list.size() > kManyElements)
    list.reserve(list.size() + list.size() / 8);
  list.push_back(std::move(element));
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

}  // namespace corvana
