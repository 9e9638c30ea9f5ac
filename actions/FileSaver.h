#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "actions/LineFile.h"
#include "platform/RunLoop.h"

namespace corvana {

/// A file to be replaced whole, or by lines.
struct FileSave {
  std::string path;
  std::vector<std::byte> bytes;
  ZAN_FileWriter::Options options;
  /// Makes the bytes, in place of `bytes`, by whoever writes them, on whichever thread. A later one
  /// of the same file that comes before this was begun takes its place.
  std::function<std::vector<std::byte>()> make = {};
  /// In place of all of these. A later one takes the place of an earlier one as well.
  std::optional<LineFile::Lines> lines = {};

  Outcome writeBy(const ZAN_FileWriter& writer) const;
  /// Whether a later one stands for both.
  bool isMade() const { return make || lines; }
};

/// Writes files on a thread of its own, in the order in which they are handed over, so that a busy
/// disk does not hold the main thread up. The thread is there from the start; without one the main
/// thread writes from its loop. Thread: main.
class FileSaver {
 public:
  using Done = std::function<void(const Outcome&)>;

  /// With a `delay` there is no thread: that many seconds after there is something to write the
  /// loop writes it.
  FileSaver(ZAN_FileWriter writer, RunLoop& loop, double delay = 0);
  FileSaver(const FileSaver&) = delete;
  FileSaver& operator=(const FileSaver&) = delete;
  ~FileSaver();

  /// `done` is called on the main thread, later.
  void save(FileSave save, Done done);
  /// Returns when everything handed over before is on disk or has failed, and every `done` was
  /// called. Blocks; what no thread has begun is written here.
  void finish();
  /// The same of one file alone, before its turn.
  void finish(const std::string& path);
  /// Writes now; what waits of the same file need not be written any more.
  Outcome saveNow(const FileSave& save);

 private:
  struct Queue;
  static void writeNext(Queue& queue, const ZAN_FileWriter& writer);
  static void write(Queue& queue, const FileSave& save, Done done, const ZAN_FileWriter& writer);
  static void deliver(Queue& queue);

  ZAN_FileWriter mWriter;
  RunLoop& mLoop;
  double mDelay;
  std::shared_ptr<Queue> mQueue;
  std::unique_ptr<RunLoop::Worker> mWorker;
};

}  // namespace corvana
