#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "actions/ActionsTools.h"
#include "tests/actions/ModelDates.h"

namespace corvana {
namespace {

using model::Date;
using model::Entry;
using model::Record;

constexpr std::int64_t kUnixTime = 978307200;

/// Records as users make them, with a taste for the hours around changes of the clocks.
class RecordMaker {
 public:
  explicit RecordMaker(unsigned seed) : mRandom(seed) {}

  std::int64_t between(std::int64_t least, std::int64_t most) {
    return std::uniform_int_distribution<std::int64_t>(least, most)(mRandom);
  }
  bool oneIn(int n) { return between(1, n) == 1; }
  template <class T>
  T oneOf(std::initializer_list<T> values) {
    return *(values.begin() + between(0, static_cast<std::int64_t>(values.size()) - 1));
  }
  ReferenceTime near(ReferenceTime date, std::int64_t seconds) {
    const auto whole = static_cast<double>(between(-seconds, seconds));
    return date + whole + (oneIn(4) ? 0.625 : 0.0);
  }

  Record record(const model::Zone& zone, ReferenceTime now) {
    Record record;
    record.automatic = oneIn(20) ? 0 : 1;
    record.frequency = oneOf<std::int64_t>({1, 1, 20, 20, 21, 22, 25, 30, 31, 32, 0, 10});
    record.hourDelay = between(-1, 4);
    record.minutes = oneOf<std::int64_t>({0, 1, 5, 7, 60, 90, 720, 1440, 1441, 2880});
    if (!oneIn(12)) record.time = timeOfDay(zone, now);
    if (oneIn(3)) {
      record.allowedHours = 1;
      if (!oneIn(6)) record.from = timeOfDay(zone, now);
      if (!oneIn(6)) record.to = timeOfDay(zone, now);
    }
    for (std::int64_t count = oneIn(2) ? between(1, 3) : 0; count > 0; --count) {
      record.list.push_back(entry(zone, now));
    }
    record.last = lastDate(zone, now, record);
    return record;
  }

 private:
  /// Stored with the date of some other day, mostly of a day with another offset.
  Date timeOfDay(const model::Zone& zone, ReferenceTime now) {
    const std::int64_t seconds =
        oneIn(2) ? oneOf<std::int64_t>({0, 30, 1800, 3600, 5400, 7200, 9000, 10799, 82800, 84600,
                                        86340, 86399, 28800})
                 : between(0, 86399);
    return zone.timeOnDay(zone.dayNumber(now) + between(-200, 200), seconds);
  }
  Date lastDate(const model::Zone& zone, ReferenceTime now, const Record& record) {
    switch (between(0, 9)) {
      case 0:
        return {};
      case 1:
        return near(now, 300);
      case 2:
        return now + static_cast<double>(between(0, 100000));
      case 3:
        return near(*zone.firstInstantOfDay(zone.dayNumber(now)) - 60, 1);
      case 4:
        // The model steps from here to now.
        return record.minutes < 60 ? near(now, 400000)
                                   : near(now - 20 * 365.25 * 86400, 86400 * 365 * 5);
      default:
        return near(now, 3 * 86400);
    }
  }
  Entry entry(const model::Zone& zone, ReferenceTime now) {
    Entry entry;
    entry.mode = between(0, 4);
    entry.popup = oneOf<std::int64_t>({0, 0, 20, 21, 22});
    entry.evenOdd = oneIn(2) ? 0 : between(1, 3);
    if (!oneIn(15)) entry.time = timeOfDay(zone, now);
    for (int weekday = 1; weekday <= 7; ++weekday) entry.weekdays[weekday] = oneIn(4);
    entry.monthMode = oneOf<std::int64_t>({0, 1, 1, 2, 10, 11, 12, 13, 14, 15, 16, 17});
    entry.monthWeekDay = between(0, 8);
    for (std::int64_t count = between(0, 4); count > 0; --count) {
      entry.monthDays.push_back(static_cast<int>(between(0, 32)));
    }
    // A date near today, else any, also one that few years or none have.
    const model::Day day = model::dayOf(zone.dayNumber(now) + between(-3, 3));
    entry.day = oneIn(2) ? day.day : between(0, 32);
    entry.month = oneIn(2) ? day.month : between(0, 13);
    return entry;
  }

  std::mt19937 mRandom;
};

/// Raised for a thorough run.
int recordsPerChange() {
  const char* variable = std::getenv("CORVANA_MODEL_RECORDS");
  return variable != nullptr ? std::atoi(variable) : 2;
}

class EveryChange : public testing::TestWithParam<const char*> {};

TEST_P(EveryChange, DatesAreTheModels) {
  const model::Zone zone(GetParam());
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RecordMaker maker(seed);
  const int records = recordsPerChange();
  std::vector<std::int64_t> moments;
  for (const std::int64_t change : zone.changes()) {
    if (change > -631152000 && change < 2082758400) moments.push_back(change);  // 1950 to 2035
  }
  while (moments.size() < 150) moments.push_back(maker.between(0, 2082758400));

  for (const char* region : {"fr_FR", "en_US"}) {
    const ZAN_DateUtils calendar(GetParam(), region);
    for (const std::int64_t moment : moments) {
      const auto change = static_cast<ReferenceTime>(moment - kUnixTime);
      const ReferenceTime now = maker.near(change, maker.oneIn(2) ? 7200 : 4 * 86400);
      const ActionsTools tools(calendar, now);
      const model::Dates dates(zone, *region == 'f', now);
      for (int i = 0; i < records; ++i) {
        Record record = maker.record(zone, now);
        // Each found date is fed back, just before, at and behind the margin too.
        for (int run = 0; run < 4; ++run) {
          const bool firstAfterStartup = maker.oneIn(2);
          bool shutDown = true;
          const Date date =
              tools.getNextScheduleDateForSettings(record.schedule(), firstAfterStartup, &shutDown);
          const model::Dates::Next expected = dates.nextDate(record, firstAfterStartup);
          ASSERT_EQ(date, expected.date)
              << calendar.zoneName() << " " << region << " now " << std::to_string(now) << "\nlast "
              << (record.last ? std::to_string(*record.last) : "never") << "\nfound "
              << (date ? calendar.format(*date, "%Y-%m-%d %H:%M:%S %z") : "none") << ", expected "
              << (expected.date ? calendar.format(*expected.date, "%Y-%m-%d %H:%M:%S %z") : "none")
              << "\nfrequency " << record.frequency << " minutes " << record.minutes << " entries "
              << record.list.size();
          ASSERT_EQ(shutDown, expected.shutDown);
          const ActionsTools::Programmed programmed =
              tools.getNextScheduleProgrammed(record.schedule());
          const model::Dates::Next expectedProgrammed = dates.programmed(record);
          ASSERT_EQ(programmed.date, expectedProgrammed.date);
          ASSERT_EQ(programmed.startUp, expectedProgrammed.startUp);
          if (!date) break;
          record.last = *date - (run == 0 ? maker.oneOf({119.5, 120.0, 120.5}) : 0.0);
        }
      }
    }
  }
}

TEST_P(EveryChange, SeriesAreTheModels) {
  const model::Zone zone(GetParam());
  const unsigned seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  RecordMaker maker(seed);
  const ZAN_DateUtils calendar(GetParam(), "C");
  const auto inModelsYears = [&] {
    return static_cast<double>(maker.between(-600000000, 1100000000));
  };
  for (int i = 0; i < 300; ++i) {
    const ReferenceTime now = inModelsYears();
    const Date start =
        maker.oneIn(4) ? Date() : Date(maker.oneIn(2) ? inModelsYears() : calendar.dayAt0h00(now));
    const Date last = maker.oneIn(6) ? Date() : Date(maker.near(inModelsYears(), 86400));
    const std::int64_t startTime = maker.between(-5000, 5000);
    const std::int64_t increment = maker.between(0, 86399);
    const std::int64_t delay = maker.oneOf<std::int64_t>({86400, 86400, 3600, 86399, 604800});
    ASSERT_EQ(ActionsTools(calendar, now).getNextSchedule(start, last, startTime, increment, delay),
              model::Dates(zone, false, now).nextSchedule(start, last, startTime, increment, delay))
        << std::to_string(start.value_or(now)) << " " << std::to_string(last.value_or(0)) << " "
        << increment << " " << delay;
  }
}

INSTANTIATE_TEST_SUITE_P(Zones, EveryChange,
                         testing::Values("Europe/Paris", "America/New_York", "Australia/Lord_Howe",
                                         "Africa/Cairo", "America/Sao_Paulo", "Asia/Kolkata",
                                         "Pacific/Apia", "America/St_Johns", "Asia/Tehran", "UTC"));

}  // namespace
}  // namespace corvana
