#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/Volumes.h"

namespace corvana {

/// A folder that is kept open by the mount that it was reached through, so that its path cannot
/// come to mean another one and the mount cannot go quietly: it is busy, and may only be detached.
/// Opening one blocks as long as its file system does. Thread: any.
class HeldFolder {
 public:
  /// Links are followed. `absent` when nothing is there, `refused` for what is no folder,
  /// `unreadable` otherwise.
  static Result<HeldFolder> open(const std::string& path);
  /// A folder in this one, on the same mount and no link. `refused` for a link, another mount and
  /// what is no folder; else as above.
  Result<HeldFolder> below(const std::string& name) const;
  /// The same, made when it is not there.
  Result<HeldFolder> makeBelow(const std::string& name, unsigned mode = 0777) const;
  /// The folder a second time.
  Result<HeldFolder> again() const;

  const std::string& path() const { return mPath; }  ///< as it was opened
  int descriptor() const { return mDescriptor.get(); }
  /// A path that leads nowhere else, for this process and children that get the descriptor.
  std::string heldPath() const { return "/proc/self/fd/" + std::to_string(mDescriptor.get()); }
  const Mount& mount() const { return mMount; }
  /// Where it lies on its file system, whatever is mounted where: two folders of one device of
  /// which one's path begins with the other's lie in each other. Nothing when it was removed or its
  /// mount detached.
  std::optional<std::string> pathOnDevice() const;
  /// The same, by the tree of mounts.
  std::optional<std::string> realPath() const;

  /// Whether its mount is in the table.
  bool isMounted(const std::vector<Mount>& mounts) const;
  /// Whether the file system still answers; blocks as long as that does.
  Outcome answers() const;
  /// Whether the path that it was opened by still leads to it.
  bool isInPlace() const;
  bool isSameFolder(const HeldFolder& other) const;

 private:
  HeldFolder(ZAN_Descriptor descriptor, std::string path)
      : mDescriptor(std::move(descriptor)), mPath(std::move(path)) {}
  static Result<HeldFolder> held(ZAN_Descriptor descriptor, std::string path);

  ZAN_Descriptor mDescriptor;
  std::string mPath;
  Mount mMount;
};

/// The table of mounts, read again when the kernel says that it has changed. Thread: one.
class MountsNow {
 public:
  MountsNow();
  /// Empty when it cannot be read.
  const std::vector<Mount>& mounts();
  /// Read in any case, for whoever has heard of a change by the descriptor.
  const std::vector<Mount>& mountsReadAgain();
  /// Has POLLPRI when the table has changed since it was read.
  int descriptor() const { return mTable.get(); }

 private:
  ZAN_Descriptor mTable;
  std::vector<Mount> mMounts;
  bool mWasRead = false;
};

/// Opens a folder in a folder for reading its entries, on the same mount and no link; invalid with
/// errno otherwise (EXDEV: another mount). Thread: any.
ZAN_Descriptor openFolderBelow(int parent, const std::string& name);

/// Opens what lies some folders below an open one, with the flags of open: on the same mount, by no
/// link anywhere; invalid with errno otherwise (ENOSYS before Linux 5.6). Thread: any.
ZAN_Descriptor openPathBelow(int folder, const std::string& relative, int flags);

/// The names of an open folder's entries but "." and ".."; nothing with errno when it cannot be
/// read.
std::optional<std::vector<std::string>> namesInFolder(int folder);

}  // namespace corvana
