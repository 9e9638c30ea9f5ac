#pragma once

#include <string>
#include <string_view>

#include "command/Commands.h"
#include "command/SchedulePlan.h"

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

}  // namespace corvana
