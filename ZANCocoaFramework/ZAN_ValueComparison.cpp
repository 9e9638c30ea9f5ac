#include <algorithm>
#include <set>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_ValueNodes.h"

namespace corvana {

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
