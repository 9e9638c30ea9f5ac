#pragma once

#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "execute/engine/FolderWalk.h"
#include "execute/plain/VersionFolder.h"

namespace corvana {

/// Notes in the folder of a version what lies in the copies before a run changes it, so that the
/// version can be told from what the run leaves, however far it comes. Until it has begun it takes
/// nothing. Thread: one.
class VersionJournal {
 public:
  /// Whether a run has begun one and come to no end.
  static bool isIn(const HeldFolder& version);

  /// The folder outlives the journal.
  Outcome begin(const HeldFolder& version);
  /// Notes what lies under a name of that copy, or nothing. `prefix`: the copy's name in the
  /// destination, empty for that of a file.
  void willChange(const HeldFolder& copy, const std::string& prefix, const std::string& name);
  /// All of it was told, and is on the disk afterwards.
  Outcome willChangeNoMore();
  /// The run has added something that was not expected.
  void hasAdded(const std::string& prefix, const std::string& name);
  /// Nothing more comes.
  Outcome finish();

  /// The journal of a version in order as its new list, with what lies in the version's folder:
  /// what no run could note is told by that. `destination`: of the copies. An error when anything
  /// of it cannot be told now; the journal stays in any case.
  static Outcome writeList(const HeldFolder& version, const HeldFolder& destination,
                           const VersionHeader& header);

 private:
  void note(const std::string& line);
  Outcome written();

  const HeldFolder* mVersion = nullptr;
  ZAN_Descriptor mFile;
  std::string mBuffer;
  int mFailure = 0;
  const HeldFolder* mNoted = nullptr;  ///< the copy that is being told of
  std::optional<ParentFolders> mParents;
};

}  // namespace corvana
