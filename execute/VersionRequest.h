#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "execute/ExecuteRecords.h"
#include "execute/ExecuteRun.h"
#include "execute/plain/Verification.h"
#include "execute/plain/VersionView.h"

namespace corvana {

/// Does what is wanted of the copies of an action other than a run (TaskRequest). What has come of
/// it is written beside the request, over and over while it goes on; the request is taken away at
/// the end, so that one that was cut off can be taken up again.
///
/// "kind" is "versions", "restore", "verify" or "diff". "names": paths as the user gave them,
/// "folder" is where he was; "at": the newest version not later than that, in seconds of the
/// reference date; "from": a folder with copies instead of the destination of the action; for
/// "restore" also "to" (a folder), "overwrite" and "dryRun", for "verify" "sample" (per cent; 100
/// without it). The answer has "done" (0 or 1) and then "code" (0, or 1 with "reason"), and what
/// the kind asks for.
class VersionRequest {
 public:
  explicit VersionRequest(const ExecuteRun::Surroundings& surroundings) : m(surroundings) {}
  /// The request that the arguments name. A restore or a verification is in the history from its
  /// first item on.
  void perform(const ExecuteArguments& arguments);
  /// Records the end of one that was given up, and answers it.
  void recordEnd(const ExecuteArguments& arguments, const ExecuteEnd& end);
  /// After a good run of the action with these settings: reads a few files back after the first
  /// one, and a part of the copies every week. What differs makes the end a bad one.
  void verifyAfterRun(const ZAN_Value& settings, bool isFirst, ExecuteEnd& end);

 private:
  /// Where the versions are, and which one is meant.
  struct Place {
    HeldFolder destination;
    std::vector<VersionFolder> chain;
    std::size_t index = 0;
  };
  struct Target {
    HeldFolder folder;
    std::string name;    ///< in the version
    std::string target;  ///< below the folder
  };

  void take(const ExecuteArguments& arguments);
  void finish(const ExecuteEnd& end);
  Result<Place> findPlace();
  Result<std::vector<std::string>> namesIn(const VersionHeader& header) const;
  Result<Target> targetFor(const VersionHeader& header, const std::string& name) const;
  Outcome versions();
  Outcome restore();
  Outcome verify(const Verification::Share& share);
  Outcome diff();
  bool goesOn(const std::string& path, std::uint64_t files, std::uint64_t bytes);
  void answer(bool isDone);
  ExecuteEnd end(const Outcome& outcome) const;
  void noteVerification();

  const ExecuteRun::Surroundings& m;
  ZAN_Value mRequest;
  ZAN_Value mAnswer = ZAN_Value::dictionary();
  std::string mFile;
  std::string mKind;
  std::optional<ExecuteRecords> mRecords;  ///< of a task that is to be recorded
  bool mHasBegun = false;
  ZAN_Value mSettings;
  std::vector<const HeldFolder*> mWatched;
  MountsNow mMounts;
  std::string mGone;
  std::uint64_t mFilesInAll = 0;
  std::uint64_t mBytesInAll = 0;
  std::uint64_t mFiles = 0;
  std::uint64_t mBytes = 0;
  std::uint64_t mErrors = 0;
  std::vector<std::string> mErrorTexts;
  double mNextAnswer = 0;
  bool mAnswers = true;
  std::uint64_t mMismatches = 0;
  std::uint64_t mUnknown = 0;
};

}  // namespace corvana
