#include "ZANCocoaFramework/ZAN_ZoneTable.h"

#include <absl/time/civil_time.h>
#include <absl/time/time.h>

#include <string>

namespace corvana {

namespace {

absl::CivilSecond civilOf(std::int64_t seconds) { return absl::CivilSecond() + seconds; }

std::int64_t floorDay(std::int64_t civil) { return (civil >= 0 ? civil : civil - 86399) / 86400; }

}  // namespace

struct ZAN_ZoneTable::Zone {
  absl::TimeZone zone = absl::UTCTimeZone();
};

ZAN_ZoneTable::ZAN_ZoneTable(std::string_view name) {
  auto zone = std::make_unique<Zone>();
  if (!name.empty() && name.size() < 256 && name.find('\0') == std::string_view::npos) {
    mIsKnown = absl::LoadTimeZone(std::string(name), &zone->zone);
    if (!mIsKnown) zone->zone = absl::UTCTimeZone();
  }
  mZone = std::move(zone);
  readSpans();
}

ZAN_ZoneTable::~ZAN_ZoneTable() = default;

void ZAN_ZoneTable::readSpans() {
  const absl::TimeZone& zone = mZone->zone;
  const auto offsetAfter = [&](absl::Time instant) { return zone.At(instant).offset; };
  absl::Time from = absl::InfinitePast();
  // The zone's files begin with its local mean time, which holds back to the beginning.
  int offset = offsetAfter(absl::FromUnixSeconds(std::numeric_limits<std::int64_t>::min() / 4));
  absl::TimeZone::CivilTransition change;
  while (zone.NextTransition(from, &change)) {
    const absl::CivilSecond seen = change.to < change.from ? change.to : change.from;
    const std::int64_t instant = absl::ToUnixSeconds(zone.At(seen).trans);
    if (absl::FromUnixSeconds(instant) <= from || instant >= kEnd) break;
    from = absl::FromUnixSeconds(instant);
    const int next = offsetAfter(from);
    if (next == offset) continue;
    mSpans.push_back({instant, instant + offset, offset});
    const std::int64_t before = floorDay(instant + offset - 1);
    const std::int64_t after = floorDay(instant + next);
    for (std::int64_t day = before + 1; day < after; ++day) mSkippedDays.push_back(day);
    offset = next;
  }
  mSpans.push_back({kNever, kNever, offset});

  std::size_t span = 0;
  for (std::size_t bucket = 0; bucket < kBuckets; ++bucket) {
    const std::int64_t start = kBegin + (static_cast<std::int64_t>(bucket) << kBucketBits);
    while (start >= mSpans[span].end) ++span;
    mFirstOfBucket[bucket] = static_cast<std::uint16_t>(span);
  }
}

ZAN_ZoneTable::Clock ZAN_ZoneTable::find(std::int64_t civil) const {
  if (civil >= kEnd - kOffsetMargin) {
    const absl::TimeZone::TimeInfo info = mZone->zone.At(civilOf(civil));
    return {absl::ToUnixSeconds(info.pre), info.kind == absl::TimeZone::TimeInfo::SKIPPED,
            absl::ToUnixSeconds(info.trans)};
  }
  std::size_t i = indexFrom(civil - kOffsetMargin);
  while (civil >= mSpans[i].civilEnd) ++i;
  const std::int64_t instant = civil - mSpans[i].offset;
  if (i == 0 || instant >= mSpans[i - 1].end) return {instant, false, 0};
  return {civil - mSpans[i - 1].offset, true, mSpans[i - 1].end};
}

std::int64_t ZAN_ZoneTable::instantOf(std::int64_t civil) const { return find(civil).instant; }

std::int64_t ZAN_ZoneTable::firstInstantOfDay(std::int64_t dayNumber) const {
  const Clock clock = find(dayNumber * 86400);
  return clock.isSkipped ? clock.change : clock.instant;
}

int ZAN_ZoneTable::laterOffset(std::int64_t instant) const {
  return mZone->zone.At(absl::FromUnixSeconds(instant)).offset;
}

}  // namespace corvana
