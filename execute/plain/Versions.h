#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "execute/engine/FolderWalk.h"
#include "execute/engine/Thinning.h"
#include "execute/plain/VersionList.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

/// A folder of a version, by its name: "2026-11-22T041503Z", a number behind it when there are
/// several of that second, and what it is in the middle of.
struct VersionFolder {
  enum class State {
    dated,    ///< whole
    current,  ///< that of the newest version: takes in what the next run replaces
    fresh,    ///< is to be the current one
    going,    ///< is being removed
    merging,  ///< is being merged into the next older one
  };
  std::string name;
  std::string base;  ///< the name without its state
  State state = State::dated;
  ReferenceTime date = 0;
  int number = 1;
  /// Nothing for a folder without a list that can be read, as earlier runs made them.
  std::optional<VersionHeader> header = {};

  static std::optional<VersionFolder> fromName(const std::string& name);
  bool isOlderThan(const VersionFolder& other) const {
    return date != other.date ? date < other.date : number < other.number;
  }
  /// All that lie there with their headers, oldest first.
  static std::vector<VersionFolder> all(const HeldFolder& versions);
};

/// The folder beside the copies that makes them versions: ".corvana9-versions". The newest version
/// of an action are its copies themselves. Each version has a folder named after its date, which
/// takes in what the next run replaces and deletes, and a list of what else that run changes, so
/// that going back from the copies through the folders, newest first, leads to any version.
///
/// The list is written before the run changes anything, as a journal, and put in order when it has
/// come to its end; then the folder gets its final name. A run that was cut off leaves a version
/// that is no version: the next good run merges it away. Actions share the folder, and each has
/// versions of its own. Thread: one.
class Versions {
 public:
  static constexpr std::string_view kName = ".corvana9-versions";
  /// What lies in a copy and is none of it: its mark, and halves of files.
  static constexpr std::string_view kMark = ".corvana9-copy";
  static constexpr std::string_view kHalves = ".corvana9-partial";
  static constexpr std::string_view kList = ".corvana9-list";
  static constexpr std::string_view kJournal = ".corvana9-journal";
  /// How long folders without a list stay, in seconds.
  static constexpr double kKeptWithoutList = 30 * 86400.0;

  /// `own`: whose versions these are, its copies, and the date of the newest version (0: not
  /// known). Settles what was left in the middle of something; `unavailable` while another run
  /// works there.
  static Result<Versions> open(const HeldFolder& destination, VersionHeader own);

  /// The last run was cut off, so that the copies are no version.
  bool wasCut() const;
  /// From now on the copies will be changed. `isFirst`: there is nothing in them yet.
  Outcome begin(ReferenceTime now, bool isFirst);
  /// Where the run puts what it takes out of that copy, or with "." out of the destination; made
  /// when it is not there.
  Result<HeldFolder> folderOf(const std::string& copy) const;
  /// Before anything is changed: notes what lies under a name of that copy, or nothing. `prefix`:
  /// the copy's name in the destination, empty for that of a file.
  void willChange(const HeldFolder& copy, const std::string& prefix, const std::string& name);
  /// All of it was told, and is on the disk afterwards.
  Outcome willChangeNoMore();
  /// The run has added something that was not expected.
  void hasAdded(const std::string& prefix, const std::string& name);
  /// The copies, which are on the disk, are a version now, of that date.
  Outcome finish(VersionHeader now);

  /// After a run that was cut off: makes the copies a version that is not finished, so that those
  /// before it can be read.
  Outcome endCut();

  /// The folder of the versions; nothing as long as there are none.
  const std::optional<HeldFolder>& folder() const { return mAll; }
  /// Those of the action, oldest first; the last one are the copies.
  std::vector<VersionFolder> chain() const;

  /// Merges and removes the versions that need not be kept, and the oldest ones as far as they are
  /// more than there is to be, or room is wanted.
  Outcome thin(ReferenceTime now, const VersionsKept& kept);
  /// Removes the oldest versions of any action until so many bytes are free, and none at all when
  /// that would not be enough. Whether so many are free.
  bool makeRoom(std::uint64_t bytes);
  /// Removes all older versions of the action.
  bool forget();

 private:
  Versions(HeldFolder destination, VersionHeader own)
      : mDestination(std::move(destination)), mOwn(std::move(own)) {}

  Outcome settle();
  Outcome makeFolder(const VersionHeader& header, VersionFolder::State state, std::string& base);
  Outcome openCurrent(const std::string& base);
  Outcome close(VersionHeader next);
  Outcome writeList(const HeldFolder& folder, const VersionHeader& header);
  Outcome merge(const VersionFolder& older, const VersionFolder& newer);
  /// Writes what `into` has when it has taken up `from`, which is called `merging` by then.
  Outcome listMerged(const HeldFolder& into, const HeldFolder& from, const std::string& merging);
  Outcome finishMerge(const HeldFolder& older, const std::string& merging);
  Outcome drop(const VersionFolder& version, const std::vector<VersionFolder>& chain);
  bool remove(const std::string& name);
  /// The older versions of all actions, oldest first, with the bytes that they take up.
  std::vector<std::pair<VersionFolder, std::uint64_t>> removable() const;
  std::uint64_t freeSpace() const;
  bool rename(const std::string& from, const std::string& to) const;
  Error failed(const std::string& name) const;
  void note(std::string line);

  HeldFolder mDestination;
  std::optional<HeldFolder> mAll;
  ZAN_Descriptor mLock;
  VersionHeader mOwn;
  std::optional<HeldFolder> mCurrent;
  std::string mBase;  ///< name of the current one without its state
  bool mRecords = false;
  ZAN_Descriptor mJournal;
  std::string mBuffer;
  int mFailure = 0;
  const HeldFolder* mNoted = nullptr;  ///< the copy that is being told of
  std::optional<ParentFolders> mParents;
};

}  // namespace corvana
