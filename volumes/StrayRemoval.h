#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Volumes.h"

namespace corvana {

class Volumes;
struct Platform;

/// What lies in the volumes folder and belongs to no mounted volume: left behind when a volume went
/// away uncleanly, it takes the place of a volume that is mounted later. Thread: main.
class VolumesFolder {
 public:
  explicit VolumesFolder(Volumes& volumes) : mVolumes(volumes) {}

  /// Full paths, sorted; nothing when there is none.
  std::optional<std::vector<std::string>> getFaultyFoldersInVolumes() const;
  /// Whether there is no stray folder.
  bool checkVolumesFolder() const { return !getFaultyFoldersInVolumes(); }

  static std::string nameOf(const std::string& path);
  /// The names, separated by ", ".
  static std::string namesOf(const std::vector<std::string>& paths);

 private:
  Volumes& mVolumes;
};

/// Takes stray folders out of the way on a thread of its own, since there may be much in them; one
/// round after the other. Thread: main.
class StrayRemoval {
 public:
  enum class Way {
    aside,   ///< nothing is lost: what is not empty is moved into a hidden folder beside it
    deleted  ///< with all that is in it
  };
  struct Taken {
    std::vector<std::string> deleted;  ///< paths of those that are gone, whole
    std::vector<std::string> aside;    ///< where the others have been moved to
    bool empty() const { return deleted.empty() && aside.empty(); }
  };
  using Done = std::function<void(const Taken& taken)>;

  StrayRemoval(Platform& platform, const VolumesFolder& folder) : m(platform), mFolder(folder) {}
  StrayRemoval(const StrayRemoval&) = delete;
  StrayRemoval& operator=(const StrayRemoval&) = delete;
  /// Nothing more is taken away, and nobody hears of it.
  ~StrayRemoval();

  /// Takes away every folder that is stray when the round begins, of `only` if that is given;
  /// `done` is called in the loop `rest` seconds after the last one. A round that is asked for
  /// while one runs comes after it. Why a folder stays goes to the system log, once until another
  /// one does.
  void run(Way way, double rest, Done done,
           std::optional<std::vector<std::string>> only = std::nullopt);
  bool isRunning() const { return mRound != nullptr; }
  /// How many files and folders have been deleted in the round that runs.
  std::uint64_t countOfGone() const;
  /// The round that runs ends with the next entry.
  void stop();

 private:
  struct Round;
  struct Wish {
    Way way;
    double rest;
    Done done;
    std::optional<std::vector<std::string>> only;
  };

  void begin();
  void end(const Taken& taken, const std::string& failure);

  Platform& m;
  const VolumesFolder& mFolder;
  std::deque<Wish> mWishes;
  std::shared_ptr<Round> mRound;
  std::string mLastFailure;
  std::shared_ptr<int> mAlive = std::make_shared<int>();
};

/// How much is in stray folders, counted on a thread of its own. Thread: main.
class StrayContents {
 public:
  struct Stray {
    std::string path;
    std::optional<Result<Volumes::Contents>> contents = {};  ///< nothing: not counted yet
  };

  explicit StrayContents(Platform& platform) : m(platform) {}
  StrayContents(const StrayContents&) = delete;
  StrayContents& operator=(const StrayContents&) = delete;
  ~StrayContents();

  /// Something is known that was not.
  std::function<void()> onCounted;

  /// Forgets what it knew and counts these.
  void count(const std::vector<std::string>& paths);
  const std::vector<Stray>& strays() const { return mStrays; }

 private:
  struct Round;
  void counted(std::size_t index, const Result<Volumes::Contents>& contents);

  Platform& m;
  std::vector<Stray> mStrays;
  std::shared_ptr<Round> mRound;
};

}  // namespace corvana
