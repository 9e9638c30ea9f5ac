#include "ZANCocoaFramework/ZAN_ValueNodes.h"

namespace corvana {

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
