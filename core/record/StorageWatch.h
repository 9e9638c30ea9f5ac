#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "actions/DataFiles.h"

namespace corvana {

class ActionStore;
class Messages;
class SchedulerLog;
class ZAN_StringTable;
struct Platform;

/// Tells of what goes wrong with the stored files where the user looks: in the log, the report, a
/// message and the error state; and offers to bring back what was damaged. Thread: main.
class StorageWatch {
 public:
  StorageWatch(const Platform& platform, ActionStore& store, SchedulerLog& log, Messages& messages,
               const ZAN_StringTable& texts);
  ~StorageWatch();
  StorageWatch(const StorageWatch&) = delete;
  StorageWatch& operator=(const StorageWatch&) = delete;

  /// What is wrong now: texts.
  ZAN_Value lasting() const;

  /// The user had an earlier version of that file brought back.
  std::function<void(std::string_view fileName)> onBroughtBack;

 private:
  void heard(const DataFiles::Trouble& trouble);
  void tell(const DataFiles::Trouble& trouble);
  void offerEarlierVersion(const std::string& name);
  std::string textOf(const DataFiles::Trouble& trouble) const;

  const Platform& mPlatform;
  ActionStore& mStore;
  SchedulerLog& mLog;
  Messages& mMessages;
  const ZAN_StringTable& mTexts;
  std::shared_ptr<int> mHere = std::make_shared<int>();  ///< gone with this object
};

}  // namespace corvana
