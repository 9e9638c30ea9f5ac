#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "execute/engine/ExecuteEnd.h"
#include "execute/engine/NameList.h"
#include "execute/plain/CopyMark.h"
#include "execute/plain/CopyPlan.h"
#include "execute/plain/Deletion.h"
#include "execute/plain/Rsync.h"
#include "execute/plain/SourceSurvey.h"

namespace corvana {

class Clock;

/// rsync's exit code when something of the source could not be read.
inline constexpr int kRsyncPartial = 23;

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

/// What looking and copying have in common: the sources with their copies, rsync at work over them,
/// how far it has come, and how it ends. Thread: one.
class CopyJob {
 public:
  struct Surroundings {
    ExecuteControl& control;
    Clock& clock;
    std::string rsync;
    /// Called after each piece of news.
    std::function<void(const ExecuteProgress&)> tell = {};
    std::string sync = "/usr/bin/sync";
  };

 protected:
  CopyJob(const CopyPlan& plan, CopyOwner owner, Surroundings surroundings)
      : mPlan(plan), mOwner(std::move(owner)), m(std::move(surroundings)) {}

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
    NameList changes = {};     ///< names of what is new or to be changed
    bool isLookWhole = false;  ///< nothing kept the look from telling all of them
    bool isEmpty = false;      ///< before the run
    std::optional<std::set<std::string>> unread{std::in_place};
    std::vector<std::string> skipped = {};
    /// That are to be copied, with the bytes of each that take up no room.
    std::map<std::string, std::uint64_t> largeItems = {};
    std::vector<std::string> left = {};  ///< in the copy, by an rsync that was killed

    std::uint64_t filesOfCopy() const;
    bool isUnread(const std::string& name) const;
    void addUnread(const std::optional<std::set<std::string>>& names);
    std::string pathOf(const std::string& item) const;
    std::string placeOfCopy() const;
    /// Whether the source has lost what the copy has; nothing with errno when it cannot tell.
    std::optional<bool> isToGo(const std::string& name, Deletion& deletion, CaseTwins& twins) const;
  };

  // Each says whether the job goes on; if not, mEnd tells why.
  bool isInOrder();
  bool isAlive();
  bool fail(ExecuteCode code, std::string reason);
  bool failWith(const Error& error);
  /// True when rsync did not get through; errors are left to the caller.
  bool endsWith(const RsyncProcess::End& end, const RsyncOutput& output, const Copy& copy);
  void finish();

  struct Special {
    bool tellsAll = false;
    bool comparesAttributes = true;
    std::optional<std::string> onlyItem = {};
    int items = -1;  ///< the only ones to be copied, as of CopyPlan::Task; -1: all
  };
  Result<RsyncProcess::End> start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output,
                                  const Special& special);
  Result<RsyncProcess::End> start(CopyPlan::Pass pass, Copy& copy, RsyncOutput& output) {
    return start(pass, copy, output, {});
  }
  Result<RsyncProcess::End> run(RsyncProcess::Task task, RsyncOutput& output,
                                const std::function<void()>& onNews);
  std::vector<RsyncOutput::Place> placesOf(const Copy& copy) const;

  void takeErrors(const RsyncOutput& output, const Copy& copy);
  void addError(const std::string& path, std::string text);
  void addLack(const Copy& copy, const std::string& item, std::string text);
  void tell(const Copy& copy, const RsyncOutput& output);
  void tellLook(const RsyncOutput& output);
  static std::uint64_t sizeIn(const HeldFolder& folder, const std::string& name);

  const CopyPlan& mPlan;
  CopyOwner mOwner;
  Surroundings m;
  MountsNow mMounts;
  std::optional<HeldFolder> mDestination;
  std::vector<std::string> mOptions;
  std::vector<Copy> mCopies;
  bool mMayDelete = false;
  std::uint64_t mBytesToCopy = 0;
  std::uint64_t mHoles = 0;  ///< of these bytes, in sparse files: they take up no room
  std::uint64_t mFilesToCopy = 0;
  std::uint64_t mItemsSeen = 0;  ///< in the sources before the one that is looked at
  ExecuteProgress mProgress;
  ExecuteEnd mEnd;

 private:
  std::string remedyFor(const std::string& item);
  double progress(std::uint64_t bytes, std::uint64_t files) const;

  std::string mGone;  ///< which volume went
  Pace mPace;         ///< of the per cent
  Pace mBytePace;
};

}  // namespace corvana
