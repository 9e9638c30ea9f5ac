#pragma once

#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "platform/RunLoop.h"

namespace corvana {

/// A text file that grows by lines at its end, by the hands of several programs. Thread: any.
class LineFile {
 public:
  /// The lines that the file is to show, the oldest first.
  struct Lines {
    std::size_t count = 0;
    std::function<std::string(std::size_t)> line = {};  ///< without a line end
    /// Others than the last ones may have changed, so that the file is written anew.
    bool isAnew = true;
    std::string lockPath = {};               ///< excludes other programs that do the same
    std::function<void(double)> pause = {};  ///< blocks for so many seconds, for that lock
  };

  LineFile() = delete;

  /// Adds to the end in one piece. What a cut or a full disk has left of a line there becomes a
  /// line of its own. A file that another program replaces meanwhile gets the lines as well.
  static Outcome append(const std::string& path, std::string_view lines);

  /// Adds those lines that follow what the file ends with. It is written anew when it does not end
  /// with any of them, and when it has grown beyond a megabyte by lines that are no longer shown.
  static Outcome show(const std::string& path, const Lines& lines, const ZAN_FileWriter& writer);
};

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
