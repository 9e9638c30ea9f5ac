#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "tests/scenario/Scenario.h"

namespace corvana {
namespace {

/// A year of an office: what was due on which days, said by plain walks over the days of the
/// calendar, held against what was executed.
class Year : public Scenario {
 public:
  explicit Year(unsigned seed) : mRandom(seed) {
    for (ReferenceTime day = calendar().dayAt0h00(machine.clock.now()); mDays.size() < 366;
         day = calendar().nextDay(day)) {
      mDays.push_back(day);
    }
  }

  ZAN_Value clockTime() {
    mSeconds = 600 * static_cast<int>(mRandom() % 144);
    return ZAN_Value::date(calendar().timeOfDay(mDays[0], mSeconds));
  }
  int number(int count) { return static_cast<int>(mRandom() % static_cast<unsigned>(count)); }

  void addMany(int count) {
    for (int i = 0; i < count; ++i) {
      const std::string title = "Action " + std::to_string(i);
      switch (i % 5) {
        case 0:
          add(title, daily(*clockTime().asDate(), begin()), [](ReferenceTime) { return true; });
          break;
        case 1:
          weekly(title);
          break;
        case 2:
          daysOfMonth(title);
          break;
        case 3:
          lastWorkingDay(title);
          break;
        default:
          yearly(title);
          break;
      }
    }
  }

  ReferenceTime begin() const { return mDays[0] - 3600; }
  const std::multimap<ReferenceTime, std::string>& due() const { return mDue; }

 private:
  using DayTest = std::function<bool(ReferenceTime)>;

  void add(const std::string& title, const ZAN_Value& record, const DayTest& isDue) {
    action(title, record);
    for (const ReferenceTime day : mDays) {
      if (isDue(day)) mDue.emplace(calendar().timeOfDay(day, mSeconds), title);
    }
  }

  ZAN_Value entry(int mode) {
    return ZAN_Value::dictionary(
        {{"TriggerScheduleMode", mode}, {"TriggerScheduleTime", clockTime()}});
  }

  void weekly(const std::string& title) {
    static constexpr const char* kKeys[] = {"TriggerScheduleSunday",   "TriggerScheduleMonday",
                                            "TriggerScheduleTuesday",  "TriggerScheduleWednesday",
                                            "TriggerScheduleThursday", "TriggerScheduleFriday",
                                            "TriggerScheduleSaturday"};
    std::set<int> weekdays{1 + number(7), 1 + number(7)};
    ZAN_Value week = entry(1);
    for (const int weekday : weekdays) week.setValue(kKeys[weekday - 1], 1);
    add(title, scheduled({week}, begin()), [this, weekdays](ReferenceTime day) {
      return weekdays.contains(calendar().weekdayForDate(day));
    });
  }

  void daysOfMonth(const std::string& title) {
    const int first = 1 + number(31);
    ZAN_Value month = entry(2);
    month.setValue("TriggerScheduleMonthMode", 1);
    month.setValue("TriggerScheduleMonthDays", std::to_string(first) + ", 15");
    add(title, scheduled({month}, begin()), [this, first](ReferenceTime day) {
      const int number = calendar().dayForDate(day);
      return number == first || number == 15;
    });
  }

  void lastWorkingDay(const std::string& title) {
    ZAN_Value month = entry(2);
    month.setValue("TriggerScheduleMonthMode", 13);
    add(title, scheduled({month}, begin()), [this](ReferenceTime day) {
      const auto isWorking = [this](ReferenceTime date) {
        const int weekday = calendar().weekdayForDate(date);
        return weekday != 1 && weekday != 7;
      };
      if (!isWorking(day)) return false;
      const int month = calendar().monthForDate(day);
      for (day = calendar().nextDay(day); calendar().monthForDate(day) == month;
           day = calendar().nextDay(day)) {
        if (isWorking(day)) return false;
      }
      return true;
    });
  }

  void yearly(const std::string& title) {
    const int day = 1 + number(29);
    const int month = 1 + number(12);
    ZAN_Value year = entry(3);
    year.setValue("TriggerScheduleDay", day);
    year.setValue("TriggerScheduleMonth", month);
    add(title, scheduled({year}, begin()), [this, day, month](ReferenceTime date) {
      return calendar().dayForDate(date) == day && calendar().monthForDate(date) == month;
    });
  }

  std::mt19937 mRandom;
  int mSeconds = 0;
  std::vector<ReferenceTime> mDays;
  std::multimap<ReferenceTime, std::string> mDue;
};

TEST(Year, EveryOccasionRunsOnceNoneTwiceNoneIsLost) {
  // A spring proves what a year does; CORVANA_YEAR=1 runs all of it, some minutes long.
  const bool wholeYear = std::getenv("CORVANA_YEAR") != nullptr;
  constexpr int kActions = 200;
  const char* const end = wholeYear ? "2025-01-01 00:00:00" : "2024-02-03 00:00:00";
  // Another office with another CORVANA_SEED.
  const char* const given = std::getenv("CORVANA_SEED");
  const unsigned seed = given == nullptr ? 2024 : static_cast<unsigned>(std::atoi(given));
  SCOPED_TRACE("seed " + std::to_string(seed));
  Year year(seed);
  year.addMany(kActions);
  year.writeTree();
  year.allowSkipping();
  year.saveSeldom();
  for (int i = 0; i < kActions; ++i) year.scripts["Action " + std::to_string(i)] = {.seconds = 1};
  const ReferenceTime started = year.machine.clock.now();
  // The histories of volumes would take half of the time and have tests of their own.
  year.machine.volumes.hang("/");
  year.start(true);
  year.runUntil(end);

  // What was already past on the first day when the agent started is made up at once.
  std::map<std::string, std::vector<ReferenceTime>> ran;
  for (std::istringstream lines(year.executions()); lines;) {
    std::string line;
    if (!std::getline(lines, line)) break;
    ran[line.substr(20)].push_back(year.at(line.substr(0, 19)));
  }
  std::map<std::string, std::vector<ReferenceTime>> due;
  for (const auto& [date, title] : year.due()) {
    if (date < year.at(end) - 600) due[title].push_back(date);
  }
  std::size_t executions = 0;
  for (auto& [title, dates] : due) {
    auto& runs = ran[title];
    std::erase_if(runs, [&](ReferenceTime run) { return run >= year.at(end) - 600; });
    ASSERT_EQ(runs.size(), dates.size()) << title;
    for (std::size_t i = 0; i < dates.size(); ++i) {
      const ReferenceTime from = std::max(dates[i], started);
      EXPECT_GE(runs[i], from - 1) << title << " " << year.civil(runs[i]);
      // One at a time: those due at one moment wait for each other.
      EXPECT_LE(runs[i], from + 600) << title << " " << year.civil(runs[i]);
    }
    executions += dates.size();
  }
  EXPECT_GT(executions, 500U);
  // What is due at the very end may still wait.
  for (const QueueRecord& record : year.agent->queue().actionsList()) {
    EXPECT_GE(record.date, year.at(end) - 600);
  }
}

}  // namespace
}  // namespace corvana
