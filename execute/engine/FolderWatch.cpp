#include "execute/engine/FolderWatch.h"

namespace corvana {

bool FolderWatch::check() {
  for (const HeldFolder* folder : mFolders) {
    if (folder->isMounted(mMounts.mounts())) continue;
    mGone = folder->path() + ": its volume is not mounted any more";
    mControl.stop(StopReason::volumeGone);
    return false;
  }
  return true;
}

}  // namespace corvana
