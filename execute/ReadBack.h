#pragma once

#include "execute/ExecuteRecords.h"
#include "execute/engine/Engine.h"

namespace corvana {

/// Has copies read and compared: when that is asked for, a few after the first run of an action,
/// and a part of them every week. Thread: one.
class ReadBack {
 public:
  ReadBack(Engine& engine, ExecuteRecords::Files files, FolderWatch& watch)
      : mEngine(engine), mFiles(files), mWatch(watch) {}

  /// Another part each week.
  static VerifiedShare shareOf(ReferenceTime now, double percent);

  /// `settings`: of the action whose sources the copies are compared with, null for none.
  /// `damaged` when something is not what was copied.
  Outcome perform(const VerifiedShare& share, const ZAN_Value& settings, const KeptVersion& newest,
                  Volumes& volumes, const TaskHooks& hooks);
  const VerifiedCounts& counts() const { return mCounts; }
  /// In the action's record.
  void note(std::int64_t reference) const;

  /// After a run of the action. What differs makes the end a bad one.
  void afterRun(const ZAN_Value& settings, bool isFirst, Volumes& volumes, ExecuteControl& control,
                ExecuteEnd& end);

 private:
  Engine& mEngine;
  ExecuteRecords::Files mFiles;
  FolderWatch& mWatch;
  VerifiedCounts mCounts;
};

}  // namespace corvana
