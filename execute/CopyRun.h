#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "execute/CopyMark.h"
#include "execute/CopyPlan.h"
#include "execute/Deletion.h"
#include "execute/ExecuteRecords.h"
#include "execute/Rsync.h"
#include "execute/plain/NameList.h"
#include "execute/plain/Versions.h"

namespace corvana {

/// How much of a copy a run may take out of it unasked.
struct DeletionLimit {
  static constexpr std::uint64_t kFiles = 50;  ///< so many it always may

  double share = 1.0 / 3;
  std::uint64_t confirmed = 0;  ///< what the user has agreed to

  bool isPassed(std::uint64_t deletions, std::uint64_t filesOfCopy) const;
};

/// Whose copies a run fills.
struct CopyOwner {
  CopyMark mark = {};         ///< of the action; the source is added for each copy
  bool hasRun = false;        ///< earlier runs of the action have filled the copies of the plan
  bool isAlone = true;        ///< no other action fills them
  bool takesOver = false;     ///< the user wants what is there to be taken for its copies
  ReferenceTime lastRun = 0;  ///< the last good one; 0: not known
};

/// Carries out a plan: looks what there is to do, copies, and only when everything was copied and
/// every volume is still there takes out of the copies what is gone from the sources. What is
/// replaced or taken out is kept beside the copies. Blocks; thread: one.
class CopyRun {
 public:
  struct Surroundings {
    ExecuteControl& control;
    Clock& clock;
    std::string rsync;
    /// Called after each piece of news.
    std::function<void(const ExecuteMessages::Progress&)> tell;
  };

  CopyRun(const CopyPlan& plan, CopyOwner owner, DeletionLimit limit, Surroundings surroundings,
          VersionsKept kept = {})
      : mPlan(plan),
        mOwner(std::move(owner)),
        mLimit(limit),
        mKept(kept),
        m(std::move(surroundings)) {}

  ExecuteEnd perform();

 private:
  /// One source with its copy, and what was found out about them.
  struct Copy {
    const CopyPlan::Source& source;
    HeldFolder folder;  ///< that of the copy; of a file's copy the destination
    std::optional<HeldFolder> aside = {};
    bool hasWork = false;
    std::uint64_t newFiles = 0;
    std::uint64_t filesListed = 0;
    std::uint64_t bytesListed = 0;
    NameList deletions = {};
    NameList changes = {};  ///< names of what is new or to be changed
    bool isEmpty = false;   ///< before the run
    std::optional<std::set<std::string>> unread{std::in_place};
    std::vector<std::string> skipped = {};

    std::uint64_t filesOfCopy() const;
    bool isUnread(const std::string& name) const;
    void addUnread(const std::optional<std::set<std::string>>& names);
    std::string pathOf(const std::string& item) const;
  };

  // Each says whether the run goes on; if not, mEnd tells why.
  bool openCopies();
  bool checkIdentity();
  void tellWhatIsLeftOut();
  bool checkOwner(const CopyPlan::Source& source, const HeldFolder& copy);
  bool lookAt(Copy& copy);
  bool makeRoom();
  bool beginVersion(bool hasWork);
  void finishVersion();
  VersionHeader version(ReferenceTime date) const;
  bool transfer(Copy& copy);
  bool deleteFrom(Copy& copy);
  bool isInOrder();
  bool isAlive();
  bool endsWith(const RsyncProcess::End& end, const RsyncOutput& output, const Copy& copy);

  Result<RsyncProcess::End> start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output);
  std::vector<RsyncOutput::Place> placesOf(const Copy& copy) const;
  void takeErrors(const RsyncOutput& output);
  void addError(const std::string& path, std::string text);
  bool fail(ExecuteCode code, std::string reason);
  bool failWith(const Error& error);
  void checkDeletions();
  std::uint64_t freeSpace() const;
  bool lacksSpace();
  void tell(const Copy& copy, const RsyncOutput& output);
  double progress(std::uint64_t bytes, std::uint64_t files) const;

  const CopyPlan& mPlan;
  CopyOwner mOwner;
  DeletionLimit mLimit;
  VersionsKept mKept;
  ReferenceTime mBegun = 0;
  Surroundings m;
  MountsNow mMounts;
  std::optional<HeldFolder> mDestination;
  std::optional<Versions> mVersions;
  bool mHasBegun = false;  ///< with changes
  std::vector<std::string> mOptions;
  std::vector<Copy> mCopies;
  bool mMayDelete = false;
  std::uint64_t mBytesToCopy = 0;
  std::uint64_t mFilesToCopy = 0;
  std::string mGone;  ///< which volume went
  ExecuteMessages::Progress mProgress;
  ExecuteEnd mEnd;
};

}  // namespace corvana
