#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/Schedule.h"
#include "command/Commands.h"

namespace corvana {

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

  bool isGiven() const { return mIsGiven || mHours.has_value(); }
  /// Writes the keys. What was there of a schedule goes away when a new one is given; allowed hours
  /// are separate. The last schedule date becomes now, so that the action does not start by being
  /// edited.
  void applyTo(ZAN_Value& record, const ZAN_DateUtils& calendar, ReferenceTime now) const;

 private:
  struct Hours {
    int from = 0;  ///< seconds in day
    int to = 0;
    bool isAny = false;
  };

  void takeDates(Arguments& arguments);
  void takeWeekly(std::string_view days, Arguments& arguments);
  void takeMonthly(const std::string& word, Arguments& arguments);
  void takeYearly(std::string_view date, Arguments& arguments);
  void takeFrequencies(Arguments& arguments);
  void takeHours(Arguments& arguments);
  void setKind(ScheduleKind kind, std::string_view word, Arguments& arguments);

  bool mIsGiven = false;
  bool mIsManual = false;
  std::optional<ScheduleKind> mKind;
  std::string mKindWord;
  std::int64_t mMinutes = 0;
  std::string mApplication;
  std::vector<int> mDaily;          ///< seconds in day
  std::vector<ZAN_Value> mEntries;  ///< of the schedule list, without their time
  std::optional<int> mAt;
  bool mAtShutDown = false;
  std::optional<Hours> mHours;
};

}  // namespace corvana
