#include "platform/qt/QtRunLoop.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <cmath>
#include <condition_variable>
#include <deque>
#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include <QCoreApplication>
#include <QSocketNotifier>
#include <QTimerEvent>

#include "platform/linux/SystemClock.h"

namespace corvana {

namespace {

/// Far below the range of Qt's milliseconds; what is further off is looked at again then.
constexpr double kLongestWait = 86400;
constexpr double kThreadRetry = 0.25;

QSocketNotifier::Type typeOf(DescriptorWatch::Event event) {
  switch (event) {
    case DescriptorWatch::Event::readable:
      return QSocketNotifier::Read;
    case DescriptorWatch::Event::writable:
      return QSocketNotifier::Write;
    case DescriptorWatch::Event::exceptional:
      return QSocketNotifier::Exception;
  }
  return QSocketNotifier::Read;
}

struct DetachedThread {
  std::thread thread;
  std::atomic<bool> ended = false;
};

}  // namespace

class QtRunLoop::Private final : public QObject {
 public:
  using Body = std::function<void()>;

  explicit Private(QtRunLoop& loop) : mLoop(loop) {}

  /// On the main thread.
  void perform(const Body& body) {
    try {
      body();
    } catch (const std::exception& exception) {
      if (!mLoop.onException) throw;
      mLoop.onException(exception);
    }
  }

  /// On another one, which must not be left by an exception.
  void performOnThread(const Body& body) {
    try {
      body();
    } catch (const std::exception&) {
      mLoop.performOnMain([thrown = std::current_exception()] { std::rethrow_exception(thrown); });
    }
  }

  void timerEvent(QTimerEvent* event) override {
    if (event->timerId() == mDelayTimer) {
      performDelayed();
      return;
    }
    const auto found = mRepeating.find(event->timerId());
    if (found == mRepeating.end() || mQuit) return;
    // The body may cancel its own timer.
    const std::shared_ptr<Body> body = found->second;
    perform(*body);
  }

  void armDelayed() {
    if (mDelayTimer != 0) killTimer(std::exchange(mDelayTimer, 0));
    if (mDelayed.empty()) return;
    const double wait =
        std::clamp(mDelayed.begin()->first.first - mClock.monotonic(), 0.0, kLongestWait);
    // A coarse one may ring early, and then again.
    mDelayTimer = startTimer(static_cast<int>(std::ceil(wait * 1000)), Qt::PreciseTimer);
    mArmedFor = mDelayed.begin()->first.first;
  }

  void performDelayed() {
    // Those added by the bodies wait for the next pass, so that a chain of them blocks nothing.
    const TimerId last = mLastTimer;
    const double now = mClock.monotonic();
    for (auto next = mDelayed.begin(); !mQuit && next != mDelayed.end();) {
      if (next->first.first > now) break;
      if (next->first.second > last) {
        ++next;
        continue;
      }
      const Body body = std::move(next->second);
      mDates.erase(next->first.second);
      mDelayed.erase(next);
      perform(body);
      next = mDelayed.begin();
    }
    armDelayed();
  }

  void performPosted() {
    std::deque<Body> bodies;
    {
      const std::lock_guard lock(mPostedMutex);
      bodies.swap(mPosted);
      mWakeIsPosted = false;
    }
    while (!bodies.empty() && !mQuit) {
      const Body body = std::move(bodies.front());
      bodies.pop_front();
      perform(body);
    }
  }

  void reapThreads(bool all) {
    std::list<DetachedThread> ended;
    {
      const std::lock_guard lock(mThreadsMutex);
      for (auto one = mThreads.begin(); one != mThreads.end();) {
        const auto next = std::next(one);
        if (all || one->ended) ended.splice(ended.end(), mThreads, one);
        one = next;
      }
    }
    for (DetachedThread& one : ended) one.thread.join();
  }

  QtRunLoop& mLoop;
  SystemClock mClock;
  // One timer of Qt serves the earliest delayed perform, so that equal dates keep their order.
  TimerId mLastTimer = 0;
  std::map<std::pair<double, TimerId>, Body> mDelayed;
  std::unordered_map<TimerId, double> mDates;
  int mDelayTimer = 0;
  double mArmedFor = 0;
  std::unordered_map<int, std::shared_ptr<Body>> mRepeating;  ///< by Qt's number
  std::unordered_map<TimerId, int> mRepeatingNumbers;

  std::mutex mPostedMutex;
  std::deque<Body> mPosted;
  bool mWakeIsPosted = false;

  std::mutex mThreadsMutex;
  std::list<DetachedThread> mThreads;

  WatchId mLastWatch = 0;
  std::unordered_map<WatchId, std::unique_ptr<QSocketNotifier>> mWatches;
  std::vector<std::unique_ptr<QSocketNotifier>> mRetired;

  std::optional<int> mQuit;
};

/// A thread that waits for work.
class QtRunLoop::OwnThread final : public Worker {
 public:
  OwnThread(QtRunLoop& loop, const std::string& name) : mLoop(loop), mName(name) { start(); }

  ~OwnThread() override {
    {
      const std::lock_guard lock(mMutex);
      mIsEnding = true;
    }
    mChanged.notify_one();
    if (mThread.joinable()) mThread.join();
    while (performNext()) {
    }
    *mHere = nullptr;
  }

  void perform(std::function<void()> body) override {
    {
      const std::lock_guard lock(mMutex);
      mWaiting.push_back(std::move(body));
    }
    if (start()) {
      mChanged.notify_one();
      return;
    }
    mLoop.performOnMain([here = mHere] {
      if (*here != nullptr) (*here)->performNext();
    });
  }

 private:
  bool start() {
    if (mThread.joinable()) return true;
    try {
      mThread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
      return false;
    }
    // The system takes 15 bytes.
    pthread_setname_np(mThread.native_handle(), mName.substr(0, 15).c_str());
    return true;
  }

  void run() {
    for (;;) {
      {
        std::unique_lock lock(mMutex);
        mChanged.wait(lock, [this] { return mIsEnding || !mWaiting.empty(); });
        if (mWaiting.empty()) return;
      }
      performNext();
    }
  }

  bool performNext() {
    Private::Body body;
    {
      const std::lock_guard lock(mMutex);
      if (mWaiting.empty()) return false;
      body = std::move(mWaiting.front());
      mWaiting.pop_front();
    }
    mLoop.mPrivate->performOnThread(body);
    return true;
  }

  QtRunLoop& mLoop;
  std::string mName;
  std::mutex mMutex;
  std::condition_variable mChanged;
  std::deque<Private::Body> mWaiting;
  bool mIsEnding = false;
  std::shared_ptr<OwnThread*> mHere = std::make_shared<OwnThread*>(this);
  std::thread mThread;  ///< none where the system had none so far
};

QtRunLoop::QtRunLoop() : mPrivate(std::make_unique<Private>(*this)) {}

QtRunLoop::~QtRunLoop() {
  // A thread may start another before it ends.
  for (;;) {
    mPrivate->reapThreads(true);
    const std::lock_guard lock(mPrivate->mThreadsMutex);
    if (mPrivate->mThreads.empty()) break;
  }
}

RunLoop::TimerId QtRunLoop::performAfter(double delay, std::function<void()> body) {
  Private& my = *mPrivate;
  const TimerId id = ++my.mLastTimer;
  const double date = my.mClock.monotonic() + std::max(delay, 0.0);
  my.mDelayed.emplace(std::pair(date, id), std::move(body));
  my.mDates.emplace(id, date);
  if (my.mDelayTimer == 0 || date < my.mArmedFor) my.armDelayed();
  return id;
}

RunLoop::TimerId QtRunLoop::repeat(double interval, std::function<void()> body) {
  Private& my = *mPrivate;
  const TimerId id = ++my.mLastTimer;
  const double milliseconds = std::clamp(interval * 1000, 1.0, kLongestWait * 1000);
  const int number = my.startTimer(static_cast<int>(std::lround(milliseconds)), Qt::CoarseTimer);
  my.mRepeating.emplace(number, std::make_shared<Private::Body>(std::move(body)));
  my.mRepeatingNumbers.emplace(id, number);
  return id;
}

void QtRunLoop::cancel(TimerId timer) {
  Private& my = *mPrivate;
  if (const auto date = my.mDates.find(timer); date != my.mDates.end()) {
    my.mDelayed.erase({date->second, timer});
    my.mDates.erase(date);
    // A wake-up for nothing is cheaper than arming anew each time.
    return;
  }
  const auto number = my.mRepeatingNumbers.find(timer);
  if (number == my.mRepeatingNumbers.end()) return;
  my.killTimer(number->second);
  my.mRepeating.erase(number->second);
  my.mRepeatingNumbers.erase(number);
}

void QtRunLoop::performOnMain(std::function<void()> body) {
  Private& my = *mPrivate;
  const std::lock_guard lock(my.mPostedMutex);
  my.mPosted.push_back(std::move(body));
  if (std::exchange(my.mWakeIsPosted, true)) return;
  QMetaObject::invokeMethod(
      mPrivate.get(), [&my] { my.performPosted(); }, Qt::QueuedConnection);
}

void QtRunLoop::detachThread(const std::string& name, std::function<void()> body) {
  Private& my = *mPrivate;
  my.reapThreads(false);
  const std::lock_guard lock(my.mThreadsMutex);
  DetachedThread& made = my.mThreads.emplace_back();
  const auto work = std::make_shared<std::function<void()>>(std::move(body));
  try {
    made.thread = std::thread([&made, &my, work] {
      my.performOnThread(*work);
      made.ended = true;
    });
  } catch (const std::system_error&) {
    // The system has no thread now; what was to be done is not lost.
    my.mThreads.pop_back();
    performOnMain([this, name, work] {
      performAfter(kThreadRetry, [this, name, work] { detachThread(name, *work); });
    });
    return;
  }
  // The system takes 15 bytes.
  pthread_setname_np(made.thread.native_handle(), name.substr(0, 15).c_str());
}

std::unique_ptr<RunLoop::Worker> QtRunLoop::worker(const std::string& name) {
  return std::make_unique<OwnThread>(*this, name);
}

int QtRunLoop::run() {
  if (!mPrivate->mQuit) QCoreApplication::exec();
  return std::exchange(mPrivate->mQuit, std::nullopt).value_or(0);
}

bool QtRunLoop::joinThreads(double seconds) {
  Private& my = *mPrivate;
  const double end = my.mClock.monotonic() + seconds;
  for (;;) {
    my.reapThreads(false);
    {
      const std::lock_guard lock(my.mThreadsMutex);
      if (my.mThreads.empty()) return true;
    }
    if (my.mClock.monotonic() >= end) return false;
    my.mClock.sleep(0.01);
  }
}

void QtRunLoop::quit(int code) {
  mPrivate->mQuit = code;
  QCoreApplication::exit(code);
}

DescriptorWatch::WatchId QtRunLoop::watch(int descriptor, Event event, std::function<void()> body) {
  Private& my = *mPrivate;
  const WatchId id = ++my.mLastWatch;
  auto notifier = std::make_unique<QSocketNotifier>(descriptor, typeOf(event));
  const auto shared = std::make_shared<std::function<void()>>(std::move(body));
  QObject::connect(notifier.get(), &QSocketNotifier::activated, notifier.get(), [shared, &my] {
    if (!my.mQuit) my.perform([kept = shared] { (*kept)(); });
  });
  my.mWatches.emplace(id, std::move(notifier));
  return id;
}

void QtRunLoop::unwatch(WatchId watch) {
  Private& my = *mPrivate;
  const auto found = my.mWatches.find(watch);
  if (found == my.mWatches.end()) return;
  found->second->setEnabled(false);
  // It may be the one that is calling back right now.
  my.mRetired.push_back(std::move(found->second));
  my.mWatches.erase(found);
  performOnMain([&my] { my.mRetired.clear(); });
}

struct QtApplication::Own {
  std::string name = "corvana9";
  std::array<char*, 2> words{name.data(), nullptr};
  int count = 1;
  QCoreApplication application{count, words.data()};
};

QtApplication::QtApplication() {
  if (QCoreApplication::instance() != nullptr) return;
  // It complains aloud where the locale is the plain one, and goes on.
  const QtMessageHandler handler =
      qInstallMessageHandler([](QtMsgType, const QMessageLogContext&, const QString&) {});
  mOwn = std::make_unique<Own>();
  qInstallMessageHandler(handler);
  // It has taken over the user's decimal sign; numbers in JSON have a point.
  std::setlocale(LC_NUMERIC, "C");
}

QtApplication::~QtApplication() = default;

}  // namespace corvana
