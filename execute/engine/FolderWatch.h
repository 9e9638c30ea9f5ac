#pragma once

#include <string>
#include <vector>

#include "execute/engine/ExecuteControl.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// Folders whose volumes must stay mounted while something goes on; when one goes, that is to stop.
/// Thread: one.
class FolderWatch {
 public:
  explicit FolderWatch(ExecuteControl& control) : mControl(control) {}

  /// The folder outlives the watch or its `clear`.
  void add(const HeldFolder& folder) { mFolders.push_back(&folder); }
  void clear() { mFolders.clear(); }
  /// False, and the control stopped, when a volume has gone.
  bool check();
  /// Has POLLPRI when `check` may find something else than before.
  int descriptor() const { return mMounts.descriptor(); }
  const std::string& gone() const { return mGone; }  ///< which one, in words

 private:
  ExecuteControl& mControl;
  MountsNow mMounts;
  std::vector<const HeldFolder*> mFolders;
  std::string mGone;
};

}  // namespace corvana
