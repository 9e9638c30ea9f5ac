#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"
#include "execute/engine/Thinning.h"
#include "execute/plain/VersionFolder.h"
#include "execute/plain/VersionJournal.h"
#include "platform/linux/HeldFolder.h"

namespace corvana {

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
  /// To be told what the run changes, before it does.
  VersionJournal& journal() { return mJournal; }
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
  std::string newBase(ReferenceTime date) const;
  Outcome makeFolder(const VersionHeader& header, VersionFolder::State state,
                     const std::string& base);
  Outcome openCurrent(const std::string& base);
  Outcome close(VersionHeader next);
  /// `chain`: all of the action; without it afterwards.
  Outcome drop(const VersionFolder& version, std::vector<VersionFolder>& chain);
  bool remove(const std::string& name);
  /// The older versions of all actions, oldest first, with the bytes that they take up.
  std::vector<std::pair<VersionFolder, std::uint64_t>> removable() const;
  std::uint64_t freeSpace() const;
  bool rename(const std::string& from, const std::string& to) const;

  HeldFolder mDestination;
  std::optional<HeldFolder> mAll;
  ZAN_Descriptor mLock;
  VersionHeader mOwn;
  std::optional<HeldFolder> mCurrent;
  std::string mBase;  ///< name of the current one without its state
  VersionJournal mJournal;
};

}  // namespace corvana
