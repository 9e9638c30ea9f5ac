#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"

namespace corvana {

class Machine;

/// Calendar and texts in the zone and region of the machine as they are now: both are made anew
/// when the machine has come into another zone or region. Thread: main.
class LocalDates {
 public:
  explicit LocalDates(const Machine& machine) : mMachine(machine) {}

  const ZAN_DateUtils& calendar();
  const ZAN_StringUtils& strings();
  /// The region for dates that the user chose in the product; empty: that of the machine.
  void setDateRegion(std::string_view region);

 private:
  void follow();

  const Machine& mMachine;
  std::string mZone;
  std::string mRegion;
  std::string mDateRegion;
  std::optional<ZAN_DateUtils> mCalendar;
  std::optional<ZAN_StringUtils> mStrings;
};

}  // namespace corvana
