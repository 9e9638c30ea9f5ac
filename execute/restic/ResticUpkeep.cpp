#include "execute/restic/ResticUpkeep.h"

#include <algorithm>
#include <string_view>
#include <utility>

#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kWeek = 7 * 86400.0;
using Kind = ResticEnd::Kind;

/// Of snapshots, oldest first, those that need not be kept.
template <class Snapshots>
std::vector<std::size_t> superfluousOf(const Snapshots& snapshots, const VersionsKept& kept,
                                       ReferenceTime now) {
  std::vector<ReferenceTime> dates;
  for (const auto& snapshot : snapshots) dates.push_back(snapshot.date);
  return kept.superfluous(dates, now);
}

}  // namespace

std::optional<ResticEnd> ResticUpkeep::call(std::vector<std::string> words) {
  ResticEnd end = m.restic.call({.words = std::move(words), .patienceForLocks = 0});
  if (end.kind == Kind::locked || end.kind == Kind::stopped) return std::nullopt;
  return end;
}

Outcome ResticUpkeep::forget(SnapshotNotes& notes) {
  if (const Outcome thinned = thin(VersionsKept::fromSettings(m.order.settings), notes); !thinned)
    return thinned;
  return prune();
}

Outcome ResticUpkeep::thin(const VersionsKept& kept, SnapshotNotes& notes) {
  const ReferenceTime now = m.host.store.clock().now();
  if (notes.areKnown()) {
    std::vector<SnapshotNotes::Note> known;
    for (const auto& [id, note] : notes.all()) known.push_back(note);
    std::ranges::sort(known, {}, &SnapshotNotes::Note::date);
    if (superfluousOf(known, kept, now).empty()) return {};
  }
  // What the repository has decides, not what was known of it.
  auto snapshots = m.snapshots();
  if (!snapshots)
    return m.host.control.stopReason() == StopReason::none ? snapshots.error() : Outcome();
  const auto gone = superfluousOf(*snapshots, kept, now);
  if (!gone.empty()) {
    std::vector<std::string> words{"forget"};
    for (const std::size_t index : gone) words.push_back((*snapshots)[index].id);
    const auto end = call(std::move(words));
    if (!end) return {};
    if (!end->isDone()) return end->error(m.place());
    for (auto index = gone.rbegin(); index != gone.rend(); ++index)
      snapshots->erase(snapshots->begin() + static_cast<std::ptrdiff_t>(*index));
  }
  notes.update(*snapshots);
  return {};
}

Outcome ResticUpkeep::prune() {
  const ReferenceTime now = m.host.store.clock().now();
  const auto last = m.order.settings[RepositoryKey::pruned].asDate();
  const auto note = [&] {
    if (auto* action = m.host.tree.rootItem().actionForReference(m.reference()))
      action->addInChangesList(ZAN_Value::date(now), RepositoryKey::pruned);
  };
  // The week counts from the first run on, in which there is nothing to prune.
  if (!last || now < *last) {
    note();
    return {};
  }
  if (now - *last < kWeek) return {};
  const auto end = call({"prune"});
  if (!end) return {};
  if (!end->isDone()) return end->error(m.place());
  note();
  return {};
}

Outcome ResticUpkeep::check(const VerifiedShare& share, const TaskHooks& hooks,
                            VerifiedCounts& verified) {
  hooks.inAll(0, 0);
  verified.unit = "pack";
  std::vector<std::string> damages;
  // More parts than restic takes read too much rather than too little.
  constexpr std::uint32_t kMostParts = 256;
  const std::uint32_t parts = std::min(share.parts, kMostParts);
  const std::string place = m.place();
  const ResticEnd end = m.restic.call(
      {.words = {"check", "--read-data-subset",
                 std::to_string(share.part % parts + 1) + "/" + std::to_string(parts)},
       .onLine =
           [&](std::string_view line) {
             // "[0:01] 100.00%  4 / 4 packs"
             const auto slash = line.find(" / ");
             if (line.starts_with('[') && line.ends_with(" packs") && slash != line.npos) {
               const auto start = line.rfind(' ', slash - 1) + 1;
               verified.files = std::strtoull(std::string(line.substr(start)).c_str(), nullptr, 10);
             }
             hooks.goesOn(place, verified.files, 0);
           },
       .onErrorLine =
           [&](std::string_view line) {
             if (line.find("error") != line.npos || line.find("does not match") != line.npos ||
                 line.find("Pack") != line.npos)
               damages.emplace_back(line);
           },
       .onWait =
           [&](const std::string& whose) { hooks.goesOn(place + ": locked by " + whose, 0, 0); }});
  if (end.isDone() || m.host.control.stopReason() != StopReason::none) return {};
  if (end.kind != Kind::damaged) return end.error(place);
  std::erase_if(damages, [](const std::string& line) {
    return line.find("repository contains errors") != std::string::npos;
  });
  if (damages.empty()) damages.push_back(end.text);
  verified.mismatches = damages.size();
  for (const auto& damage : damages) hooks.failed(place + ": " + damage);
  return {};
}

}  // namespace corvana
