#include "actions/LocalDates.h"

#include "platform/Machine.h"

namespace corvana {

const ZAN_DateUtils& LocalDates::calendar() {
  follow();
  return *mCalendar;
}

const ZAN_StringUtils& LocalDates::strings() {
  follow();
  return *mStrings;
}

void LocalDates::setDateRegion(std::string_view region) {
  mDateRegion = region;
  if (mStrings) mStrings->setDateRegion(mDateRegion);
}

void LocalDates::follow() {
  std::string zone = mMachine.timeZoneName();
  std::string region = mMachine.regionName();
  if (mCalendar && zone == mZone && region == mRegion) return;
  mZone = std::move(zone);
  mRegion = std::move(region);
  mCalendar.emplace(mZone, mRegion);
  mStrings.emplace(mRegion, mZone);
  mStrings->setDateRegion(mDateRegion);
}

}  // namespace corvana
