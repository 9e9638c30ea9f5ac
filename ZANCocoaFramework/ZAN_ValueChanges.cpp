#include <algorithm>

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

}  // namespace corvana
