#pragma once

#include <memory>
#include <string>
#include <vector>

#include "execute/VersionAnswer.h"
#include "execute/engine/Engine.h"

namespace corvana {

/// Does what is wanted of the copies of an action other than a run (TaskRequest). What has come of
/// it is written beside the request, over and over while it goes on; the request is taken away at
/// the end, so that one that was cut off can be taken up again.
///
/// "kind" is "versions", "list", "restore", "verify", "diff" or "test". "names": paths as the user
/// gave them, "folder" is where he was; "at": the newest version not later than that, in seconds of
/// the reference date; "from": a place of copies instead of that of the action; for "restore" also
/// "to" (a folder), "overwrite" and "dryRun", for "verify" "sample" (per cent; 100 without it), for
/// "list" "find" (a word that names have). The
/// answer has "done" (0 or 1) and then "code" (0, or 1 with "reason"), and what the kind asks for.
class VersionRequest {
 public:
  explicit VersionRequest(const ExecuteRun::Surroundings& surroundings)
      : m(surroundings), mWatch(surroundings.control), mAnswer(surroundings, mWatch) {}
  /// The request that the arguments name. A restore or a verification is in the history from its
  /// first item on.
  void perform(const ExecuteArguments& arguments);
  /// Records the end of one that was given up, and answers it.
  void recordEnd(const ExecuteArguments& arguments, const ExecuteEnd& end);

 private:
  void take(const ExecuteArguments& arguments);
  Outcome carryOut(const ExecuteArguments& arguments);
  Outcome choose();
  Result<std::vector<std::string>> names() const;
  /// The names that are wanted, or all of the version, and where they belong.
  Result<std::vector<VersionTarget>> targets() const;
  Outcome versions();
  Outcome restore();
  Outcome verify();
  Outcome diff();
  Outcome list();

  const ExecuteRun::Surroundings& m;
  FolderWatch mWatch;
  ZAN_Value mRequest;
  VersionAnswer mAnswer;
  std::string mKind;
  ZAN_Value mSettings;
  std::unique_ptr<Engine> mEngine;
  KeptVersions mKept;
  KeptVersion mVersion;  ///< the one that is wanted
};

}  // namespace corvana
