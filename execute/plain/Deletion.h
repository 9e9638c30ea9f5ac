#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "execute/engine/FolderWalk.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// Why something in that folder, or what lies there, may not be changed, and what helps, as the end
/// of a sentence ("; ..."): it is protected, or another user's. Empty when neither is so.
std::string hindrance(const HeldFolder& folder, const std::string& name);

/// Takes out of a copy what its source no longer has, item by item, and puts it aside. Each name is
/// looked up again in the held source: only what is certainly not there is moved.
class Deletion {
 public:
  /// All on their volumes; `aside` on that of the copy, and null when nothing is kept.
  Deletion(const HeldFolder& source, const HeldFolder& copy, const HeldFolder* aside)
      : mCopy(copy),
        mSourceFolders(source.descriptor()),
        mCopyFolders(copy.descriptor()),
        mKeeps(aside != nullptr),
        mAsideFolders(aside ? aside->descriptor() : -1) {}

  /// Whether the source has nothing of that name; nothing with errno when it cannot tell.
  std::optional<bool> isGone(const std::string& name);
  /// Moves it aside, or removes it; of a folder only what is empty by now. What is not there is
  /// done.
  Outcome moveAside(const std::string& name);
  std::uint64_t filesMoved() const { return mFiles; }
  /// The last failure was one of the whole disk, which nothing else can be moved on either.
  bool isDiskFailing() const { return mIsDiskFailing; }

 private:
  const HeldFolder& mCopy;
  ParentFolders mSourceFolders;
  ParentFolders mCopyFolders;
  bool mKeeps;
  ParentFolders mAsideFolders;
  std::uint64_t mFiles = 0;
  bool mIsDiskFailing = false;
};

}  // namespace corvana
