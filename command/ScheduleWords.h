#pragma once

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/Schedule.h"
#include "command/Commands.h"

namespace corvana {

/// What makes an action run, as somebody chooses it who writes a record: dates, which can be
/// combined and repeated, beside one other occasion. Times of day are seconds in day, weekdays 1 =
/// Sunday to 7 = Saturday. Thread: any.
struct SchedulePlan {
  struct Hours {
    int from = 0;
    int to = 0;
    bool isAny = false;
  };

  /// Only when somebody says so; the rest of the schedule does not count then, but is kept.
  bool isManual = false;
  /// Nothing beside the dates.
  std::optional<ScheduleKind> kind = {};
  std::int64_t minutes = 0;      ///< of `kind`, 0: it takes none
  std::string application = {};  ///< of `kind`, empty: it takes none
  std::vector<int> daily = {};
  std::vector<ZAN_Value> entries = {};  ///< of the schedule list, see below
  std::optional<int> at = {};           ///< the time of day of the entries
  bool atShutDown = false;
  /// Within which it may run; nothing: as before.
  std::optional<Hours> hours = {};

  // Entries of the schedule list.
  static ZAN_Value weekly(const std::vector<int>& weekdays);
  /// "3,15,31".
  static ZAN_Value monthly(const std::string& days);
  /// The first or last day or working day; with a weekday the first, second or last of it.
  static ZAN_Value monthly(ScheduleEntry::MonthMode mode, int weekday = 0);
  static ZAN_Value yearly(int day, int month);

  /// Whether anything says when it runs; hours do not.
  bool saysWhen() const {
    return isManual || kind || !entries.empty() || !daily.empty() || atShutDown;
  }
  /// Writes the keys. What was there of a schedule goes away when a new one is given; allowed hours
  /// are separate. The last schedule date becomes now, so that the action does not start by being
  /// edited.
  void applyTo(ZAN_Value& record, const ZAN_DateUtils& calendar, ReferenceTime now) const;
};

/// When an action runs, in the words of the command line:
///
///   --daily 08:00, --weekly mon,thu, --monthly last-working-day, --yearly 29.2. with --at 18:30,
///   --every 15m, --hourly, --on-mount, --on-idle 20, --on-quit APP, --at-startup, --at-shutdown,
///   --manual, and --hours 08:00-18:00 or --hours any.
///
/// Dates can be combined and repeated; of the others one, beside them.
class ScheduleWords {
 public:
  /// Takes its words out of the arguments and complains there about wrong ones.
  explicit ScheduleWords(Arguments& arguments);

  bool isGiven() const { return mPlan.saysWhen() || mPlan.hours.has_value(); }
  const SchedulePlan& plan() const { return mPlan; }

 private:
  void takeDates(Arguments& arguments);
  void takeWeekly(std::string_view days, Arguments& arguments);
  void takeMonthly(const std::string& word, Arguments& arguments);
  void takeYearly(std::string_view date, Arguments& arguments);
  void takeFrequencies(Arguments& arguments);
  void takeHours(Arguments& arguments);
  void setKind(ScheduleKind kind, std::string_view word, Arguments& arguments);

  SchedulePlan mPlan;
  std::string mKindWord;
};

/// A date in the past as a user gives it: "yesterday" and "2026-11-14" (the last instant of that
/// day), "2026-11-14 18:30" and with seconds (the end of that minute or second), "today", "now",
/// "3 days ago" (minutes, hours, days, weeks, months, years). `refused` for anything else.
Result<ReferenceTime> pastDate(const std::string& words, ReferenceTime now,
                               const ZAN_DateUtils& calendar);

}  // namespace corvana
