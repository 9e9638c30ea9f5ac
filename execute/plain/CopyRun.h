#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "execute/plain/CopyLook.h"
#include "execute/plain/HalfFiles.h"
#include "execute/plain/Versions.h"

namespace corvana {

/// Carries out a plan: looks what there is to do, copies, and only when everything was copied and
/// every volume is still there takes out of the copies what is gone from the sources. What is
/// replaced or taken out is kept beside the copies. Blocks; thread: one.
class CopyRun : public CopyLook {
 public:
  CopyRun(const CopyPlan& plan, CopyOwner owner, DeletionLimit limit, Surroundings surroundings,
          VersionsKept kept = {})
      : CopyLook(plan, std::move(owner), limit, std::move(surroundings)), mKept(kept) {}

  ExecuteEnd perform();

 private:
  // Each says whether the run goes on; if not, mEnd tells why.
  bool makeRoom();
  bool beginVersion(bool hasWork);
  bool transfer(Copy& copy);
  bool transfer(Copy& copy, const std::optional<std::string>& onlyItem);
  std::optional<NameList> itemsToCopy(Copy& copy);
  bool deleteFrom(Copy& copy);
  bool isOnDisk();

  void finishVersion();
  VersionHeader version(ReferenceTime date) const;
  std::uint64_t freeSpace() const;
  std::uint64_t roomWanted() const;
  bool lacksSpace();

  VersionsKept mKept;
  ReferenceTime mBegun = 0;
  std::optional<Versions> mVersions;
  std::uint64_t mRoomTaken = 0;  ///< by what was copied
  bool mHasWritten = false;
  bool mHasBegun = false;  ///< with changes
};

}  // namespace corvana
