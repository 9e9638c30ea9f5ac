#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionContext.h"

namespace corvana {

/// What starts an action, with the numbers of "TriggerFrequencyPopup". Any other number is carried
/// through and means that the dates of the schedule list alone do, as `list` does.
enum class ScheduleKind : std::int64_t {
  list = 0,
  daily = 1,
  volumeMounted = 10,
  applicationQuit = 11,
  minutes = 20,
  hourly = 21,
  threeHourly = 22,
  listOnly = 23,  ///< the same as `list`
  firstStartUpOfDay = 30,
  startUp = 31,
  nextDay = 32,
  idle = 40
};

/// One line of a schedule list: on which days, at what time, and whether it is a start-up or a
/// shutdown occasion rather than a date.
struct ScheduleEntry {
  enum class Mode : std::uint8_t { everyDay, daysOfWeek, daysOfMonth, yearly, never };
  enum class Parity : std::uint8_t { every, odd, even };
  /// The numbers of an entry's own "TriggerFrequencyPopup".
  enum class Occasion : std::uint8_t { none = 0, startUp = 20, shutDown = 21 };
  /// Which days of a month, with the numbers of "TriggerScheduleMonthMode".
  enum class MonthMode : std::uint8_t {
    never = 0,
    days = 1,
    firstDay = 10,
    firstWorkingDay = 11,
    lastDay = 12,
    lastWorkingDay = 13,
    firstWeekday = 14,
    lastWeekday = 15,
    secondWeekday = 16
  };

  ScheduleEntry() = default;
  /// Missing keys and values out of range choose no day. `entry` is a dictionary.
  explicit ScheduleEntry(const ZAN_Value& entry);

  bool choosesWeekday(int weekday) const { return (weekdays >> weekday & 1) != 0; }
  bool choosesMonthDay(int day) const { return (monthDays >> day & 1) != 0; }
  bool hasParity(int number) const {
    return parity == Parity::every || (number % 2 != 0) == (parity == Parity::odd);
  }

  std::optional<ReferenceTime> time;  ///< only its time of day counts; without it there is no date
  Mode mode = Mode::everyDay;
  Parity parity = Parity::every;
  Occasion occasion = Occasion::none;
  std::uint8_t weekdays = 0;  ///< bit 1 = Sunday to bit 7 = Saturday
  MonthMode monthMode = MonthMode::never;
  std::int8_t monthWeekDay = 0;  ///< 1 = Sunday to 7 = Saturday; 0 chooses no day
  std::int8_t day = 0;           ///< of a date a year; 0 chooses no day
  std::int8_t month = 0;
  std::uint32_t monthDays = 0;  ///< bit 1 to bit 31
};

/// What a settings record says about when its action is due, decoded once: numbers instead of keys,
/// the schedule list taken out of its archive. It does not depend on the time zone. Thread: any
/// once made.
class Schedule {
 public:
  /// No automatic execution.
  Schedule() = default;
  explicit Schedule(const ZAN_Value& settings);

  /// Whether a change of the value under that key makes a decoded schedule stale.
  /// "LastScheduleDate" does not: it is set by `setLastScheduleDate`.
  static bool dependsOnKey(std::string_view key);
  /// `date` as stored: null and anything but a date that exists count as never.
  void setLastScheduleDate(const ZAN_Value& date);

  bool automatic = false;
  bool hasAllowedHours = false;
  std::uint8_t hourDelay = 0;  ///< quarters of an hour past, 0 to 3
  ScheduleKind kind = ScheduleKind::list;
  std::int64_t minutes = 1;           ///< at least 1
  std::optional<ReferenceTime> time;  ///< of these dates only the time of day counts
  std::optional<ReferenceTime> allowedFrom;
  std::optional<ReferenceTime> allowedTo;
  std::optional<ReferenceTime> lastScheduleDate;  ///< as stored, also when it lies ahead of now
  std::vector<ScheduleEntry> list;
  /// Why the list cannot be read, as "name: reason"; empty when it can. The list is empty then.
  std::string listDamage;

 private:
  void readList(const ZAN_Value& archive);
};

/// The days that a schedule entry chooses, one after the other, from a day on and as far as its
/// horizon reaches. The first day counts as the horizon's first; a day that the zone left out
/// neither counts nor is chosen. Days are numbers as in `ZAN_CivilDay`.
class ScheduleDays {
 public:
  /// Both objects must outlive this one. A date a year is looked for in `currentYear` and the next.
  ScheduleDays(const ScheduleEntry& entry, const ZAN_DateUtils& calendar, std::int64_t startDay,
               std::int64_t currentYear);

  /// Null when the horizon is reached.
  std::optional<std::int64_t> next();

  /// How many days that is; 0 for an entry that chooses none.
  static std::int64_t horizonOf(const ScheduleEntry& entry);

 private:
  std::optional<std::int64_t> candidate();
  std::optional<std::int64_t> nextInMonth();
  std::optional<std::int64_t> nextInWeek();
  std::optional<std::int64_t> nextYearly();
  std::uint32_t chosenDaysOfMonth(ZAN_CivilDay day, std::int64_t number) const;

  const ScheduleEntry& mEntry;
  const ZAN_DateUtils& mCalendar;
  std::int64_t mDay;  ///< the next one to look at
  std::int64_t mEnd;
  std::int64_t mSkipped;  ///< the next day that the zone left out
  std::int64_t mYear;
};

/// Keys of a record that are named in more than one place.
namespace ActionKey {
inline constexpr std::string_view shortcut = "Shortcut";
inline constexpr std::string_view favourite = "Favorite";
inline constexpr std::string_view context = "TriggerContextPopup";
inline constexpr std::string_view makesUpMissed = "TriggerMakeUpMissed";
inline constexpr std::string_view ageAlarm = "TriggerAgeAlarm";
/// Of the last run after which everything was there but what cannot be copied; date 0: none was.
inline constexpr std::string_view lastSuccess = "LastSuccessDate";
inline constexpr std::string_view notExecuted = "TriggerNotificationNotExecuted";
inline constexpr std::string_view notExecutedDays = "TriggerDelayNotExecuted";
}  // namespace ActionKey

/// What the evaluation asks of a settings record at every pass, decoded once: beside the schedule
/// the events that start the action, the notice that it was not executed for long, and what it is
/// listed with.
struct TriggerSettings {
  TriggerSettings() = default;
  explicit TriggerSettings(const ZAN_Value& settings);

  /// Whether a change of the value under that key makes what was decoded stale. "LastScheduleDate"
  /// does not: `schedule.setLastScheduleDate` takes it.
  static bool dependsOnKey(std::string_view key);

  Schedule schedule;
  ZAN_Value title;                              ///< "Title" as stored
  ZAN_Value shortcut;                           ///< "Shortcut" as stored
  std::int64_t mode = 0;                        ///< "Mode"
  ActionContext context = ActionContext::none;  ///< "TriggerContextPopup"
  std::int64_t idleMinutes = 0;                 ///< "TriggerScheduleMinutes" as stored
  std::int64_t notExecuted = 0;  ///< "TriggerNotificationNotExecuted": bit 0 message, bit 1 mail
  std::int64_t notExecutedDays = 0;  ///< "TriggerDelayNotExecuted" as stored
  ZAN_Value appQuitPath;             ///< "TriggerAppQuitPath": text or null
};

}  // namespace corvana
