#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace corvana {

class VolumesFolder;
struct Platform;

/// Deletes stray folders on a thread of its own, since there may be much in them; one round after
/// the other. Thread: main.
class StrayRemoval {
 public:
  /// Paths of those that went whole.
  using Done = std::function<void(const std::vector<std::string>& removed)>;

  StrayRemoval(Platform& platform, const VolumesFolder& folder) : m(platform), mFolder(folder) {}
  StrayRemoval(const StrayRemoval&) = delete;
  StrayRemoval& operator=(const StrayRemoval&) = delete;
  /// Nothing more is deleted, and nobody hears of it.
  ~StrayRemoval();

  /// Deletes every folder that is stray when the round begins; `done` is called in the loop `rest`
  /// seconds after the last one. A round that is asked for while one runs comes after it. Why a
  /// folder stays goes to the system log, once until another one does.
  void run(double rest, Done done);
  bool isRunning() const { return mRound != nullptr; }
  /// How many files and folders have gone in the round that runs.
  std::uint64_t countOfGone() const;
  /// The round that runs ends with the next entry.
  void stop();

 private:
  struct Round;
  struct Wish {
    double rest;
    Done done;
  };

  void begin();
  void end(const std::vector<std::string>& removed, const std::string& failure);

  Platform& m;
  const VolumesFolder& mFolder;
  std::deque<Wish> mWishes;
  std::shared_ptr<Round> mRound;
  std::string mLastFailure;
  std::shared_ptr<int> mAlive = std::make_shared<int>();
};

}  // namespace corvana
