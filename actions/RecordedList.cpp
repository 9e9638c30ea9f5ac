#include "actions/RecordedList.h"

#include "actions/DataFiles.h"

namespace corvana {

bool RecordedList::refresh() {
  const std::string path = mFiles.folder().pathOf(mName);
  if (mIdentity && mIdentity == mFiles.identity(path)) return true;
  DataFiles::List list = mFiles.readListAtPath(path, {});
  if (!list.readNow) return false;
  mList = std::move(list.elements);
  mIdentity = list.identity;
  return true;
}

void RecordedList::add(const ZAN_Value& entry,
                       const std::function<void(ZAN_Value& list, const ZAN_Value& entry)>& append) {
  const DataFiles::Lock held = mFiles.lock(mName);
  mWaiting.push_back(entry);
  if (!refresh()) return;
  ZAN_Value list = std::move(mList);
  for (const ZAN_Value& each : std::exchange(mWaiting, {})) append(list, each);
  store(std::move(list), false);
}

void RecordedList::keepOnly(
    const std::function<bool(std::size_t index, const ZAN_Value& entry)>& stays) {
  const DataFiles::Lock held = mFiles.lock(mName);
  if (!refresh()) return;
  std::vector<ZAN_Value> kept;
  for (std::size_t index = 0; index < mList.size(); ++index) {
    if (stays(index, mList.at(index))) kept.push_back(mList.at(index));
  }
  store(ZAN_Value::array(std::move(kept)), true);
}

void RecordedList::store(ZAN_Value list, bool isAnew) {
  const DataFiles::Lock held = mFiles.lock(mName);
  mList = std::move(list);
  (void)mFiles.writeListToFile(mList, mName, DataFiles::Saving::soon);
  mIdentity = mFiles.identity(mFiles.folder().pathOf(mName));
  mMirror(mList, isAnew);
}

}  // namespace corvana
