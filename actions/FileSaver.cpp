#include "actions/FileSaver.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <exception>
#include <mutex>
#include <utility>
#include <vector>

namespace corvana {

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
