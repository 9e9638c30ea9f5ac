#include "actions/Schedule.h"

#include <algorithm>
#include <array>
#include <bit>
#include <charconv>
#include <cmath>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"

namespace corvana {

namespace {

constexpr std::int64_t kMaxMinutes = std::int64_t{1} << 40;

constexpr std::array<std::string_view, 7> kWeekdayKeys{
    "TriggerScheduleSunday",    "TriggerScheduleMonday",   "TriggerScheduleTuesday",
    "TriggerScheduleWednesday", "TriggerScheduleThursday", "TriggerScheduleFriday",
    "TriggerScheduleSaturday"};

std::optional<ReferenceTime> dateOf(const ZAN_Value& value) {
  const std::optional<ReferenceTime> date = value.asDate();
  return date && std::isfinite(*date) ? date : std::nullopt;
}

std::int8_t withinOrZero(std::int64_t value, std::int64_t least, std::int64_t most) {
  return static_cast<std::int8_t>(value >= least && value <= most ? value : 0);
}

template <class Enumeration>
constexpr std::int64_t numberOf(Enumeration value) {
  return static_cast<std::int64_t>(value);
}

/// The numbers of a text such as "1, 15,31" as bits.
std::uint32_t monthDaysOf(std::string_view text) {
  std::uint32_t days = 0;
  while (!text.empty()) {
    const auto comma = std::min(text.find(','), text.size());
    const std::string_view word = ZAN_StringUtils::trimmed(text.substr(0, comma));
    text.remove_prefix(std::min(comma + 1, text.size()));
    int day = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), day);
    if (error == std::errc() && end == word.data() + word.size() && day >= 1 && day <= 31) {
      days |= std::uint32_t{1} << day;
    }
  }
  return days;
}

}  // namespace

ScheduleEntry::ScheduleEntry(const ZAN_Value& entry) : time(dateOf(entry["TriggerScheduleTime"])) {
  const std::int64_t modeNumber = entry.integer("TriggerScheduleMode");
  mode = modeNumber >= 0 && modeNumber <= 3 ? static_cast<Mode>(modeNumber) : Mode::never;
  parity = static_cast<Parity>(withinOrZero(entry.integer("TriggerScheduleEvenOdd"), 1, 2));
  occasion = static_cast<Occasion>(withinOrZero(entry.integer("TriggerFrequencyPopup"),
                                                numberOf(Occasion::startUp),
                                                numberOf(Occasion::shutDown)));
  switch (mode) {
    case Mode::daysOfWeek:
      for (std::size_t i = 0; i < kWeekdayKeys.size(); ++i) {
        if (entry.integer(kWeekdayKeys[i]) != 0) weekdays |= static_cast<std::uint8_t>(2U << i);
      }
      break;
    case Mode::daysOfMonth: {
      const std::int64_t number = entry.integer("TriggerScheduleMonthMode");
      monthMode = number == numberOf(MonthMode::days)
                      ? MonthMode::days
                      : static_cast<MonthMode>(withinOrZero(number, numberOf(MonthMode::firstDay),
                                                            numberOf(MonthMode::secondWeekday)));
      monthWeekDay = withinOrZero(entry.integer("TriggerScheduleMonthWeekDay"), 1, 7);
      monthDays = monthDaysOf(entry["TriggerScheduleMonthDays"].stringView());
      break;
    }
    case Mode::yearly:
      day = withinOrZero(entry.integer("TriggerScheduleDay"), 1, 31);
      month = withinOrZero(entry.integer("TriggerScheduleMonth"), 1, 12);
      break;
    case Mode::everyDay:
    case Mode::never:
      break;
  }
}

Schedule::Schedule(const ZAN_Value& settings)
    : automatic(settings.integer("TriggerAutomatic") != 0),
      lastScheduleDate(dateOf(settings["LastScheduleDate"])) {
  kind = static_cast<ScheduleKind>(settings.integer("TriggerFrequencyPopup"));
  hasAllowedHours = settings.integer("TriggerAllowedHours") != 0;
  if (hasAllowedHours) {
    allowedFrom = dateOf(settings["TriggerAllowedHoursFrom"]);
    allowedTo = dateOf(settings["TriggerAllowedHoursTo"]);
  }
  if (kind == ScheduleKind::daily) time = dateOf(settings["TriggerScheduleTime"]);
  if (kind == ScheduleKind::minutes)
    minutes = std::clamp<std::int64_t>(settings.integer("TriggerScheduleMinutes"), 1, kMaxMinutes);
  if (kind == ScheduleKind::hourly || kind == ScheduleKind::threeHourly) {
    hourDelay = static_cast<std::uint8_t>(withinOrZero(settings.integer("TriggerHourDelay"), 1, 3));
  }
  readList(settings["TriggerScheduleList"]);
}

void Schedule::readList(const ZAN_Value& archive) {
  if (archive.isNull()) return;
  const auto damaged = [this](std::string_view reason) {
    list.clear();
    listDamage = "ZAN_ArchiveException: ";
    listDamage += reason;
  };
  if (!archive.isData()) return damaged("the schedule list is no archive");
  const Result<ZAN_Value> entries = ZAN_Unarchiver::unarchiveObjectWithData(archive.bytes());
  if (!entries) return damaged(entries.error().text);
  if (!entries->isArray() && !entries->isNull()) return damaged("the schedule list is no array");
  list.reserve(entries->size());
  for (const ZAN_Value& entry : entries->elements()) {
    if (!entry.isDictionary()) return damaged("an entry of the schedule list is no dictionary");
    list.emplace_back(entry);
  }
}

bool Schedule::dependsOnKey(std::string_view key) {
  constexpr std::array<std::string_view, 9> keys{
      "TriggerAutomatic",    "TriggerFrequencyPopup",   "TriggerHourDelay",
      "TriggerScheduleTime", "TriggerScheduleMinutes",  "TriggerAllowedHours",
      "TriggerScheduleList", "TriggerAllowedHoursFrom", "TriggerAllowedHoursTo"};
  return std::ranges::find(keys, key) != keys.end();
}

void Schedule::setLastScheduleDate(const ZAN_Value& date) { lastScheduleDate = dateOf(date); }

namespace {

using Mode = ScheduleEntry::Mode;
using MonthMode = ScheduleEntry::MonthMode;
using Parity = ScheduleEntry::Parity;

constexpr int kSaturday = 7;
constexpr int kSunday = 1;
constexpr std::uint32_t kAllDays = 0xFFFFFFFE;  ///< bit 1 to bit 31
constexpr std::uint32_t kOddDays = 0xAAAAAAAA;

std::uint32_t bit(int day) { return std::uint32_t{1} << day; }

/// How many days later the weekday comes again; 0 for the day itself.
int daysUntil(int weekday, int fromWeekday) { return (weekday - fromWeekday + 7) % 7; }

}  // namespace

ScheduleDays::ScheduleDays(const ScheduleEntry& entry, const ZAN_DateUtils& calendar,
                           std::int64_t startDay, std::int64_t currentYear)
    : mEntry(entry),
      mCalendar(calendar),
      mDay(startDay),
      mEnd(startDay + horizonOf(entry)),
      mSkipped(calendar.nextSkippedDay(startDay)),
      mYear(currentYear) {
  for (std::int64_t skipped = mSkipped; skipped < mEnd;
       skipped = calendar.nextSkippedDay(skipped + 1))
    ++mEnd;
}

std::int64_t ScheduleDays::horizonOf(const ScheduleEntry& entry) {
  const bool every = entry.parity == Parity::every;
  switch (entry.mode) {
    case Mode::everyDay:
      return every ? 2 : 3;
    case Mode::daysOfWeek:
      return every ? 8 : 15;
    case Mode::daysOfMonth:
      return every ? 32 : 63;
    case Mode::yearly:
      return 368;
    case Mode::never:
      break;
  }
  return 0;
}

std::optional<std::int64_t> ScheduleDays::next() {
  while (true) {
    const std::optional<std::int64_t> day = candidate();
    if (!day || *day >= mEnd) return std::nullopt;
    mDay = *day + 1;
    if (*day < mSkipped) return day;
    const bool isSkipped = *day == mSkipped;
    mSkipped = mCalendar.nextSkippedDay(mDay);
    if (!isSkipped) return day;
  }
}

/// The first day from `mDay` on that is chosen, whatever the zone says; it may lie behind the end.
std::optional<std::int64_t> ScheduleDays::candidate() {
  switch (mEntry.mode) {
    case Mode::everyDay:
      return mEntry.parity == Parity::every ? mDay : nextInMonth();
    case Mode::daysOfWeek:
      return nextInWeek();
    case Mode::daysOfMonth:
      return nextInMonth();
    case Mode::yearly:
      return nextYearly();
    case Mode::never:
      break;
  }
  return std::nullopt;
}

std::optional<std::int64_t> ScheduleDays::nextInWeek() {
  for (; mDay < mEnd; ++mDay) {
    if (!mEntry.choosesWeekday(ZAN_CivilDay::weekdayOfNumber(mDay))) continue;
    if (mEntry.parity == Parity::every || mEntry.hasParity(mCalendar.weekOfDay(mDay))) return mDay;
  }
  return std::nullopt;
}

std::optional<std::int64_t> ScheduleDays::nextInMonth() {
  while (mDay < mEnd) {
    const ZAN_CivilDay day = ZAN_CivilDay::ofNumber(mDay);
    const std::uint32_t days = chosenDaysOfMonth(day, mDay) >> day.day;
    if (days != 0) return mDay + std::countr_zero(days);
    mDay += ZAN_CivilDay::daysInMonth(day.year, day.month) - day.day + 1;
  }
  return std::nullopt;
}

std::uint32_t ScheduleDays::chosenDaysOfMonth(ZAN_CivilDay day, std::int64_t number) const {
  const int last = ZAN_CivilDay::daysInMonth(day.year, day.month);
  const std::uint32_t existing = kAllDays >> (31 - last) & kAllDays;
  if (mEntry.mode == Mode::everyDay) {
    return existing & (mEntry.parity == Parity::odd ? kOddDays : ~kOddDays);
  }
  if (!mEntry.hasParity(day.month)) return 0;
  const int weekdayOfFirst = ZAN_CivilDay::weekdayOfNumber(number - day.day + 1);
  const int weekdayOfLast = ZAN_CivilDay::weekdayOfNumber(number - day.day + last);
  const auto weekdayOccurrence = [&](int which) {
    if (mEntry.monthWeekDay == 0) return std::uint32_t{0};
    return bit(which * 7 - 6 + daysUntil(mEntry.monthWeekDay, weekdayOfFirst));
  };
  switch (mEntry.monthMode) {
    case MonthMode::days:
      return mEntry.monthDays & existing;
    case MonthMode::firstDay:
      return bit(1);
    case MonthMode::firstWorkingDay:
      return bit(weekdayOfFirst == kSaturday ? 3 : weekdayOfFirst == kSunday ? 2 : 1);
    case MonthMode::lastDay:
      return bit(last);
    case MonthMode::lastWorkingDay:
      return bit(weekdayOfLast == kSaturday ? last - 1
                 : weekdayOfLast == kSunday ? last - 2
                                            : last);
    case MonthMode::firstWeekday:
      return weekdayOccurrence(1);
    case MonthMode::lastWeekday:
      return mEntry.monthWeekDay == 0 ? 0
                                      : bit(last - daysUntil(weekdayOfLast, mEntry.monthWeekDay));
    case MonthMode::secondWeekday:
      return weekdayOccurrence(2);
    case MonthMode::never:
      break;
  }
  return 0;
}

std::optional<std::int64_t> ScheduleDays::nextYearly() {
  for (const std::int64_t year : {mYear, mYear + 1}) {
    const std::optional<std::int64_t> day =
        mCalendar.dayNumberForDay(mEntry.day, mEntry.month, year);
    if (day && *day >= mDay) return day;
  }
  return std::nullopt;
}

TriggerSettings::TriggerSettings(const ZAN_Value& settings)
    : schedule(settings),
      title(settings["Title"]),
      shortcut(settings[ActionKey::shortcut]),
      mode(settings.integer("Mode")),
      context(static_cast<ActionContext>(settings.integer(ActionKey::context))),
      idleMinutes(settings.integer("TriggerScheduleMinutes")),
      notExecuted(settings.integer(ActionKey::notExecuted)),
      notExecutedDays(settings.integer(ActionKey::notExecutedDays)) {
  const ZAN_Value& path = settings["TriggerAppQuitPath"];
  if (path.isString()) appQuitPath = path;
}

bool TriggerSettings::dependsOnKey(std::string_view key) {
  return Schedule::dependsOnKey(key) || key == "Title" || key == ActionKey::shortcut ||
         key == "Mode" || key == ActionKey::context || key == "TriggerScheduleMinutes" ||
         key == ActionKey::notExecuted || key == ActionKey::notExecutedDays ||
         key == "TriggerAppQuitPath";
}

}  // namespace corvana
