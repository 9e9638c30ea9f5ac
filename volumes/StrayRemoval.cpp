#include "volumes/StrayRemoval.h"

#include <algorithm>
#include <atomic>
#include <set>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/Platform.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

std::string VolumesFolder::nameOf(const std::string& path) {
  return path.substr(path.rfind('/') + 1);
}

std::string VolumesFolder::namesOf(const std::vector<std::string>& paths) {
  std::string text;
  for (const auto& path : paths) text += (text.empty() ? "" : ", ") + nameOf(path);
  return text;
}

std::optional<std::vector<std::string>> VolumesFolder::getFaultyFoldersInVolumes() const {
  std::vector<std::string> contents = mVolumes.volumesFolderContents();
  if (contents.empty()) return std::nullopt;
  const std::string folder = mVolumes.volumesFolder();
  std::set<std::string> mounted;
  for (const auto& mount : mVolumes.mounts()) {
    if (mount.target == "/") {
      mounted.insert(VolumeReference::nameOf(mount, mVolumes.information(mount)));
    } else if (const auto place = ZAN_FilesUtils::relativePath(mount.target, folder)) {
      mounted.emplace(place->substr(0, place->find('/')));
    }
  }
  std::vector<std::string> faulty;
  for (const auto& name : contents) {
    if (name == "Preboot" || name.starts_with("com.apple.TimeMachine.") || name.starts_with(".") ||
        mounted.contains(name))
      continue;
    faulty.push_back(folder + "/" + name);
  }
  if (faulty.empty()) return std::nullopt;
  return faulty;
}

struct StrayRemoval::Round {
  std::atomic<std::uint64_t> gone{0};
  std::atomic<bool> stops{false};
};

StrayRemoval::~StrayRemoval() { stop(); }

void StrayRemoval::stop() {
  if (mRound) mRound->stops = true;
}

std::uint64_t StrayRemoval::countOfGone() const { return mRound ? mRound->gone.load() : 0; }

void StrayRemoval::run(Way way, double rest, Done done,
                       std::optional<std::vector<std::string>> only) {
  mWishes.push_back({way, rest, std::move(done), std::move(only)});
  if (!isRunning()) begin();
}

void StrayRemoval::begin() {
  mRound = std::make_shared<Round>();
  const Wish& wish = mWishes.front();
  auto paths = mFolder.getFaultyFoldersInVolumes().value_or(std::vector<std::string>());
  if (wish.only) {
    std::erase_if(paths, [&](const std::string& path) {
      return std::ranges::find(*wish.only, path) == wish.only->end();
    });
  }
  m.runLoop.detachThread("removeStrayFolders", [this, &volumes = m.volumes, &clock = m.clock,
                                                &loop = m.runLoop, round = mRound,
                                                paths = std::move(paths), way = wish.way,
                                                rest = wish.rest,
                                                alive = std::weak_ptr<int>(mAlive)] {
    Taken taken;
    std::string failure;
    for (const auto& path : paths) {
      const std::string name = VolumesFolder::nameOf(path);
      // The folder may have become another one, where that name means something else.
      if (path != volumes.volumesFolder() + "/" + name) break;
      if (way == Way::aside) {
        const Result<std::string> moved = volumes.moveAsideInVolumesFolder(name);
        if (!moved) {
          failure = moved.error().text;
        } else {
          (moved->empty() ? taken.deleted : taken.aside).push_back(moved->empty() ? path : *moved);
        }
      } else {
        const std::uint64_t before = round->gone;
        const Outcome outcome = volumes.removeFromVolumesFolder(name, [&](std::uint64_t gone) {
          round->gone = before + gone;
          return !round->stops;
        });
        if (outcome) {
          taken.deleted.push_back(path);
        } else {
          failure = outcome.error().text;
        }
      }
      if (round->stops) break;
    }
    if (rest > 0 && !round->stops) clock.sleep(rest);
    loop.performOnMain([this, alive, taken, failure] {
      if (!alive.expired()) end(taken, failure);
    });
  });
}

void StrayRemoval::end(const Taken& taken, const std::string& failure) {
  mRound.reset();
  if (!failure.empty() && failure != mLastFailure) {
    mLastFailure = failure;
    m.systemLog.write("Not taken out of the volumes folder: " + failure);
  }
  const Done done = std::move(mWishes.front().done);
  mWishes.pop_front();
  if (!mWishes.empty()) begin();
  if (done) done(taken);
}

/// Known to the thread, and gone or stopped when its results are of no use any more.
struct StrayContents::Round {
  std::atomic<bool> stops{false};
};

StrayContents::~StrayContents() {
  if (mRound) mRound->stops = true;
}

void StrayContents::count(const std::vector<std::string>& paths) {
  if (mRound) mRound->stops = true;
  mRound = std::make_shared<Round>();
  mStrays.clear();
  for (const std::string& path : paths) mStrays.push_back({.path = path});
  m.runLoop.detachThread(
      "countStrayFolders", [this, &volumes = m.volumes, &loop = m.runLoop, round = mRound, paths] {
        for (std::size_t i = 0; i < paths.size() && !round->stops; ++i) {
          const auto contents = volumes.measureInVolumesFolder(
              VolumesFolder::nameOf(paths[i]), [&](std::uint64_t) { return !round->stops; });
          loop.performOnMain([this, round, i, contents] {
            if (!round->stops) counted(i, contents);
          });
        }
      });
}

void StrayContents::counted(std::size_t index, const Result<Volumes::Contents>& contents) {
  mStrays[index].contents = contents;
  if (onCounted) onCounted();
}

}  // namespace corvana
