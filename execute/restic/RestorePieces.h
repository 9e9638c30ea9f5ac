#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "execute/engine/VersionTree.h"

namespace corvana {

/// Cuts what is to be fetched, where there is no room for all of it at once, into pieces: whole
/// folders as far as they fit, and of larger ones what lies in them.
class RestorePieces {
 public:
  /// `room`: bytes that are there for one fetch; `mostNames`: of one fetch.
  RestorePieces(std::uint64_t room, std::size_t mostNames) : mRoom(room), mMostNames(mostNames) {}
  /// In the order of a VersionTree.
  void add(const VersionItem& item);
  /// Names that are fetched together, when all were added.
  std::vector<std::vector<std::string>> fetches();
  /// The folders that are no piece of their own, each before those in it.
  const std::vector<VersionItem>& divided();

 private:
  using Piece = std::pair<std::string, std::uint64_t>;
  struct Open {
    VersionItem folder;
    std::vector<Piece> inner;
  };
  void take(Piece piece);
  void close();

  std::uint64_t mRoom;
  std::size_t mMostNames;
  std::vector<Open> mOpen;
  std::vector<Piece> mPieces;
  std::vector<VersionItem> mDivided;
};

/// Folders without what lies in them, as restic's list has them; it knows no extended attributes,
/// so that they keep those that they have.
class DividedFolders final : public VersionTree {
 public:
  /// All of it outlives the tree. `placeOf`: where in the target's folder a name belongs.
  DividedFolders(const std::vector<VersionItem>& folders, const HeldFolder& target,
                 std::function<std::string(const std::string&)> placeOf)
      : mFolders(folders), mTarget(target), mPlaceOf(std::move(placeOf)) {}
  using VersionTree::forEach;
  Outcome forEach(const std::string& name, const std::function<bool(const Entry&)>& each,
                  const std::function<void(const std::string&)>& unreadable) const override;

 private:
  const std::vector<VersionItem>& mFolders;
  const HeldFolder& mTarget;
  std::function<std::string(const std::string&)> mPlaceOf;
};

}  // namespace corvana
