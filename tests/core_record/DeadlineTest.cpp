#include "core/record/Deadline.h"

#include <gtest/gtest.h>

#include <memory>

namespace corvana {
namespace {

TEST(Deadline, AClockSetBackTakesWhatIsStillToComeAlong) {
  DeadlineList list;
  Deadline due(list, 90);
  Deadline none(list);
  Deadline atNow(list, 100);
  auto gone = std::make_unique<Deadline>(list, 5000);
  Deadline later(list, 3720);
  gone.reset();
  double told = 0;
  list.whenMoved([&](double jump, ReferenceTime now) { told = jump + now; });

  list.moveDeadlines(-3600, 100);

  EXPECT_EQ(due.at(), 90);
  EXPECT_FALSE(none.isSet());
  EXPECT_EQ(atNow.at(), 100);
  EXPECT_EQ(later.at(), 120);
  EXPECT_EQ(told, -3500);
}

}  // namespace
}  // namespace corvana
