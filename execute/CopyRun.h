#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "execute/CopyMark.h"
#include "execute/CopyPlan.h"
#include "execute/Deletion.h"
#include "execute/ExecuteRecords.h"
#include "execute/HalfFiles.h"
#include "execute/Rsync.h"
#include "execute/SourceSurvey.h"
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

/// How fast something goes on, over the last seconds.
class Pace {
 public:
  static constexpr double kSpan = 15;  ///< seconds

  void add(double now, double done);
  /// 0 as long as it cannot be told.
  double perSecond() const;

 private:
  struct Sample {
    double time;
    double done;
  };
  std::deque<Sample> mSamples;
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
    std::function<void(const ExecuteMessages::Progress&)> tell = {};
    std::string sync = "/usr/bin/sync";
  };
  /// What a run would do to an item.
  struct Planned {
    enum class Kind { copied, replaced, changed, deleted };  ///< changed: in its attributes alone
    Kind kind;
    std::string path;  ///< of the source; of what would be deleted, in the copy
    std::uint64_t size = 0;
  };

  CopyRun(const CopyPlan& plan, CopyOwner owner, DeletionLimit limit, Surroundings surroundings,
          VersionsKept kept = {})
      : mPlan(plan),
        mOwner(std::move(owner)),
        mLimit(limit),
        mKept(kept),
        m(std::move(surroundings)) {}

  ExecuteEnd perform();
  /// Changes nothing and tells what `perform` would do. The end says what would keep it from that,
  /// and what it could not copy.
  ExecuteEnd look(const std::function<void(const Planned&)>& planned);

 private:
  /// One source with its copy, and what was found out about them.
  struct Copy {
    const CopyPlan::Source& source;
    HeldFolder folder;         ///< that of the copy; of a file's copy the destination
    std::string missing = {};  ///< what of the path below `folder` is still to be made
    bool tellsCase = true;
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
    std::set<std::string> largeItems = {};  ///< that are to be copied
    std::vector<std::string> left = {};     ///< in the copy, by an rsync that was killed

    std::uint64_t filesOfCopy() const;
    bool isUnread(const std::string& name) const;
    void addUnread(const std::optional<std::set<std::string>>& names);
    std::string pathOf(const std::string& item) const;
    std::string placeOfCopy() const;
  };

  // Each says whether the run goes on; if not, mEnd tells why.
  bool openCopies();
  bool checkIdentity();
  bool open(const CopyPlan::Source& source);
  bool checkOwner(const CopyPlan::Source& source, const HeldFolder& copy);
  bool lookAt(Copy& copy);
  /// Takes the looks of all copies into account.
  bool lookAtAll();
  void tellWhatIsLeftOut(Copy& copy, const SourceSurvey& survey,
                         const std::set<std::string>& listed);
  void tellPlan(Copy& copy);
  bool isToGo(const Copy& copy, const std::string& name, Deletion& deletion,
              CaseTwins& twins) const;
  static std::uint64_t sizeIn(const HeldFolder& folder, const std::string& name);
  bool makeRoom();
  bool beginVersion(bool hasWork);
  void finishVersion();
  VersionHeader version(ReferenceTime date) const;
  bool transfer(Copy& copy);
  bool transfer(Copy& copy, const std::optional<std::string>& onlyItem);
  bool deleteFrom(Copy& copy);
  bool isOnDisk();
  void finish();
  bool isInOrder();
  bool isAlive();
  bool endsWith(const RsyncProcess::End& end, const RsyncOutput& output, const Copy& copy);

  struct Special {
    bool tellsAll = false;
    std::optional<std::string> onlyItem = {};
  };
  Result<RsyncProcess::End> start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output,
                                  const Special& special);
  Result<RsyncProcess::End> start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output) {
    return start(pass, copy, output, {});
  }
  Result<RsyncProcess::End> run(RsyncProcess::Task task, RsyncOutput& output,
                                const std::function<void()>& onNews);
  std::vector<RsyncOutput::Place> placesOf(const Copy& copy) const;
  void takeErrors(const RsyncOutput& output);
  void addError(const std::string& path, std::string text);
  void addLack(const Copy& copy, const std::string& item, std::string text);
  std::string remedyFor(const std::string& item);
  bool fail(ExecuteCode code, std::string reason);
  bool failWith(const Error& error);
  void checkDeletions();
  std::uint64_t freeSpace() const;
  bool lacksSpace();
  void tell(const Copy& copy, const RsyncOutput& output);
  void tellLook(const RsyncOutput& output);
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
  std::function<void(const Planned&)> mPlanned;  ///< where nothing is to be changed
  bool mHasWritten = false;
  bool mHasBegun = false;  ///< with changes
  std::vector<std::string> mOptions;
  std::vector<Copy> mCopies;
  bool mMayDelete = false;
  std::uint64_t mBytesToCopy = 0;
  std::uint64_t mFilesToCopy = 0;
  std::string mGone;             ///< which volume went
  std::uint64_t mItemsSeen = 0;  ///< in the sources before the one that is looked at
  Pace mPace;                    ///< of the per cent
  Pace mBytePace;
  ExecuteMessages::Progress mProgress;
  ExecuteEnd mEnd;
};

}  // namespace corvana
