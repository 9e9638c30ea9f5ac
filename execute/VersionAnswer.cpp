#include "execute/VersionAnswer.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <utility>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionStore.h"
#include "actions/TaskRequest.h"
#include "execute/engine/NameList.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kInterval = 0.25;
constexpr std::size_t kMostTold = 10'000;

/// Bytes and a little for each file, so that it moves with small ones, too.
double work(std::uint64_t files, std::uint64_t bytes) {
  return static_cast<double>(bytes) + 4096.0 * static_cast<double>(files);
}

}  // namespace

void VersionAnswer::record(std::string kind, std::int64_t reference, const std::string& title) {
  mKind = std::move(kind);
  mRecords.emplace(m.files, m.messages, m.agentRuns, reference, title);
}

void VersionAnswer::takeUp() {
  mHasBegun = true;
  if (mRecords) mRecords->takeUp();
}

void VersionAnswer::setDone(std::uint64_t files, std::uint64_t bytes) {
  mFiles = files;
  mBytes = bytes;
}

void VersionAnswer::write(bool isDone) {
  mAnswer.setValue("done", isDone ? 1 : 0);
  mAnswer.setValue("files", mFiles);
  mAnswer.setValue("bytes", mBytes);
  mAnswer.setValue("filesInAll", mFilesInAll);
  mAnswer.setValue("bytesInAll", mBytesInAll);
  const auto text = ZAN_Json::jsonWithValue(mAnswer, {.compact = true, .plain = true});
  if (!text) return;
  const std::string file = TaskRequest::answerOf(mFile);
  const std::string fresh = file + ".new";
  const ZAN_Descriptor open(
      ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (open && writeAll(open.get(), *text)) std::rename(fresh.c_str(), file.c_str());
}

bool VersionAnswer::goesOn(const std::string& path, std::uint64_t files, std::uint64_t bytes) {
  mFiles = files;
  mBytes = bytes;
  if (mRecords && !std::exchange(mHasBegun, true)) mRecords->began(mKind);
  m.control.waitWhilePaused();
  mWatch.check();
  const double now = m.files.store.clock().monotonic();
  if (now >= mNextAnswer) {
    mNextAnswer = now + kInterval;
    mAnswer.setValue("path", path);
    write(false);
    const double all = work(mFilesInAll, mBytesInAll);
    ExecuteProgress progress{.currentPath = path,
                             .value = all <= 0 ? 0 : std::min(99.0, 100 * work(files, bytes) / all),
                             .sizeCopied = bytes,
                             .filesCopied = files,
                             .errors = mErrors};
    progress.bytesToCopy = mBytesInAll;
    progress.filesToCopy = mFilesInAll;
    m.messages.postProgress(progress, false);
    if (mRecords) mRecords->workingOn(path);
  }
  return m.control.stopReason() == StopReason::none;
}

void VersionAnswer::failed(std::string text) {
  ++mErrors;
  if (mErrorTexts.size() < kMostTold) mErrorTexts.push_back(std::move(text));
}

TaskHooks VersionAnswer::hooks() {
  return {.inAll =
              [this](std::uint64_t files, std::uint64_t bytes) {
                mFilesInAll = files;
                mBytesInAll = bytes;
              },
          .goesOn = [this](const std::string& path, std::uint64_t files,
                           std::uint64_t bytes) { return goesOn(path, files, bytes); },
          .failed = [this](std::string text) { failed(std::move(text)); },
          .done = {}};
}

ExecuteEnd VersionAnswer::end(const Outcome& outcome, bool isRestore) const {
  const auto stopped = m.control.endOfStop(mWatch.gone());
  ExecuteEnd end = stopped.value_or(ExecuteEnd());
  end.errors = mErrors;
  end.errorTexts = mErrorTexts;
  end.progress.filesCopied = mFiles;
  end.progress.sizeCopied = mBytes;
  if (stopped && end.reason.empty())
    end.reason = isRestore ? "stopped; what was restored stays" : "stopped";
  if (stopped || outcome) return end;
  end.code = mErrors > 0 ? ExecuteCode::completedWithErrors : ExecuteCode::unexpectedError;
  end.reason = outcome.error().text;
  return end;
}

void VersionAnswer::finish(const ExecuteEnd& end) {
  set("code", end.code == ExecuteCode::completed ? 0 : 1);
  if (!end.reason.empty()) set("reason", end.reason);
  ZAN_Value failed = ZAN_Value::array();
  for (const auto& error : mErrorTexts) failed.append(error);
  set("failed", failed);
  if (mRecords && mHasBegun) mRecords->taskEnded(mKind, end);
  ::unlink(mFile.c_str());
  // Last, since whoever waits for it goes on then.
  write(true);
  if (!end.reason.empty()) std::cerr << end.reason << std::endl;
}

}  // namespace corvana
