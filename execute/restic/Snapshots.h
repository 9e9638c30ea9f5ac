#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "execute/engine/VersionTree.h"
#include "execute/restic/Restic.h"

namespace corvana {

/// What the snapshots of actions are tagged with.
namespace SnapshotTag {
inline constexpr std::string_view own = "corvana9";
inline constexpr std::string_view action = "action=";
inline constexpr std::string_view machine = "machine=";
inline constexpr std::string_view home = "home=";
inline constexpr std::string_view file = "file=";  ///< the source of that number is no folder
/// Commas are between tags.
std::string word(std::string text);
}  // namespace SnapshotTag

/// A snapshot, as restic tells of it.
struct Snapshot {
  static constexpr std::size_t kShortId = 8;
  std::string id;
  ReferenceTime date = 0;
  std::string host = {};
  std::string user = {};
  std::vector<std::string> paths = {};
  std::vector<std::string> tags = {};

  /// All of a repository, or with tags those that have each of them; oldest first.
  static Result<std::vector<Snapshot>> all(Restic& restic, const std::string& tags);
  /// The rest of the tag that begins so.
  std::optional<std::string> tagged(std::string_view prefix) const;
  static std::string fileTag(std::size_t path);
  bool isFile(std::size_t path) const;
  /// "2026-11-22T11:19:21.951716893+01:00".
  static std::optional<ReferenceTime> dateFrom(std::string_view text);
};

/// An item as restic's JSON has it; `name` is its path without the first slash.
std::optional<VersionItem> resticItem(const ZAN_Value& node);

/// What a snapshot has, as restic lists it: without contents, targets of links and extended
/// attributes.
class SnapshotTree final : public VersionTree {
 public:
  SnapshotTree(Restic& restic, const Snapshot& snapshot) : mRestic(restic), mSnapshot(snapshot) {}
  using VersionTree::forEach;
  Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                  const std::function<void(const std::string&)>& unreadable) const override;
  /// All that lies under one of these names.
  Outcome forEachOf(const std::vector<std::string>& names,
                    const std::function<bool(const Entry&)>& each) const;

 private:
  Restic& mRestic;
  Snapshot mSnapshot;
};

}  // namespace corvana
