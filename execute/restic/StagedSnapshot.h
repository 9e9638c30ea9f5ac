#pragma once

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "execute/engine/VersionTree.h"
#include "execute/restic/Restic.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

/// What restic has brought back of a snapshot, less what it could not, in a folder made for that:
/// it would write over newer work. The folder goes with this object. Thread: one.
class StagedSnapshot final : public VersionTree {
 public:
  /// One that could not be removed is no part of copies.
  static constexpr const char* kFolder = ".corvana9-restored";

  /// An empty one in that folder, which outlives it.
  static Result<StagedSnapshot> in(const HeldFolder& parent);
  StagedSnapshot(StagedSnapshot&& other) noexcept;
  StagedSnapshot& operator=(StagedSnapshot&&) = delete;
  ~StagedSnapshot() override;

  /// What could not be read whole is told to `failed`, and is no item; when the end is not a good
  /// one it is open what is.
  ResticEnd fetch(Restic& restic, const Snapshot& snapshot, const std::vector<std::string>& names,
                  const std::function<void(std::string text)>& failed);
  const HeldFolder& folder() const { return mFolder; }
  bool isGood(const std::string& name) const;

  using VersionTree::forEach;
  Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                  const std::function<void(const std::string&)>& unreadable) const override;

 private:
  StagedSnapshot(const HeldFolder& parent, HeldFolder folder)
      : mParent(&parent), mFolder(std::move(folder)) {}
  std::string inWords(const std::string& path, std::string_view line) const;

  const HeldFolder* mParent;
  HeldFolder mFolder;
  std::set<std::string> mFailed;  ///< names
};

}  // namespace corvana
