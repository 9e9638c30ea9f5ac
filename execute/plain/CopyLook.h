#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string>

#include "execute/engine/Engine.h"
#include "execute/plain/CopyJob.h"

namespace corvana {

/// How much of a copy a run may take out of it unasked.
struct DeletionLimit {
  static constexpr std::uint64_t kFiles = 50;  ///< so many it always may

  double share = 1.0 / 3;
  std::uint64_t confirmed = 0;  ///< what the user has agreed to

  bool isPassed(std::uint64_t deletions, std::uint64_t filesOfCopy) const;
};

/// Finds out what there is to do for a plan: opens the copies, makes sure whose they are, lets
/// rsync compare, and decides whether as much may be deleted. Blocks; thread: one.
class CopyLook : protected CopyJob {
 public:
  using Surroundings = CopyJob::Surroundings;
  using Planned = PlannedItem;

  CopyLook(const CopyPlan& plan, CopyOwner owner, DeletionLimit limit, Surroundings surroundings)
      : CopyJob(plan, std::move(owner), std::move(surroundings)), mLimit(limit) {}

  /// Changes nothing and tells what a run would do. The end says what would keep it from that, and
  /// what it could not copy.
  ExecuteEnd look(const std::function<void(const Planned&)>& planned);

 protected:
  // Each says whether the run goes on; if not, mEnd tells why.
  bool openCopies();
  /// Takes the looks of all copies into account.
  bool lookAtAll();

 private:
  bool refuseUntilTakenOver(ExecuteCode code, std::string reason);
  bool checkIdentity();
  bool open(const CopyPlan::Source& source);
  bool checkOwner(const CopyPlan::Source& source, const HeldFolder& copy);
  bool lookAt(Copy& copy);
  void tellWhatIsLeftOut(Copy& copy, const SourceSurvey& survey,
                         const std::set<std::string>& listed);
  void tellPlan(Copy& copy);
  void checkDeletions();

  DeletionLimit mLimit;
  std::function<void(const Planned&)> mPlanned;  ///< where nothing is to be changed
};

}  // namespace corvana
