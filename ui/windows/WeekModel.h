#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <utility>

#include "ui/UserInterfaceSources.h"
#include "ui/windows/WeekTimeline.h"

namespace corvana {

class NextActionsModel;

/// The coming week of the actions that a list shows, with its words. Thread: main.
class WeekModel {
 public:
  explicit WeekModel(const UserInterfaceSources& sources) : m(sources) {}

  /// Computed anew for the actions that are shown now, unless nothing has changed within this
  /// minute. Whether it was.
  bool refresh(const NextActionsModel& shown);
  bool isEmpty() const { return mWeek == nullptr || mWeek->runs().empty(); }
  /// After the first `refresh`.
  const WeekTimeline& week() const { return *mWeek; }

  std::string dayTitle(std::size_t day) const;    ///< "Tuesday 24"
  std::string hourTitle(int hour) const;          ///< 0 to 24, as the region writes it
  std::string changeText(std::size_t day) const;  ///< of the clocks; empty on other days
  std::string barTitle(const WeekTimeline::Bar& bar) const;
  /// When, what, how long and what it meets, in a line.
  std::string barText(const WeekTimeline::Bar& bar) const;
  std::string summary() const;

 private:
  const UserInterfaceSources& m;
  std::unique_ptr<WeekTimeline> mWeek;
  std::pair<std::int64_t, std::int64_t> mMadeOf;  ///< revision of the list, and the minute
};

}  // namespace corvana
