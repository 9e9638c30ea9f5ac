#include "ui/windows/ErrorSummaryModel.h"

#include <algorithm>
#include <array>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/History.h"
#include "core/record/Preferences.h"
#include "core/record/SchedulerCommands.h"
#include "core/record/SchedulerLog.h"
#include "platform/Clock.h"
#include "platform/Platform.h"
#include "ui/windows/LaunchByHand.h"

namespace corvana {

namespace {

constexpr double kSeconds = 7 * 86400.0;
constexpr std::size_t kMost = 200;
constexpr std::array<std::int64_t, 7> kFailures{
    LogCode::volumeNotFound,    LogCode::unexpectedError,     LogCode::crashed,
    LogCode::timeOut,           LogCode::completedWithErrors, LogCode::volumeGone,
    LogCode::volumeNotAvailable};

}  // namespace

ErrorSummaryModel::ErrorSummaryModel(const UserInterfaceSources& sources) : m(sources) {
  refresh();
}

void ErrorSummaryModel::refresh() {
  mFailures.clear();
  const ZAN_Value list = m.history.log().readLogList();
  const auto entries = list.elements();
  const ReferenceTime oldest = m.platform.clock.now() - kSeconds;
  for (std::size_t i = entries.size(); i-- > 0 && mFailures.size() < kMost;) {
    const auto date = entries[i]["M"].asDate();
    if (date && *date < oldest) break;
    if (std::ranges::find(kFailures, entries[i].integer("C")) != kFailures.end())
      mFailures.push_back(entries[i]);
  }
}

std::vector<WindowTable::Column> ErrorSummaryModel::columns() const {
  return {{.title = m.texts.text("ColumnWhen")},
          {.title = m.texts.text("ColumnAction"), .isWide = true},
          {.title = m.texts.text("ColumnResult")}};
}

std::string ErrorSummaryModel::text(std::size_t row, std::size_t column) const {
  const ZAN_Value& one = mFailures[row];
  const auto date = one["M"].asDate();
  if (column == 0) return date ? m.strings.getShortTimeDate(*date) : std::string();
  return column == 1 ? one.string("N") : resultInWords(one.integer("C"), m.texts);
}

std::int64_t ErrorSummaryModel::id(std::size_t row) const {
  return static_cast<std::int64_t>(mFailures[row]["M"].asDate().value_or(0) * 1000);
}

std::string ErrorSummaryModel::details(std::size_t row) const {
  const ZAN_Value& one = mFailures[row];
  std::string text = resultInWords(one.integer("C"), m.texts);
  for (const char* key : {"F", "P"})
    if (one[key].isString() && !one.string(key).empty()) text += '\n' + one.string(key);
  return text;
}

std::string ErrorSummaryModel::launchAgain(std::size_t row) const {
  return launchByHand(m, {mFailures[row].integer("R")});
}

void ErrorSummaryModel::showLatestActions() const { m.commands.showLatestActions(); }

bool ErrorSummaryModel::isShownOnErrors() const { return m.preferences.mShowErrorWindows != 0; }

void ErrorSummaryModel::setShownOnErrors(bool shown) const {
  m.commands.setPreference(std::string(PreferenceKey::showErrorWindows), shown ? 1 : 0);
}

std::string ErrorSummaryModel::summary() const {
  return mFailures.empty() ? m.texts.text("ErrorsNone")
                           : m.texts.text("ErrorsCount", {mFailures.size()});
}

}  // namespace corvana
