#include "volumes/StrayRemoval.h"

#include <atomic>
#include <utility>

#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Platform.h"
#include "platform/RunLoop.h"
#include "platform/Volumes.h"
#include "volumes/VolumesFolder.h"

namespace corvana {

struct StrayRemoval::Round {
  std::atomic<std::uint64_t> gone{0};
  std::atomic<bool> stops{false};
};

StrayRemoval::~StrayRemoval() { stop(); }

void StrayRemoval::stop() {
  if (mRound) mRound->stops = true;
}

std::uint64_t StrayRemoval::countOfGone() const { return mRound ? mRound->gone.load() : 0; }

void StrayRemoval::run(double rest, Done done) {
  mWishes.push_back({rest, std::move(done)});
  if (!isRunning()) begin();
}

void StrayRemoval::begin() {
  mRound = std::make_shared<Round>();
  auto paths = mFolder.getFaultyFoldersInVolumes().value_or(std::vector<std::string>());
  m.runLoop.detachThread(
      "removeStrayFolders",
      [this, &volumes = m.volumes, &clock = m.clock, &loop = m.runLoop, round = mRound,
       paths = std::move(paths), rest = mWishes.front().rest, alive = std::weak_ptr<int>(mAlive)] {
        std::vector<std::string> removed;
        std::string failure;
        for (const auto& path : paths) {
          // The folder may have become another one, where that name means something else.
          if (path != volumes.volumesFolder() + "/" + VolumesFolder::nameOf(path)) break;
          const std::uint64_t before = round->gone;
          const Outcome outcome =
              volumes.removeFromVolumesFolder(VolumesFolder::nameOf(path), [&](std::uint64_t gone) {
                round->gone = before + gone;
                return !round->stops;
              });
          if (outcome) {
            removed.push_back(path);
          } else {
            failure = outcome.error().text;
          }
          if (round->stops) break;
        }
        if (rest > 0 && !round->stops) clock.sleep(rest);
        loop.performOnMain([this, alive, removed, failure] {
          if (!alive.expired()) end(removed, failure);
        });
      });
}

void StrayRemoval::end(const std::vector<std::string>& removed, const std::string& failure) {
  mRound.reset();
  if (!failure.empty() && failure != mLastFailure) {
    mLastFailure = failure;
    m.systemLog.write("Not deleted: " + failure);
  }
  const Done done = std::move(mWishes.front().done);
  mWishes.pop_front();
  if (!mWishes.empty()) begin();
  if (done) done(removed);
}

}  // namespace corvana
