#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "execute/ExecuteRecords.h"
#include "execute/ExecuteRun.h"
#include "execute/engine/Engine.h"

namespace corvana {

/// What has come of a request so far: written beside it over and over while the work goes on, told
/// as progress, and for a task recorded, from its first item on. Thread: one.
class VersionAnswer {
 public:
  VersionAnswer(const ExecuteRun::Surroundings& surroundings, FolderWatch& watch)
      : m(surroundings), mWatch(watch) {}

  /// `file`: of the request.
  void begin(std::string file) { mFile = std::move(file); }
  /// It is a task of that action, to be recorded as that kind.
  void record(std::string kind, std::int64_t reference, const std::string& title);
  /// It has begun in a process that is gone.
  void takeUp();

  void set(std::string_view key, ZAN_Value value) { mAnswer.setValue(key, std::move(value)); }
  void setDone(std::uint64_t files, std::uint64_t bytes);
  TaskHooks hooks();
  /// Whether nobody wants it to end, and no volume has gone.
  bool goesOn(const std::string& path, std::uint64_t files, std::uint64_t bytes);
  /// One more item than was told last.
  bool goesOn(const std::string& path) { return goesOn(path, mFiles + 1, 0); }
  std::uint64_t filesInAll() const { return mFilesInAll; }
  std::uint64_t errors() const { return mErrors; }
  /// Of at least one.
  const std::string& firstError() const { return mErrorTexts.front(); }

  ExecuteEnd end(const Outcome& outcome, bool isRestore) const;
  /// The request is taken away, then whoever waits for the answer goes on.
  void finish(const ExecuteEnd& end);

 private:
  void failed(std::string text);
  void write(bool isDone);

  const ExecuteRun::Surroundings& m;
  FolderWatch& mWatch;
  std::string mFile;
  ZAN_Value mAnswer = ZAN_Value::dictionary();
  std::string mKind;
  std::optional<ExecuteRecords> mRecords;
  bool mHasBegun = false;
  std::uint64_t mFilesInAll = 0;
  std::uint64_t mBytesInAll = 0;
  std::uint64_t mFiles = 0;
  std::uint64_t mBytes = 0;
  std::uint64_t mErrors = 0;
  std::vector<std::string> mErrorTexts;
  double mNextAnswer = 0;
};

}  // namespace corvana
