#include "platform/linux/ProgramWatch.h"

#include <sys/inotify.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <utility>

namespace corvana {

namespace {

/// A program that is being started takes its name a moment after its file was opened.
constexpr double kFirstLook = 0.2;
/// On a busy machine it takes longer.
constexpr double kSecondLook = 2.0;
constexpr double kWithoutEvents = 5.0;

constexpr std::uint32_t kStructure = IN_CREATE | IN_MOVE | IN_ONLYDIR | IN_MASK_ADD;

timespec timespecOf(double seconds) {
  const double whole = std::floor(seconds);
  return {static_cast<time_t>(whole), static_cast<long>((seconds - whole) * 1e9)};
}

}  // namespace

void ProgramWatch::observe(std::vector<std::string> bundlePaths, std::function<void()> changed) {
  stop();
  mBundlePaths = std::move(bundlePaths);
  mChanged = std::move(changed);
  mTimer = ZAN_Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK));
  if (!mTimer) return;
  mWatchingTimer =
      mLoop.watch(mTimer.get(), DescriptorWatch::Event::readable, [this] { timerRang(); });
  mFiles = ZAN_Descriptor(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
  if (!mFiles) {
    setTimer(kWithoutEvents, kWithoutEvents);
    return;
  }
  mWatchingFiles =
      mLoop.watch(mFiles.get(), DescriptorWatch::Event::readable, [this] { somethingHappened(); });
  watchFolders();
}

void ProgramWatch::stop() {
  mLoop.unwatch(std::exchange(mWatchingFiles, 0));
  mLoop.unwatch(std::exchange(mWatchingTimer, 0));
  mFiles.close();
  mTimer.close();
  mLooks = 0;
}

/// From the folder that holds the bundle, or the nearest one above that is there, down to the
/// folder of its programs, since any of them may come, go or be replaced.
void ProgramWatch::watchFolders() const {
  namespace fs = std::filesystem;
  const auto watch = [this](const fs::path& folder, std::uint32_t mask) {
    return inotify_add_watch(mFiles.get(), folder.c_str(), kStructure | mask) >= 0;
  };
  for (const fs::path bundle : mBundlePaths) {
    fs::path above = bundle.parent_path();
    while (!watch(above, 0) && above.has_relative_path()) above = above.parent_path();
    const fs::path contents = bundle / "Contents";
    // What appears meanwhile lies in a folder that is watched already.
    watch(bundle, 0);
    watch(contents, 0);
    watch(contents / "MacOS", IN_OPEN | IN_CLOSE);
  }
}

void ProgramWatch::somethingHappened() {
  std::array<char, 4096> events{};
  while (read(mFiles.get(), events.data(), events.size()) > 0) {
  }
  watchFolders();
  if (mLooks == 2) return;
  mLooks = 2;
  setTimer(kFirstLook, kSecondLook);
}

void ProgramWatch::timerRang() {
  std::uint64_t times = 0;
  if (read(mTimer.get(), &times, sizeof times) < 0) return;
  if (mFiles && --mLooks == 0) setTimer(0, 0);
  const auto changed = mChanged;
  if (changed) changed();
}

void ProgramWatch::setTimer(double first, double then) {
  const itimerspec spec{timespecOf(then), timespecOf(first)};
  timerfd_settime(mTimer.get(), 0, &spec, nullptr);
}

}  // namespace corvana
