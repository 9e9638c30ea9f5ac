#pragma once

#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ZAN_MountVolume;
struct Records;

/// Plain-text snapshots for support: what starts with the machine, what runs, and which disks there
/// are. Thread: main.
class SystemInformation {
 public:
  /// Everything outlives it.
  SystemInformation(Records& records, const ZAN_MountVolume& tools) : m(records), mTools(tools) {}

  /// The login items, then the entries of the folders from which daemons and agents are launched.
  std::string getLoginItems() const;
  /// The entries of one such folder; empty when there is none.
  static std::string appendListItemsOf(const std::string& folder);
  /// Writes the login items to a new file in the folder "LoginItems" of the data folder when they
  /// are others than the last ones written.
  void saveListLoginItems();
  /// Writes the running processes and the login items to a file in the user's "Downloads" folder,
  /// whose path it gives.
  Result<std::string> saveListProcess();
  /// Shows the disks in their window once they are known; a window that is visible stays where it
  /// is.
  void showAllDisksInformation();

  /// The text of all disks and partitions, then the whole list as it is; empty without a list.
  static std::string allDisksText(const ZAN_Value& list, const ZAN_StringUtils& strings);
  /// The array under a key, formatted; empty when it is missing, empty or no array.
  static std::string extractObjectForKey(const std::string& key, const ZAN_Value& in,
                                         const ZAN_StringUtils& strings);
  /// Texts are joined by ", "; dictionaries and arrays come one a line, dictionaries numbered from
  /// 1 when `level` is not 0.
  static std::string extractFromArray(const ZAN_Value& array, int level,
                                      const ZAN_StringUtils& strings);
  /// One disk or partition as a text; the array of its partitions itself for one that has nothing
  /// else; null for one that has nothing.
  static ZAN_Value extractFromDictionary(const ZAN_Value& dictionary,
                                         const ZAN_StringUtils& strings);

 private:
  ZAN_Value processList() const;

  Records& m;
  const ZAN_MountVolume& mTools;
};

}  // namespace corvana
