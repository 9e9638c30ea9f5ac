#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/FolderDescription.h"
#include "actions/ProgrammedAction.h"
#include "platform/Volumes.h"

namespace corvana {

/// Why a folder will not do for an action.
struct FolderTrouble {
  enum class Kind {
    notAPlace,  ///< "/" or nothing
    notThere,   ///< of a destination the folder above it neither
    notAFolder,
    notUnicode,     ///< its name has bytes that a record cannot hold
    noAnswer,       ///< its volume does not say
    noVolume,       ///< no volume is mounted there
    inSource,       ///< the destination lies in the source `other`
    isItsOwnCopy,   ///< the source lies where its copy would be, in `other`
    copiedByOther,  ///< the action `reference`, titled `other`, copies there too
  };
  Kind kind = Kind::notThere;
  std::string path;
  bool isSource = false;
  std::string other = {};
  std::int64_t reference = 0;

  /// In English, "path: reason".
  Error error() const;
};

/// The folders that an action is to copy from and to: looked at where they are, then written into
/// its record as it has to say of them. Thread: any, one at a time; looking at a disk that sleeps
/// takes its time.
class ActionFolders {
 public:
  enum class Role { source, destination, rotation };

  /// How long, in seconds, a volume may take to answer.
  static constexpr double kPatience = 30;

  /// Describes the folder: its path, made absolute, and the volume that must hold it when the
  /// action runs. In trouble when a source, or the folder above a destination, is not there, and
  /// when the place below the volumes folder has no volume mounted on it; `force` describes it all
  /// the same, without the volume where that is not known.
  std::optional<FolderTrouble> add(const std::string& path, Role role, bool force,
                                   Volumes& volumes);
  /// Whether a destination lies in a source, or a source in its own copy.
  std::optional<FolderTrouble> checkOverlap() const;

  /// Writes what was added; what was not is left as it is.
  void applyTo(ZAN_Value& record) const;
  const FolderDescription& destination() const { return mDestination; }
  /// What a record stores of the disks that take turns with the destination.
  ZAN_Value rotation() const;

 private:
  std::vector<FolderDescription> mSources;
  FolderDescription mDestination;
  std::vector<FolderDescription> mRotation;
};

/// The record of a new action of this system's own execute program, without folders and schedule.
ZAN_Value newActionRecord(const std::string& title, ReferenceTime now);
/// What of an action's sources is likely to be wanted in no copy, as far as it is there: patterns
/// of caches, the trash and scratch files of virtual machines, less those that are left out.
std::vector<std::string> proposedExclusions(const ZAN_Value& settings);
/// In trouble when the action and another one of the tree would spoil each other's copies.
std::optional<FolderTrouble> checkCopies(ProgrammedAction& root, const ZAN_Value& settings);

/// The next run of the action may delete what the last one has asked about: how many files. Refused
/// when that is not the number that was `shown`, if one was: another run has counted anew.
Result<std::int64_t> confirmDeletions(ProgrammedAction& root, std::int64_t reference,
                                      std::optional<std::int64_t> shown = {});

}  // namespace corvana
