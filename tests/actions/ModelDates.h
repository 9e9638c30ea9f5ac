#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/Schedule.h"
#include "tests/support/ModelZone.h"

namespace corvana::model {

using Date = std::optional<ReferenceTime>;

/// A schedule entry and a settings record as plain fields, and as the dictionaries they stand for.
struct Entry {
  std::int64_t mode = 0, popup = 0, evenOdd = 0, monthMode = 0, monthWeekDay = 0, day = 0,
               month = 0;
  Date time;
  bool weekdays[8] = {};  ///< from 1 = Sunday
  std::vector<int> monthDays;

  ZAN_Value value() const;
};
struct Record {
  std::int64_t automatic = 1, frequency = 0, hourDelay = 0, minutes = 0, allowedHours = 0;
  Date time, from, to, last;
  std::vector<Entry> list;

  ZAN_Value settings() const;  ///< with the list as an archive
  ZAN_Value settingsWithoutList() const;
  Schedule schedule() const;
};

/// When actions are due, worded as the rules are: every series steps point by point, every search
/// walks day by day.
class Dates {
 public:
  Dates(const Zone& zone, bool weeksBeginOnMonday, ReferenceTime now)
      : mZone(zone), mWeeksBeginOnMonday(weeksBeginOnMonday), mNow(now) {}

  struct Next {
    Date date;
    bool startUp = false, shutDown = false;
    bool operator==(const Next&) const = default;
  };
  Next nextDate(const Record& record, bool firstAfterStartup) const;
  ReferenceTime nextSchedule(Date start, Date last, std::int64_t startTime, std::int64_t increment,
                             std::int64_t delay) const;
  Next programmed(const Record& record) const;

 private:
  Next entry(const Entry& entry, ReferenceTime start, Date last) const;
  bool qualifies(const Entry& entry, ReferenceTime day) const;
  bool qualifiesInMonth(const Entry& entry, std::int64_t number) const;
  Date last(const Record& record) const;
  Date dateForDay(std::int64_t day, std::int64_t month, int year) const;
  ReferenceTime today() const { return *mZone.firstInstantOfDay(mZone.dayNumber(mNow)); }
  ReferenceTime dayPlus(ReferenceTime day, std::int64_t seconds) const {
    return mZone.timeOnDay(mZone.dayNumber(day), seconds);
  }

  const Zone& mZone;
  bool mWeeksBeginOnMonday;
  ReferenceTime mNow;
};

}  // namespace corvana::model
