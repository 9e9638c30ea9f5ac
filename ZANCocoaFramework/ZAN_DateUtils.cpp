#include "ZANCocoaFramework/ZAN_DateUtils.h"

#include <absl/strings/string_view.h>
#include <absl/time/civil_time.h>
#include <absl/time/time.h>

#include <cmath>
#include <cstdlib>
#include <filesystem>

#include <QLocale>

namespace corvana {

ZAN_RegionDates::ZAN_RegionDates(std::string_view regionName) {
  const std::string_view name = regionName.substr(0, regionName.find_first_of(".@"));
  if (name.empty() || name == "C" || name == "POSIX") return;
  auto locale =
      std::make_unique<QLocale>(QString::fromUtf8(name.data(), static_cast<int>(name.size())));
  if (locale->language() == QLocale::C) return;
  mWeeksBeginOnMonday = locale->firstDayOfWeek() == Qt::Monday;
  mLocale = std::move(locale);
}

ZAN_RegionDates::~ZAN_RegionDates() = default;

std::string ZAN_RegionDates::weekdayName(int weekday) const {
  if (weekday < 1 || weekday > 7) return {};
  const QLocale& locale = mLocale ? *mLocale : QLocale::c();
  return locale.standaloneDayName(weekday == 1 ? 7 : weekday - 1).toStdString();
}

std::string ZAN_RegionDates::monthName(int month) const {
  if (month < 1 || month > 12) return {};
  return (mLocale ? *mLocale : QLocale::c()).standaloneMonthName(month).toStdString();
}

std::string ZAN_RegionDates::format(std::int64_t instant, int utcOffset,
                                    std::string_view pattern) const {
  return absl::FormatTime(absl::string_view(pattern.data(), pattern.size()),
                          absl::FromUnixSeconds(instant), absl::FixedTimeZone(utcOffset));
}

namespace {

constexpr std::int64_t kDay = 86400;
constexpr std::int64_t kFarthestDay = 12'000'000;
constexpr std::int64_t kMaxSeconds = 2'000'000'000'000;  ///< of a count of clock seconds
constexpr auto kEpoch = static_cast<std::int64_t>(kReferenceEpochInUnixTime);

double held(ReferenceTime date) {
  if (std::isnan(date)) return 0;
  return std::clamp(date, -ZAN_DateUtils::kFarthest, ZAN_DateUtils::kFarthest);
}
std::int64_t unixSeconds(ReferenceTime date) {
  return static_cast<std::int64_t>(std::floor(held(date))) + kEpoch;
}
ReferenceTime referenceTime(std::int64_t unixTime) {
  return static_cast<double>(unixTime - kEpoch);
}

std::int64_t floorDay(std::int64_t civil) {
  return (civil >= 0 ? civil : civil - (kDay - 1)) / kDay;
}

int dayOfYear(std::int64_t dayNumber) {
  const ZAN_CivilDay day = ZAN_CivilDay::ofNumber(dayNumber);
  return static_cast<int>(dayNumber - ZAN_CivilDay{day.year, 1, 1}.number()) + 1;
}

std::string environmentVariable(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr ? value : "";
}

}  // namespace

struct ZAN_DateUtils::Calendar {
  Calendar(std::string_view zone, std::string_view regionName)
      : zoneName(zone), regionName(regionName), table(zone), region(regionName) {}

  std::int64_t civil(ReferenceTime date) const {
    const std::int64_t instant = unixSeconds(date);
    return instant + table.offsetAt(instant);
  }
  std::int64_t day(ReferenceTime date) const { return floorDay(civil(date)); }

  std::string zoneName;
  std::string regionName;
  ZAN_ZoneTable table;
  ZAN_RegionDates region;
};

ZAN_DateUtils::ZAN_DateUtils(std::string_view zoneName, std::string_view regionName)
    : mCalendar(std::make_shared<const Calendar>(zoneName, regionName)) {}
ZAN_DateUtils::~ZAN_DateUtils() = default;
ZAN_DateUtils::ZAN_DateUtils(const ZAN_DateUtils&) = default;
ZAN_DateUtils& ZAN_DateUtils::operator=(const ZAN_DateUtils&) = default;

const std::string& ZAN_DateUtils::zoneName() const { return mCalendar->zoneName; }
const std::string& ZAN_DateUtils::regionName() const { return mCalendar->regionName; }
bool ZAN_DateUtils::isKnownZone() const { return mCalendar->table.isKnown(); }

std::string ZAN_DateUtils::systemZoneName(const std::string& localTime) {
  constexpr std::string_view folder = "zoneinfo/";
  const auto inFolder = [&](const std::string& path) {
    const auto at = path.rfind(folder);
    return at == std::string::npos ? std::string() : path.substr(at + folder.size());
  };
  if (const char* variable = std::getenv("TZ"); variable != nullptr) {
    std::string name = *variable == ':' ? variable + 1 : variable;
    if (const std::string inside = inFolder(name); !inside.empty()) name = inside;
    return name.empty() ? "UTC" : name;
  }
  std::error_code error;
  const std::string target = std::filesystem::read_symlink(localTime, error).string();
  const std::string name = error ? std::string() : inFolder(target);
  return name.empty() ? "UTC" : name;
}

std::string ZAN_DateUtils::systemRegionName() {
  for (const char* name : {"LC_ALL", "LC_TIME"}) {
    if (std::string value = environmentVariable(name); !value.empty()) return value;
  }
  std::string general = environmentVariable("LANG");
  if (!general.empty() && general != "POSIX" && general.substr(0, general.find('.')) != "C")
    return general;
  std::string words = environmentVariable("LC_MESSAGES");
  return words.empty() ? "C" : words;
}

ReferenceTime ZAN_DateUtils::dayAt0h00(ReferenceTime date) const {
  return firstInstantOfDay(mCalendar->day(date));
}

ReferenceTime ZAN_DateUtils::dayAt0Seconds(ReferenceTime date) const {
  const std::int64_t instant = unixSeconds(date);
  const std::int64_t civil = instant + mCalendar->table.offsetAt(instant);
  const std::int64_t seconds = civil % 60;
  return referenceTime(instant - (seconds >= 0 ? seconds : seconds + 60));
}

ReferenceTime ZAN_DateUtils::nextDay(ReferenceTime date) const {
  std::int64_t day = mCalendar->day(date) + 1;
  while (mCalendar->table.nextSkippedDay(day) == day) ++day;
  return firstInstantOfDay(day);
}

int ZAN_DateUtils::secondsInDay(ReferenceTime date) const {
  const std::int64_t civil = mCalendar->civil(date);
  return static_cast<int>(civil - floorDay(civil) * kDay);
}

ReferenceTime ZAN_DateUtils::timeOfDay(ReferenceTime day, std::int64_t seconds) const {
  return timeOnDay(mCalendar->day(day), seconds);
}

ReferenceTime ZAN_DateUtils::addClockSeconds(ReferenceTime date, std::int64_t seconds) const {
  const double fraction = held(date) - std::floor(held(date));
  const std::int64_t civil =
      mCalendar->civil(date) + std::clamp(seconds, -kMaxSeconds, kMaxSeconds);
  return referenceTime(mCalendar->table.instantOf(civil)) + fraction;
}

bool ZAN_DateUtils::sameDay(ReferenceTime date1, ReferenceTime date2) const {
  return mCalendar->day(date1) == mCalendar->day(date2);
}

int ZAN_DateUtils::dayForDate(ReferenceTime date) const {
  return ZAN_CivilDay::ofNumber(mCalendar->day(date)).day;
}
int ZAN_DateUtils::weekdayForDate(ReferenceTime date) const {
  return ZAN_CivilDay::weekdayOfNumber(mCalendar->day(date));
}

std::optional<ReferenceTime> ZAN_DateUtils::dateForDay(std::int64_t day, std::int64_t month,
                                                       std::int64_t year) const {
  const std::optional<std::int64_t> number = dayNumberForDay(day, month, year);
  return number ? std::optional(firstInstantOfDay(*number)) : std::nullopt;
}

std::optional<std::int64_t> ZAN_DateUtils::dayNumberForDay(std::int64_t day, std::int64_t month,
                                                           std::int64_t year) const {
  constexpr std::int64_t kFarthestYear = 30000;
  if (year < -kFarthestYear || year > kFarthestYear || month < 1 || month > 12 || day < 1 ||
      day > ZAN_CivilDay::daysInMonth(year, static_cast<int>(month))) {
    return std::nullopt;
  }
  const ZAN_CivilDay civil{static_cast<std::int32_t>(year), static_cast<std::int8_t>(month),
                           static_cast<std::int8_t>(day)};
  const std::int64_t number = civil.number();
  return nextSkippedDay(number) == number ? std::nullopt : std::optional(number);
}

std::int64_t ZAN_DateUtils::dayNumber(ReferenceTime date) const { return mCalendar->day(date); }

ReferenceTime ZAN_DateUtils::firstInstantOfDay(std::int64_t dayNumber) const {
  dayNumber = std::clamp(dayNumber, -kFarthestDay, kFarthestDay);
  return referenceTime(mCalendar->table.firstInstantOfDay(dayNumber));
}

ReferenceTime ZAN_DateUtils::timeOnDay(std::int64_t dayNumber, std::int64_t seconds) const {
  if (seconds == 0) return firstInstantOfDay(dayNumber);
  const std::int64_t civil = std::clamp(dayNumber, -kFarthestDay, kFarthestDay) * kDay +
                             std::clamp(seconds, -kMaxSeconds, kMaxSeconds);
  return referenceTime(mCalendar->table.instantOf(civil));
}

std::int64_t ZAN_DateUtils::nextSkippedDay(std::int64_t dayNumber) const {
  return mCalendar->table.nextSkippedDay(dayNumber);
}

int ZAN_DateUtils::weekOfDay(std::int64_t dayNumber) const {
  const int weekday = ZAN_CivilDay::weekdayOfNumber(dayNumber);
  if (weeksBeginOnMonday()) {
    const int fromMonday = (weekday + 5) % 7;
    return (dayOfYear(dayNumber - fromMonday + 3) - 1) / 7 + 1;
  }
  const std::int64_t saturday = dayNumber + (7 - weekday);
  const int endOfWeek = dayOfYear(saturday);
  // A week that reaches into January is the new year's first.
  return endOfWeek <= 7 ? 1 : (endOfWeek + 6) / 7;
}

bool ZAN_DateUtils::weeksBeginOnMonday() const { return mCalendar->region.weeksBeginOnMonday(); }

ZAN_DateUtils::Components ZAN_DateUtils::components(ReferenceTime date) const {
  const std::int64_t instant = unixSeconds(date);
  Components parts;
  parts.utcOffset = mCalendar->table.offsetAt(instant);
  const std::int64_t civil = instant + parts.utcOffset;
  const std::int64_t number = floorDay(civil);
  const ZAN_CivilDay day = ZAN_CivilDay::ofNumber(number);
  const auto seconds = static_cast<int>(civil - number * kDay);
  parts.year = day.year;
  parts.month = day.month;
  parts.day = day.day;
  parts.hour = seconds / 3600;
  parts.minute = seconds / 60 % 60;
  parts.second = seconds % 60;
  parts.weekday = ZAN_CivilDay::weekdayOfNumber(number);
  return parts;
}

ReferenceTime ZAN_DateUtils::dateForComponents(const Components& parts) const {
  const std::int64_t months = static_cast<std::int64_t>(parts.year) * 12 + parts.month - 1;
  const std::int64_t year =
      std::clamp<std::int64_t>((months >= 0 ? months : months - 11) / 12, -30000, 30000);
  const std::int64_t month = ((months % 12) + 12) % 12 + 1;
  const ZAN_CivilDay first{static_cast<std::int32_t>(year), static_cast<std::int8_t>(month), 1};
  const std::int64_t seconds = static_cast<std::int64_t>(parts.hour) * 3600 +
                               static_cast<std::int64_t>(parts.minute) * 60 + parts.second;
  const std::int64_t day =
      first.number() + std::clamp<std::int64_t>(parts.day, -10'000'000, 10'000'000) - 1;
  return referenceTime(mCalendar->table.instantOf(day * kDay + seconds));
}

std::string ZAN_DateUtils::format(ReferenceTime date, std::string_view pattern) const {
  return mCalendar->region.format(unixSeconds(date), components(date).utcOffset, pattern);
}
std::string ZAN_DateUtils::weekdayName(int weekday) const {
  return mCalendar->region.weekdayName(weekday);
}
std::string ZAN_DateUtils::monthName(int month) const { return mCalendar->region.monthName(month); }

namespace {

absl::CivilSecond civilOf(std::int64_t seconds) { return absl::CivilSecond() + seconds; }

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
