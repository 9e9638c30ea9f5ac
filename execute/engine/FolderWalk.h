#pragma once

#include <cerrno>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

/// "a/b/c/" is "c" in "a/b".
std::pair<std::string, std::string> splitName(std::string_view name);
/// Whether the name is that of something in that folder, however deep.
bool isBelow(std::string_view name, std::string_view folder);

/// Whether a name that could not be looked up has nothing to it: there is none of it, or it is
/// below what is no folder. With other errors nobody knows.
inline bool isNothingThere(int code) { return code == ENOENT || code == ENOTDIR || code == ELOOP; }

/// Opens the folders of names that come in some order, and keeps the last one. Never by a link or
/// onto another mount.
class ParentFolders {
 public:
  /// `root`: an open folder.
  explicit ParentFolders(int root) : mRoot(root) {}
  /// The folder of that name below the root; -1 with errno.
  int open(const std::string& name);
  /// The same, made with all above it when it is not there.
  int make(const std::string& name);
  /// The last one may not be what it was.
  void forget() { mIsKnown = false; }

 private:
  int mRoot;
  std::string mName;
  ZAN_Descriptor mFolder;
  int mFailure = 0;
  bool mIsKnown = false;
};

/// Goes through all that lies below an open folder, in the order of `comesBefore`, without leaving
/// its mount or following a link.
class TreeCursor {
 public:
  struct Entry {
    int folder;         ///< that it lies in, open until the next call
    std::string entry;  ///< its name there
    std::string name;   ///< its name below the first folder, behind the prefix
    bool isFolder;      ///< and will be gone into
  };
  /// The folder is open as long as the cursor is used. `unreadable` gets the names of folders that
  /// cannot be read, with errno.
  TreeCursor(int folder, std::string prefix,
             std::function<void(const std::string&)> unreadable = {});
  std::optional<Entry> next();
  /// Does not go into the folder that came last.
  void skip() { mWanted.reset(); }

 private:
  struct Level {
    ZAN_Descriptor folder;
    std::string prefix;
    std::vector<std::string> entries;
    std::size_t at = 0;
  };
  void enter(ZAN_Descriptor folder, std::string prefix);

  std::function<void(const std::string&)> mUnreadable;
  std::vector<Level> mLevels;
  std::optional<Entry> mWanted;
};

/// Removes it with all that is in it, without crossing a mount or following a link; what cannot be
/// removed stays, and so does what it lies in.
bool removeTree(int parent, const std::string& name);

/// Never over what is there already; false with errno.
bool renameBeside(int from, int to, const std::string& entry);

}  // namespace corvana
