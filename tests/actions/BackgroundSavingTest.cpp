#include <gtest/gtest.h>

#include <cerrno>
#include <mutex>
#include <thread>
#include <vector>

#include "StoreHome.h"
#include "actions/History.h"

namespace corvana {
namespace {

class BackgroundSaving : public testing::Test, protected StoreHome {
 protected:
  BackgroundSaving() { busy.saveInBackground(machine.runLoop); }

  static ZAN_Value change(int reference) { return ZAN_Value::dictionary({{"Ref", reference}}); }
  /// What another program finds now.
  std::size_t changesOnDisk() { return other.tree().readChangesList().size(); }
  std::size_t logOnDisk() { return History(other).log().readLogList().size(); }

  bool full = false;
  ActionStore busy{machine.clock, machine.machine, machine.systemLog,
                   [this](ZAN_FileWriter::Step step, const std::string&) {
                     return full && step == ZAN_FileWriter::Step::write ? ENOSPC : 0;
                   }};
  History history{busy};
};

TEST_F(BackgroundSaving, WhatWaitsCountsAlreadyAndIsLocked) {
  for (int i = 1; i <= 3; ++i) {
    history.log().addLog(change(i));
    ASSERT_TRUE(busy.tree().appendToChangesList(change(i)));
  }
  EXPECT_EQ(logOnDisk(), 0U);
  EXPECT_EQ(changesOnDisk(), 0U);
  EXPECT_EQ(history.log().readLogList().size(), 3U);
  EXPECT_EQ(busy.tree().readChangesList().size(), 3U);

  const ReferenceTime start = machine.clock.now();
  { const DataFiles::Lock lock = other.tree().lock(); }
  EXPECT_GT(machine.clock.now(), start + 1) << "nobody else may change what waits";
  machine.runLoop.runFor(1);
  EXPECT_EQ(logOnDisk(), 3U);
  EXPECT_EQ(changesOnDisk(), 3U);

  const ReferenceTime written = machine.clock.now();
  ASSERT_TRUE(other.tree().appendToChangesList(change(4)));
  EXPECT_EQ(machine.clock.now(), written) << "the lock was given back";
  EXPECT_EQ(busy.tree().readChangesList().size(), 4U);
}

TEST_F(BackgroundSaving, MergedChangesAreGoneAtOnce) {
  history.log().addLog(change(1));
  ASSERT_TRUE(busy.tree().appendToChangesList(change(1)));
  ASSERT_TRUE(busy.tree().saveChangesList(ZAN_Value::array()));
  EXPECT_EQ(changesOnDisk(), 0U);
  EXPECT_EQ(logOnDisk(), 0U) << "other files wait their turn";
  machine.runLoop.runFor(1);
  EXPECT_EQ(changesOnDisk(), 0U) << "the earlier writing must not come after";
}

TEST_F(BackgroundSaving, NothingIsLostWhenTheProgramEnds) {
  history.log().addLog(change(1));
  busy.finishSaving();
  EXPECT_EQ(logOnDisk(), 1U);
  {
    ActionStore ending(machine.clock, machine.machine, machine.systemLog);
    ending.saveInBackground(machine.runLoop, 10);
    ASSERT_TRUE(ending.tree().appendToChangesList(change(2)));
    machine.runLoop.runFor(9);
    EXPECT_EQ(changesOnDisk(), 0U);
  }
  EXPECT_EQ(changesOnDisk(), 1U);
  machine.runLoop.runFor(1);
}

TEST_F(BackgroundSaving, WhatAFullDiskRefusedIsWrittenLater) {
  full = true;
  history.log().addLog(change(1));
  ASSERT_TRUE(busy.tree().appendToChangesList(change(1)));
  machine.runLoop.runFor(1);
  EXPECT_EQ(logged("Unable saving data in file " + path(DataFolder::kLog)), 1U);
  full = false;
  history.log().addLog(change(2));
  ASSERT_TRUE(busy.tree().appendToChangesList(change(2)));
  machine.runLoop.runFor(1);
  EXPECT_EQ(logOnDisk(), 2U);
  EXPECT_EQ(changesOnDisk(), 2U);
}

/// Threads that really run at the same time; the main thread's part is done by `performWaiting`.
class ThreadLoop final : public RunLoop {
 public:
  ~ThreadLoop() override {
    for (std::thread& thread : mThreads) thread.join();
  }
  TimerId performAfter(double, std::function<void()>) override { return 1; }
  TimerId repeat(double, std::function<void()>) override { return 1; }
  void cancel(TimerId) override {}
  int run() override { return 0; }
  void quit(int) override {}
  void performOnMain(std::function<void()> body) override {
    const std::lock_guard guard(mMutex);
    mWaiting.push_back(std::move(body));
  }
  void detachThread(const std::string&, std::function<void()> body) override {
    mThreads.emplace_back(std::move(body));
  }
  void performWaiting() {
    std::vector<std::function<void()>> waiting;
    {
      const std::lock_guard guard(mMutex);
      waiting.swap(mWaiting);
    }
    for (const auto& body : waiting) body();
  }

 private:
  std::mutex mMutex;
  std::vector<std::function<void()>> mWaiting;
  std::vector<std::thread> mThreads;
};

TEST_F(BackgroundSaving, ThreadAndMainThreadKeepTheOrder) {
  ThreadLoop loop;
  int done = 0;
  {
    FileSaver saver(ZAN_FileWriter(machine.folder.at("hidden")), loop);
    const auto save = [&](int number) {
      const std::string bytes = std::to_string(number);
      const auto view = std::as_bytes(std::span(bytes));
      saver.save({.path = machine.folder.at("file"),
                  .bytes = {view.begin(), view.end()},
                  .options = {.attributes = {}, .synchronise = false}},
                 [&done, number](const Outcome& outcome) {
                   EXPECT_TRUE(outcome);
                   EXPECT_EQ(done++, number) << "in the order of the calls";
                 });
    };
    for (int number = 0; number < 600; ++number) {
      save(number);
      if (number % 97 == 0) {
        saver.finish();
        EXPECT_EQ(text(machine.folder.at("file")), std::to_string(number));
      }
      if (number % 5 == 0) loop.performWaiting();
    }
  }
  EXPECT_EQ(done, 600);
  EXPECT_EQ(text(machine.folder.at("file")), "599");
  loop.performWaiting();
}

}  // namespace
}  // namespace corvana
