#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

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
