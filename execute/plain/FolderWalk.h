#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

/// "a/b/c/" is "c" in "a/b".
std::pair<std::string, std::string> splitName(std::string_view name);
/// Whether the name is that of something in that folder, however deep.
bool isBelow(std::string_view name, std::string_view folder);

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
/// its mount or following a link. `each` gets the open folder of an entry, the entry's name there
/// and its name below the first folder behind `prefix`, and says whether to go into it, were it a
/// folder. What cannot be read is told to `unreadable`, with errno. False when `each` wanted to
/// stop.
enum class Step { in, over, stop };
bool walkTree(int folder, const std::string& prefix,
              const std::function<Step(int, const std::string&, const std::string&)>& each,
              const std::function<void(const std::string&)>& unreadable = {});

/// Removes it with all that is in it, without crossing a mount or following a link; what cannot be
/// removed stays, and so does what it lies in.
bool removeTree(int parent, const std::string& name);

/// Never over what is there already; false with errno.
bool renameBeside(int from, int to, const std::string& entry);

}  // namespace corvana
