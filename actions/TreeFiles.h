#pragma once

#include <optional>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/DataFiles.h"

namespace corvana {

/// The stored tree of programmed actions and the list of changes that wait to be merged into it.
/// The main application, the command and the execute program write both too. Thread: main.
class TreeFiles {
 public:
  explicit TreeFiles(DataFiles& files) : mFiles(files) {}

  /// Held while tree and changes are read, merged and written; may be nested.
  [[nodiscard]] DataFiles::Lock lock() { return mFiles.lock(DataFolder::kActions); }

  /// The records of the tree in storage form, without the header; an empty array when there are
  /// none.
  ZAN_Value readActionsList();
  /// Whether the last readActionsList read the file, or found none. When not, what it gave must
  /// not be written over the file.
  bool actionsListWasReadable() const { return mActionsReadable; }
  /// Writes the header "ProgrammedActions" and then the given records (an array).
  Outcome saveActionsTree(const ZAN_Value& records);
  /// Identity of the tree file now: the tree has to be read again only when it differs from
  /// `identityWhenRead`. Nothing when there is no file.
  std::optional<ZAN_FileIdentity> actionsFileIdentity() const;
  /// Identity of the tree file that was last read or written here.
  const std::optional<ZAN_FileIdentity>& actionsIdentityWhenRead() const {
    return mActionsIdentity;
  }

  /// Pending changes, records {"Ref", "ChangesObject", "ChangesKey"}; read again only when the file
  /// has another identity.
  ZAN_Value readChangesList();
  Outcome saveChangesList(const ZAN_Value& changes);
  /// Reads, appends a change, or an array of them, and writes under the lock, so that no other
  /// program's change is lost.
  Outcome appendToChangesList(const ZAN_Value& more);
  std::optional<ZAN_FileIdentity> changesFileIdentity() const;

 private:
  Outcome writeChanges(const ZAN_Value& changes, DataFiles::Saving saving);

  DataFiles& mFiles;
  std::optional<ZAN_FileIdentity> mActionsIdentity;
  bool mActionsReadable = true;
  DataFiles::List mChanges;
  bool mChangesRead = false;
  ZAN_Value mWaiting = ZAN_Value::array();  ///< came while the file could not be read
};

}  // namespace corvana
