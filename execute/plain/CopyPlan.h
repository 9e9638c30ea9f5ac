#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "execute/engine/HeldSource.h"

namespace corvana {

/// What a file system can keep of what is copied to it, found out by trying.
struct FileSystemFacts {
  bool keepsOwners = true;  ///< and permissions
  bool hardLinks = true;
  bool attributes = true;  ///< extended ones
  bool accessLists = true;
  bool exactTimes = true;  ///< to the nanosecond
  bool wholeSeconds = true;
  bool isDesktopShare = false;
  bool tellsCase = true;  ///< "Docs" and "docs" are two names

  /// `fileSystem` as the mount table names it. Writes a file without a name there, or with a hidden
  /// one that goes again.
  static FileSystemFacts of(const HeldFolder& folder, const Mount& mount);
  /// The options that make rsync copy what can be kept, and no more.
  std::vector<std::string> options() const;
  /// What it cannot keep, in words: "owners and rights", "hard links".
  std::vector<std::string> losses() const;
};

/// What one action copies from where to where, checked and taken hold of before anything is
/// written: what is copied is what was checked, whatever its path comes to mean.
///
/// Each source becomes a folder (or file) of its own name in the destination. Copying (type 2) adds
/// and replaces; synchronising (type 3) also removes from such a folder what its source no longer
/// has, and nothing else of the destination. A source that is a link means what it leads to. What
/// is mounted below a source is not entered.
class CopyPlan {
 public:
  static constexpr int kCopy = 2;
  static constexpr int kSynchronise = 3;

  using Source = HeldSource;

  /// Errors: `refused` for a record that is not ours to execute or would do harm (source and copy
  /// are the same place, two sources of one name, a source that is neither a folder nor a file),
  /// `absent` when a volume or a source is not there, `unwritable` for a destination that cannot be
  /// written.
  static Result<CopyPlan> fromSettings(const ZAN_Value& settings, const VolumeGuard& guard);

  const std::vector<Source>& sources() const { return mSources; }
  const std::string& destination() const { return mDestination; }
  bool deletes() const { return mDeletes; }
  /// How surely the destination's volume was told: by its size alone, by a name that another one
  /// may have, too (folders joined into one name themselves by what differs in their paths), or by
  /// what no other has.
  enum class Identity { size, name, sure };
  Identity identity() const { return mIdentity; }

  /// The destination, made when it is not there; the folder that holds it never is.
  Result<HeldFolder> openDestination() const;
  /// The destination or, when it is not there, the folder that is to hold it.
  Result<HeldFolder> openWithoutMaking() const { return (mHeld ? *mHeld : *mHolder).again(); }
  bool isDestinationThere() const { return mHeld.has_value(); }
  FileSystemFacts factsOf(const HeldFolder& destination) const;
  /// Says which folder has lost its volume.
  Outcome checkMounted(const std::vector<Mount>& mounts) const;
  /// Says which folder is on a volume that does not answer any more, or is another one than it was.
  Outcome checkAlive() const;

  enum class Pass { look, copy };
  struct Task {
    const Source& source;
    std::string to;           ///< path of its folder in the destination, or of the destination
    const HeldFolder* aside;  ///< takes in what is replaced
    const std::vector<std::string>& skippedItems;  ///< relative names
    std::vector<std::string> options;              ///< of the file system
    bool mayRemoveFolders = false;                 ///< that stand where a file is to be
    bool tellsAll = false;                         ///< of what is the same already, too
    bool comparesAttributes = true;                ///< access lists and extended attributes, too
    bool keepsHalves = false;                      ///< of a file that is not copied to its end
    std::optional<std::string> onlyItem = {};      ///< goes on with that file alone from its half
    bool readsItems = false;  ///< the only ones to be copied, each as "./name" and a NUL
  };
  /// rsync with its arguments.
  std::vector<std::string> arguments(const std::string& rsync, Pass pass, const Task& task) const;

  /// A pattern that matches this very item of a source and no other. A backslash is special only
  /// beside a wildcard.
  static std::string literalPattern(const std::string& relative);

 private:
  Outcome addSource(const FolderDescription& item, const VolumeGuard& guard);
  Outcome setDestination(const FolderDescription& item, const VolumeGuard& guard);
  Outcome checkOverlaps();

  std::vector<Source> mSources;
  std::vector<std::string> mExclusions;  ///< the user's patterns
  std::uint64_t mBandwidth = 0;          ///< bytes a second; 0: as many as there can be
  bool mComparesContents = false;
  std::string mDestination;
  std::optional<HeldFolder> mHolder;  ///< of a destination that is to be made
  std::optional<HeldFolder> mHeld;    ///< the destination
  Mount mMount;                       ///< of the destination
  bool mDeletes = false;
  Identity mIdentity = Identity::size;
};

}  // namespace corvana
