#pragma once

#include <algorithm>
#include <atomic>
#include <cstring>
#include <limits>
#include <new>
#include <stdexcept>
#include <unordered_map>

#include "ZANCocoaFramework/ZAN_Opaque.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Differs from one run of the program to the next, so that nobody can prepare texts that all fall
/// together: it is where the system happened to load the program.
inline std::uint64_t hashSeed() {
  static const char kAnchor = 0;
  return reinterpret_cast<std::uint64_t>(&kAnchor);
}

// What values share. Only the implementation of ZAN_Value includes this.

inline std::uint32_t hashOf(std::string_view text) {
  constexpr std::uint64_t kMultiplier = 0x9e3779b97f4a7c15U;
  std::uint64_t hash = (hashSeed() + text.size()) * kMultiplier;
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
  /// Below this many entries a scan over the hashes, which lie in the entries themselves, is
  /// quickest.
  static constexpr std::size_t kScanLimit = 128;
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
      const auto found = findInIndex(hash, key);
      return found == index->end() ? npos : found->second;
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

  Index::iterator findInIndex(std::uint32_t hash, std::string_view key) const {
    auto [it, last] = index->equal_range(hash);
    while (it != last && !matches(entries[it->second], hash, key)) ++it;
    return it == last ? index->end() : it;
  }

  /// Of a key that is there already the later entry counts.
  void addToIndex(std::size_t i) {
    const ZAN_Value& key = entries[i].key;
    if (!key.isString()) return;
    const auto found = findInIndex(key.mTag, key.stringView());
    if (found != index->end()) {
      found->second = static_cast<std::uint32_t>(i);
    } else {
      index->emplace(key.mTag, static_cast<std::uint32_t>(i));
    }
  }

  void append(Entry entry) {
    // Records are many and live long, so they keep an eighth in hand rather than as much again.
    if (entries.size() == entries.capacity())
      entries.reserve(entries.size() + entries.size() / 8 + 2);
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

/// Makes texts that share their characters although each is an object of its own, for the keys that
/// come again in every record of a file.
///
/// A copy of such a text is again an object of its own unless it was marked as shared before.
/// Thread: one pool belongs to one thread; its texts may outlive it.
class ZAN_TextPool {
 public:
  ZAN_TextPool();
  ZAN_TextPool(const ZAN_TextPool&) = delete;
  ZAN_TextPool& operator=(const ZAN_TextPool&) = delete;
  ~ZAN_TextPool();

  ZAN_Value text(std::string_view text);
  /// From now on copies of `text` are the same object as it. Ignored for values of other origin.
  static void markShared(ZAN_Value& text);

 private:
  void grow();

  std::vector<ZAN_Value> mSlots;  ///< open addressing by hash; a power of two; null is free
  std::size_t mCount = 0;
};

}  // namespace corvana
