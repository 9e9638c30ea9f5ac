#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/Schedule.h"

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

}  // namespace corvana
