#include "actions/FileSaver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <system_error>
#include <utility>

namespace corvana {

namespace {

/// Of a file's end, to find it again among the lines; repeated lines are told apart by those
/// before.
constexpr std::size_t kTail = 4096;
constexpr std::uint64_t kMostBytes = 1UL << 20;
constexpr int kReplacements = 8;
constexpr double kLongestWait = 2.0;

Error unwritable(const std::string& path) {
  return {ErrorKind::unwritable, path + ": " + std::generic_category().message(errno)};
}

std::optional<std::string> readEnd(const ZAN_Descriptor& file, std::uint64_t size,
                                   std::size_t most) {
  std::string text(static_cast<std::size_t>(std::min<std::uint64_t>(most, size)), '\0');
  std::size_t length = 0;
  while (length < text.size()) {
    const ssize_t count = ::pread(file.get(), text.data() + length, text.size() - length,
                                  static_cast<off_t>(size - text.size() + length));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return std::nullopt;
    length += static_cast<std::size_t>(count);
  }
  return text;
}

bool write(const ZAN_Descriptor& file, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(file.get(), text.data(), text.size());
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return false;
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

/// The whole lines of the end of a file; nothing when its last one is torn, or there is none.
std::vector<std::string_view> wholeLines(std::string_view tail, bool isWholeFile) {
  std::vector<std::string_view> lines;
  if (tail.empty() || tail.back() != '\n') return lines;
  std::size_t begin = isWholeFile ? 0 : tail.find('\n') + 1;
  while (begin < tail.size()) {
    const std::size_t end = tail.find('\n', begin);
    lines.push_back(tail.substr(begin, end - begin));
    begin = end + 1;
  }
  return lines;
}

/// Number of the line after those that the file ends with; nothing when it ends otherwise.
std::optional<std::size_t> lineAfter(const std::vector<std::string_view>& end,
                                     const LineFile::Lines& lines) {
  std::vector<std::string> texts;  // from the last one on
  const auto text = [&](std::size_t number) -> const std::string& {
    while (texts.size() < lines.count - number)
      texts.push_back(lines.line(lines.count - 1 - texts.size()));
    return texts[lines.count - 1 - number];
  };
  if (end.empty()) return std::nullopt;
  for (std::size_t after = lines.count; after > 0; --after) {
    const std::size_t length = std::min(end.size(), after);
    std::size_t same = 0;
    while (same < length && text(after - 1 - same) == end[end.size() - 1 - same]) ++same;
    if (same == length) return after;
  }
  return std::nullopt;
}

/// Nothing when the file has to be written anew.
std::optional<std::string> missingFrom(const std::string& path, const LineFile::Lines& lines) {
  const ZAN_Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  struct stat status;
  if (!file || ::fstat(file.get(), &status) != 0) return std::nullopt;
  const auto size = static_cast<std::uint64_t>(status.st_size);
  if (size > kMostBytes) return std::nullopt;
  const auto tail = readEnd(file, size, kTail);
  if (!tail) return std::nullopt;
  const auto first = lineAfter(wholeLines(*tail, tail->size() == size), lines);
  if (!first) return std::nullopt;
  std::string missing;
  for (std::size_t number = *first; number < lines.count; ++number)
    missing += lines.line(number) + "\n";
  return missing;
}

}  // namespace

Outcome LineFile::append(const std::string& path, std::string_view lines) {
  for (int time = 0; time < kReplacements; ++time) {
    ZAN_Descriptor file(::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_CLOEXEC, 0666));
    struct stat status;
    if (!file || ::fstat(file.get(), &status) != 0) return unwritable(path);
    const auto last = readEnd(file, static_cast<std::uint64_t>(status.st_size), 1);
    const bool isTorn = last && !last->empty() && *last != "\n";
    if (!write(file, isTorn ? "\n" + std::string(lines) : std::string(lines)) ||
        ::fstat(file.get(), &status) != 0 || file.close() != 0)
      return unwritable(path);
    if (status.st_nlink > 0) return {};
  }
  return Error{ErrorKind::unwritable, path + ": replaced again and again by other programs"};
}

Outcome LineFile::show(const std::string& path, const Lines& lines, const ZAN_FileWriter& writer) {
  ZAN_FileLock held;
  if (!lines.lockPath.empty()) {
    auto lock = ZAN_FileLock::acquire(lines.lockPath, kLongestWait, lines.pause);
    // Without it two programs may show a line twice, until the next one makes good for that.
    if (lock) held = std::move(*lock);
  }
  if (!lines.isAnew) {
    if (const auto missing = missingFrom(path, lines))
      return missing->empty() ? Outcome() : append(path, *missing);
  }
  std::string all;
  for (std::size_t number = 0; number < lines.count; ++number) all += lines.line(number) + "\n";
  return writer.write(path, all, {});
}

/// What throws here would take the thread along, and what else waits with it.
Outcome FileSave::writeBy(const ZAN_FileWriter& writer) const {
  try {
    if (lines) return LineFile::show(path, *lines, writer);
    return writer.write(path, make ? make() : bytes, options);
  } catch (const std::exception& exception) {
    return Error{ErrorKind::unwritable, path + ": " + exception.what()};
  }
}

struct FileSaver::Queue {
  struct Job {
    FileSave save;
    Done done;
  };
  struct Written {
    Outcome outcome;
    Done done;
  };

  static const std::string& pathOf(const Job& job) { return job.save.path; }

  std::mutex mutex;
  std::condition_variable idle;  ///< nobody is writing
  std::deque<Job> waiting;
  std::deque<Written> written;
  bool isWriting = false;
  bool isHandedOver = false;  ///< the worker or the loop will write what waits
};

FileSaver::FileSaver(ZAN_FileWriter writer, RunLoop& loop, double delay)
    : mWriter(std::move(writer)), mLoop(loop), mDelay(delay), mQueue(std::make_shared<Queue>()) {
  if (mDelay <= 0) mWorker = mLoop.worker("saver");
}

FileSaver::~FileSaver() { finish(); }

void FileSaver::save(FileSave save, Done done) {
  {
    const std::lock_guard guard(mQueue->mutex);
    auto& waiting = mQueue->waiting;
    const auto earlier = std::find_if(waiting.begin(), waiting.end(), [&](const Queue::Job& job) {
      return save.isMade() && job.save.isMade() && job.save.path == save.path;
    });
    if (earlier != waiting.end()) {
      done = [first = std::move(earlier->done), last = std::move(done)](const Outcome& outcome) {
        first(outcome);
        last(outcome);
      };
      save.options.synchronise |= earlier->save.options.synchronise;
      if (save.lines && earlier->save.lines) save.lines->isAnew |= earlier->save.lines->isAnew;
      waiting.erase(earlier);
    }
    waiting.push_back({std::move(save), std::move(done)});
    if (std::exchange(mQueue->isHandedOver, true)) return;
  }
  if (mDelay > 0) {
    mLoop.performAfter(mDelay, [this, weak = std::weak_ptr(mQueue)] {
      if (weak.expired()) return;
      mQueue->isHandedOver = false;
      finish();
    });
    return;
  }
  mWorker->perform([queue = mQueue, writer = mWriter, &loop = mLoop] {
    for (;;) {
      {
        std::unique_lock guard(queue->mutex);
        queue->idle.wait(guard, [&] { return !queue->isWriting; });
        if (queue->waiting.empty()) {
          queue->isHandedOver = false;
          return;
        }
        queue->isWriting = true;
      }
      writeNext(*queue, writer);
      loop.performOnMain([weak = std::weak_ptr(queue)] {
        if (const auto same = weak.lock()) deliver(*same);
      });
    }
  });
}

void FileSaver::finish() {
  for (;;) {
    {
      std::unique_lock guard(mQueue->mutex);
      mQueue->idle.wait(guard, [this] { return !mQueue->isWriting; });
      if (mQueue->waiting.empty()) break;
      mQueue->isWriting = true;
    }
    writeNext(*mQueue, mWriter);
  }
  deliver(*mQueue);
}

void FileSaver::finish(const std::string& path) {
  for (;;) {
    Queue::Job job;
    {
      std::unique_lock guard(mQueue->mutex);
      mQueue->idle.wait(guard, [this] { return !mQueue->isWriting; });
      auto& waiting = mQueue->waiting;
      const auto found = std::ranges::find(waiting, path, Queue::pathOf);
      if (found == waiting.end()) break;
      job = std::move(*found);
      waiting.erase(found);
      mQueue->isWriting = true;
    }
    write(*mQueue, job.save, std::move(job.done), mWriter);
  }
  deliver(*mQueue);
}

Outcome FileSaver::saveNow(const FileSave& save) {
  std::vector<Done> superseded;
  {
    std::unique_lock guard(mQueue->mutex);
    mQueue->idle.wait(guard, [this] { return !mQueue->isWriting; });
    std::erase_if(mQueue->waiting, [&](Queue::Job& job) {
      if (job.save.path != save.path) return false;
      superseded.push_back(std::move(job.done));
      return true;
    });
    mQueue->isWriting = true;
  }
  Outcome outcome;
  const Done done = [&](const Outcome& written) {
    outcome = written;
    for (const Done& each : superseded) each(written);
  };
  write(*mQueue, save, done, mWriter);
  deliver(*mQueue);
  return outcome;
}

/// For the one that has set `isWriting`.
void FileSaver::writeNext(Queue& queue, const ZAN_FileWriter& writer) {
  Queue::Job job;
  {
    const std::lock_guard guard(queue.mutex);
    job = std::move(queue.waiting.front());
    queue.waiting.pop_front();
  }
  write(queue, job.save, std::move(job.done), writer);
}

void FileSaver::write(Queue& queue, const FileSave& save, Done done, const ZAN_FileWriter& writer) {
  Outcome outcome = save.writeBy(writer);
  {
    const std::lock_guard guard(queue.mutex);
    queue.written.push_back({std::move(outcome), std::move(done)});
    queue.isWriting = false;
  }
  queue.idle.notify_all();
}

void FileSaver::deliver(Queue& queue) {
  std::deque<Queue::Written> written;
  {
    const std::lock_guard guard(queue.mutex);
    written.swap(queue.written);
  }
  for (const Queue::Written& each : written) each.done(each.outcome);
}

}  // namespace corvana
