#include "actions/Schedule.h"

#include <algorithm>
#include <array>
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

}  // namespace corvana
