#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "execute/engine/FolderWalk.h"
#include "execute/engine/VersionTree.h"

namespace corvana {

/// Brings back what a version had. What is there already and differs is kept under another name
/// unless it is to be overwritten; what the version did not have stays. Blocks; thread: one.
class Restoration {
 public:
  struct Wish {
    std::string name;  ///< in the version; empty for all of it
    /// Below the target folder, "." for that one itself; empty: its own name there.
    std::string target;
  };
  struct Options {
    bool overwrites = false;
    bool onlyLooks = false;  ///< changes nothing, and counts as if
    bool moves = false;      ///< the version lies there for this alone, on the same volume
    std::string suffix;      ///< behind the names of what stood in the way
  };
  struct Counts {
    std::uint64_t files = 0;  ///< restored, links and the like too
    std::uint64_t bytes = 0;
    std::uint64_t same = 0;    ///< were there as they are to be
    std::uint64_t unread = 0;  ///< of those: by kind, size and date, without a look at the contents
    std::uint64_t kept = 0;    ///< stood in the way and have another name now
    std::uint64_t failures = 0;

    Counts& operator+=(const Counts& more) {
      files += more.files;
      bytes += more.bytes;
      same += more.same;
      unread += more.unread;
      kept += more.kept;
      failures += more.failures;
      return *this;
    }
  };
  struct Hooks {
    /// Before each item: its path in the target, and whether to go on.
    std::function<bool(const std::string& path, const Counts& counts)> goesOn;
    std::function<void(std::string text)> failed;
    /// Tells of what is done, or with `onlyLooks` would be: of what stood in the way by the name
    /// that it has now.
    std::function<void(const std::string& path, bool isInTheWay)> done;
  };

  Restoration(const VersionTree& view, const HeldFolder& target, Options options, Hooks hooks)
      : mView(view),
        mTarget(target),
        mOptions(std::move(options)),
        mHooks(std::move(hooks)),
        mFolders(target.descriptor()) {}

  /// How much a wish comes to; with a failure when the version has nothing of that name.
  Result<Counts> count(const Wish& wish) const;
  /// What is told then.
  static std::string notThere(const std::string& name) {
    return name + ": the version has nothing of that name";
  }
  /// An error when the version cannot be read; what of it could not be restored is told.
  Outcome perform(const Wish& wish);
  const Counts& counts() const { return mCounts; }

 private:
  struct OpenFolder {
    VersionItem item;
    std::string target;
  };
  void restore(const VersionTree::Entry& entry, const std::string& target);
  void restoreFile(const VersionTree::Entry& entry, int parent, const std::string& name,
                   const std::string& target);
  void makeNode(const VersionTree::Entry& entry, int parent, const std::string& temporary);
  bool clear(int parent, const std::string& name, const std::string& target, bool isFolder);
  void finishFolders(const std::string& target);
  void setAttributes(const VersionItem& item, int parent, const std::string& name,
                     const std::string& target);
  void fail(const std::string& target, const std::string& why);

  const VersionTree& mView;
  const HeldFolder& mTarget;
  Options mOptions;
  Hooks mHooks;
  ParentFolders mFolders;
  Counts mCounts;
  std::vector<OpenFolder> mOpen;
  /// Where files with several names were restored to first.
  std::map<std::pair<std::uint64_t, std::uint64_t>, std::string> mLinked;
  bool mSaidAttributes = false;
  bool mIsStopped = false;  ///< in the middle of a file
};

}  // namespace corvana
