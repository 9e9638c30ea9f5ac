#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

struct Snapshot;

/// What is known of an action's snapshots without opening the repository, which costs half a second
/// of the processor: a file in the hidden folder. It may be behind the repository, and is brought
/// up to date with each list of it. A file that is lost or of another repository says nothing.
class SnapshotNotes {
 public:
  struct Note {
    ReferenceTime date = 0;
    std::optional<std::uint64_t> files = {};  ///< nothing: not known
    std::optional<std::uint64_t> bytes = {};
  };

  SnapshotNotes(std::string file, std::string place);

  /// Whether anything is known; else there may be snapshots all the same.
  bool areKnown() const { return mAreKnown; }
  /// By the first eight letters of the snapshot's name.
  const std::map<std::string, Note>& all() const { return mNotes; }
  const Note* of(const std::string& snapshot) const;
  std::optional<ReferenceTime> newest() const;

  /// There is a new repository, without snapshots. This and what follows is stored.
  void startAnew();
  void add(const std::string& snapshot, const Note& note);
  /// All that there are now.
  void update(const std::vector<Snapshot>& snapshots);

 private:
  void save() const;

  std::string mFile;
  std::string mPlace;
  bool mAreKnown = false;
  std::map<std::string, Note> mNotes;
};

}  // namespace corvana
