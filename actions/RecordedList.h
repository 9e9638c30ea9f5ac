#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class DataFiles;

/// The list of a data file that several programs add to, in memory as it is on disk. What could not
/// be written, or came while the file could not be read, stays in memory and is written with the
/// next entry. Thread: main.
class RecordedList {
 public:
  /// Shows what has just been stored elsewhere too; `isAnew` when more than its end is new.
  using Mirror = std::function<void(const ZAN_Value& list, bool isAnew)>;
  /// The name of a file in the data folder. The files outlive this object.
  RecordedList(DataFiles& files, std::string_view name, Mirror mirror)
      : mFiles(files), mName(name), mMirror(std::move(mirror)) {}

  /// Reads the file again when it has changed; false when it cannot be read at the moment.
  bool refresh();
  /// As of the last reading or writing: always an array.
  const ZAN_Value& elements() const { return mList; }
  /// `append` puts the entry into the list, with what others wrote already in it; what came while
  /// the file could not be read goes before.
  void add(const ZAN_Value& entry,
           const std::function<void(ZAN_Value& list, const ZAN_Value& entry)>& append);
  /// Keeps those that `stays` says, if the file can be read.
  void keepOnly(const std::function<bool(std::size_t index, const ZAN_Value& entry)>& stays);
  void store(ZAN_Value list, bool isAnew);

 private:
  DataFiles& mFiles;
  std::string_view mName;
  Mirror mMirror;
  ZAN_Value mList = ZAN_Value::array();
  std::optional<ZAN_FileIdentity> mIdentity;
  std::vector<ZAN_Value> mWaiting;  ///< came while the file could not be read
};

}  // namespace corvana
