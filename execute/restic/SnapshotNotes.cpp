#include "execute/restic/SnapshotNotes.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "execute/restic/Snapshots.h"

namespace corvana {

namespace {

constexpr std::size_t kLongestFile = 16 << 20;
constexpr std::string_view kPlace = "place";
constexpr std::string_view kSnapshots = "snapshots";

std::string keyOf(const std::string& snapshot) { return snapshot.substr(0, Snapshot::kShortId); }

std::optional<std::uint64_t> numberOf(const ZAN_Value& value) {
  return value.isNumber() ? std::optional(value.unsignedValue()) : std::nullopt;
}

}  // namespace

SnapshotNotes::SnapshotNotes(std::string file, std::string place)
    : mFile(std::move(file)), mPlace(std::move(place)) {
  const auto text = ZAN_FilesUtils::readBeginning(mFile, kLongestFile);
  const auto value = text ? ZAN_Json::valueWithJson(*text) : Result<ZAN_Value>(text.error());
  if (!value || value->string(kPlace) != mPlace) return;
  mAreKnown = true;
  for (const auto& [id, note] : (*value)[kSnapshots].entries()) {
    if (note.size() == 3)
      mNotes[std::string(id.stringView())] = {note.at(0).doubleValue(), numberOf(note.at(1)),
                                              numberOf(note.at(2))};
  }
}

const SnapshotNotes::Note* SnapshotNotes::of(const std::string& snapshot) const {
  const auto found = mNotes.find(keyOf(snapshot));
  return found == mNotes.end() ? nullptr : &found->second;
}

std::optional<ReferenceTime> SnapshotNotes::newest() const {
  std::optional<ReferenceTime> newest;
  for (const auto& [id, note] : mNotes) newest = std::max(newest.value_or(note.date), note.date);
  return newest;
}

void SnapshotNotes::startAnew() {
  mAreKnown = true;
  mNotes.clear();
  save();
}

void SnapshotNotes::add(const std::string& snapshot, const Note& note) {
  mNotes[keyOf(snapshot)] = note;
  // Beside snapshots that nobody has listed yet it says little.
  if (mAreKnown) save();
}

void SnapshotNotes::update(const std::vector<Snapshot>& snapshots) {
  std::map<std::string, Note> now;
  for (const Snapshot& snapshot : snapshots) {
    const Note* known = of(snapshot.id);
    now[keyOf(snapshot.id)] = {snapshot.date, known ? known->files : std::nullopt,
                               known ? known->bytes : std::nullopt};
  }
  mNotes = std::move(now);
  mAreKnown = true;
  save();
}

void SnapshotNotes::save() const {
  ZAN_Value snapshots = ZAN_Value::dictionary();
  const auto valueOf = [](const std::optional<std::uint64_t>& number) {
    return number ? ZAN_Value(*number) : ZAN_Value();
  };
  for (const auto& [id, note] : mNotes)
    snapshots.setValue(id, ZAN_Value::array({note.date, valueOf(note.files), valueOf(note.bytes)}));
  const ZAN_Value all = ZAN_Value::dictionary({{kPlace, mPlace}, {kSnapshots, snapshots}});
  // Lost or not whole, it is made again from the repository.
  if (const auto text = ZAN_Json::jsonWithValue(all, {.compact = true, .plain = true}))
    (void)ZAN_FileWriter({}).write(mFile, *text, {.attributes = {}, .synchronise = false});
}

}  // namespace corvana
