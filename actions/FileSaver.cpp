#include "actions/FileSaver.h"

#include <algorithm>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <utility>

#include "platform/RunLoop.h"

namespace corvana {

struct FileSaver::Queue {
  struct Job {
    FileSave save;
    Done done;
  };
  struct Written {
    Outcome outcome;
    Done done;
  };

  std::mutex mutex;
  std::condition_variable idle;  ///< nobody is writing
  std::deque<Job> waiting;
  std::deque<Written> written;
  bool isWriting = false;
  bool hasThread = false;
};

FileSaver::FileSaver(ZAN_FileWriter writer, RunLoop& loop)
    : mWriter(std::move(writer)), mLoop(loop), mQueue(std::make_shared<Queue>()) {}

FileSaver::~FileSaver() { finish(); }

void FileSaver::save(FileSave save, Done done) {
  {
    const std::lock_guard guard(mQueue->mutex);
    auto& waiting = mQueue->waiting;
    const auto earlier = std::find_if(waiting.begin(), waiting.end(), [&](const Queue::Job& job) {
      return save.make && job.save.make && job.save.path == save.path;
    });
    if (earlier != waiting.end()) {
      done = [first = std::move(earlier->done), last = std::move(done)](const Outcome& outcome) {
        first(outcome);
        last(outcome);
      };
      waiting.erase(earlier);
    }
    waiting.push_back({std::move(save), std::move(done)});
    if (std::exchange(mQueue->hasThread, true)) return;
  }
  mLoop.detachThread("saver", [queue = mQueue, writer = mWriter, &loop = mLoop] {
    for (;;) {
      {
        std::unique_lock guard(queue->mutex);
        queue->idle.wait(guard, [&] { return !queue->isWriting; });
        if (queue->waiting.empty()) {
          queue->hasThread = false;
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

/// For the one that has set `isWriting`.
void FileSaver::writeNext(Queue& queue, const ZAN_FileWriter& writer) {
  Queue::Job job;
  {
    const std::lock_guard guard(queue.mutex);
    job = std::move(queue.waiting.front());
    queue.waiting.pop_front();
  }
  Outcome outcome = job.save.writeBy(writer);
  {
    const std::lock_guard guard(queue.mutex);
    queue.written.push_back({std::move(outcome), std::move(job.done)});
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
