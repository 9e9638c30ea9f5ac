#include "mail/report/ReportFacts.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/ComingRuns.h"
#include "actions/FolderDescription.h"
#include "actions/History.h"
#include "core/record/SchedulerLog.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "volumes/FreeSpaceHistory.h"

namespace corvana {
namespace {

constexpr double kDay = 86400;
constexpr double kMonth = 30 * kDay;
constexpr double kYear = 365 * kDay;
constexpr double kDiskIsKnown = 7 * kDay;
/// Less is no pace to be trusted.
constexpr double kShortestPace = 3 * kDay;
constexpr double kSoonFull = 60 * kDay;
constexpr double kOverdueAfterPeriods = 3;
constexpr double kLogDelay = 60;
constexpr double kComingDays = 14 * kDay;
constexpr std::size_t kMostComing = 8;
constexpr std::size_t kMostComingRuns = 5000;
constexpr std::size_t kMostNotes = 15;
constexpr std::size_t kLongestText = 600;
constexpr int kNoticedAsInterrupted = 16;

enum class Kind { running, completed, withErrors, stopped, failed };

Kind kindOf(std::int64_t code) {
  switch (code) {
    case LogCode::launched:
      return Kind::running;
    case LogCode::completedWithErrors:
      return Kind::withErrors;
    case LogCode::abortedByUser:
      return Kind::stopped;
    case LogCode::volumeNotFound:
    case LogCode::unexpectedError:
    case LogCode::crashed:
    case LogCode::timeOut:
    case LogCode::volumeGone:
    case LogCode::volumeNotAvailable:
    case kNoticedAsInterrupted:
      return Kind::failed;
    default:
      return Kind::completed;
  }
}

std::string shortened(const std::string& text) {
  const std::string whole = withReplacedBytes(text);
  if (whole.size() <= kLongestText) return whole;
  return std::string(beginningOfBytes(whole, kLongestText)) + "…";
}

/// Bytes a second that the free space grows by: the line that fits the days best.
std::optional<double> paceOf(const std::vector<std::pair<double, double>>& points) {
  if (points.size() < 2 || points.back().first - points.front().first < kShortestPace)
    return std::nullopt;
  double x = 0, y = 0;
  for (const auto& [date, free] : points) {
    x += date;
    y += free;
  }
  const auto count = static_cast<double>(points.size());
  x /= count;
  y /= count;
  double both = 0, dates = 0;
  for (const auto& [date, free] : points) {
    both += (date - x) * (free - y);
    dates += (date - x) * (date - x);
  }
  return both / dates;
}

}  // namespace

bool ReportFacts::Disk::isTight() const { return full || (size != 0 && free < size / 10); }

bool ReportFacts::needsAttention() const { return !attention.empty(); }

std::int64_t ReportFacts::overdue() const {
  return std::ranges::count(attention, ReportAttention::Weight::overdue, &ReportAttention::weight);
}

/// What is known of one action's runs in the period.
struct ReportGatherer::Action {
  std::string title;
  std::int64_t reference = 0;
  ReportFacts::Ran ran;
  std::int64_t bad = 0;  ///< runs
  ZAN_Value lastBad;
  std::optional<ReferenceTime> lastSuccess;  ///< at any time
};

std::string ReportGatherer::pastDate(ReferenceTime date, ReferenceTime now) const {
  const ZAN_DateUtils& calendar = m.store.dates().calendar();
  const std::string time = m.strings.getShortTime(date);
  const std::int64_t days = calendar.dayNumber(now) - calendar.dayNumber(date);
  if (days <= 0) return m.texts.text("ReportToday", {time});
  if (days == 1) return m.texts.text("ReportYesterday", {time});
  if (days < 7)
    return m.texts.text("ReportWeekday",
                        {calendar.weekdayName(calendar.weekdayForDate(date)), time});
  return m.strings.getShortDate(date);
}

ReportFacts ReportGatherer::gather(const ReportPeriod& period) {
  ReportFacts facts;
  facts.period = period;
  mLastSuccesses.clear();
  mFailed.clear();
  facts.machine = m.store.machine().networkName();
  mLog = m.history.log().readLogList();
  takeRuns(facts);
  takeOverdueAndComing(facts);
  takeDisks(facts);
  takeNotes(facts);
  std::ranges::stable_sort(facts.attention, {}, &ReportAttention::weight);
  return facts;
}

void ReportGatherer::takeRuns(ReportFacts& facts) {
  m.history.reloadProgrammedHistoryList();
  const ZAN_Value list = m.history.getProgrammedHistoryList();
  std::map<std::pair<std::int64_t, std::string>, Action> actions;
  for (const ZAN_Value& entry : list.elements()) {
    const auto date = entry["Date"].asDate();
    if (!date || *date >= facts.period.until) continue;
    // One without reference is told apart by its title.
    const std::int64_t reference = entry.integer("Ref");
    Action& action = actions[{reference, reference == 0 ? entry.string("Title") : std::string()}];
    action.reference = reference;
    action.title = shortened(entry.string("Title"));
    facts.lastRun = std::max(facts.lastRun.value_or(*date), *date);
    if (kindOf(entry.integer("C")) == Kind::completed)
      action.lastSuccess = std::max(action.lastSuccess.value_or(*date), *date);
    // It may have begun before and ended within.
    if (entry["EndDate"].asDate().value_or(*date) < facts.period.since) continue;
    takeRun(entry, action, facts);
  }
  for (auto& [key, action] : actions) {
    if (action.lastSuccess) mLastSuccesses[action.reference] = *action.lastSuccess;
    if (action.bad > 0) mFailed.insert(action.reference);
    if (action.ran.runs == 0) continue;
    action.ran.title = action.title;
    if (action.bad > 0) facts.attention.push_back(attentionOf(action, facts.period.until));
    if (action.bad < action.ran.runs || action.ran.bytes) facts.ran.push_back(action.ran);
  }
  std::ranges::sort(facts.ran, {},
                    [](const ReportFacts::Ran& ran) { return foldedCase(ran.title); });
}

void ReportGatherer::takeRun(const ZAN_Value& entry, Action& action, ReportFacts& facts) const {
  Kind kind = kindOf(entry.integer("C"));
  if (kind == Kind::running) {
    if (!hasCrashed(entry)) return;
    kind = Kind::failed;
  }
  const ReferenceTime date = *entry["Date"].asDate();
  ++action.ran.runs;
  action.ran.seconds += std::max(entry["EndDate"].asDate().value_or(date) - date, 0.0);
  if (entry.contains("FilesCopied"))
    action.ran.files = action.ran.files.value_or(0) + entry["FilesCopied"].unsignedValue();
  if (entry.contains("SizeCopied")) {
    action.ran.bytes = action.ran.bytes.value_or(0) + entry["SizeCopied"].unsignedValue();
    if (entry["FilesCopied"].unsignedValue() == 0 && kind == Kind::completed)
      ++action.ran.withoutNews;
  }
  switch (kind) {
    case Kind::completed:
      ++facts.completed;
      break;
    case Kind::stopped:
      facts.skipped.push_back(
          m.texts.text("ReportStopped", {action.title, pastDate(date, facts.period.until)}));
      break;
    default:
      ++(kind == Kind::failed ? facts.failed : facts.withErrors);
      ++action.bad;
      action.lastBad = entry;
  }
}

bool ReportGatherer::hasCrashed(const ZAN_Value& run) const {
  return std::ranges::any_of(mLog.elements(), [&](const ZAN_Value& entry) {
    return entry.integer("C") == LogCode::crashed && entry.integer("R") == run.integer("Ref") &&
           entry["M"].asDate().value_or(0) >= run["Date"].asDate().value_or(0);
  });
}

/// In the words of whoever ran it, as the log has them.
std::string ReportGatherer::reasonOf(const ZAN_Value& run) const {
  const ReferenceTime end = run["EndDate"].asDate().value_or(run["Date"].asDate().value_or(0));
  std::string reason;
  for (const ZAN_Value& entry : mLog.elements()) {
    if (entry.integer("C") != run.integer("C") || entry.integer("R") != run.integer("Ref"))
      continue;
    const ReferenceTime date = entry["M"].asDate().value_or(0);
    if (date < run["Date"].asDate().value_or(0) - 1 || date > end + kLogDelay) continue;
    reason = entry.string("F");
    if (const std::string path = entry.string("P"); !path.empty())
      reason += (reason.empty() ? "" : ": ") + path;
  }
  return shortened(reason);
}

ReportAttention ReportGatherer::attentionOf(const Action& action, ReferenceTime now) const {
  const ZAN_Value& run = action.lastBad;
  const ReferenceTime date = run["Date"].asDate().value_or(0);
  ReportAttention attention;
  attention.weight = kindOf(run.integer("C")) == Kind::withErrors ? ReportAttention::Weight::caution
                                                                  : ReportAttention::Weight::failed;
  std::string what;
  switch (run.integer("C")) {
    case LogCode::volumeNotFound:
    case LogCode::volumeNotAvailable:
      attention.title = m.texts.text("ReportNotThere", {action.title});
      what = m.texts.text("ReportDoConnect");
      break;
    case LogCode::volumeGone:
      attention.title = m.texts.text("ReportWentAway", {action.title});
      what = m.texts.text("ReportDoConnect");
      break;
    case LogCode::timeOut:
      attention.title = m.texts.text("ReportTookTooLong", {action.title});
      what = m.texts.text("ReportDoLook");
      break;
    case LogCode::completedWithErrors:
      attention.title = m.texts.text("ReportErrors", {action.title, run.integer("ActionErrors")});
      what = m.texts.text("ReportDoErrors");
      break;
    case LogCode::unexpectedError:
      attention.title = m.texts.text("ReportEndedByError", {action.title});
      what = m.texts.text("ReportDoLook");
      break;
    default:
      attention.title = m.texts.text("ReportEndedUnexpectedly", {action.title});
      what = m.texts.text("ReportDoLook");
  }
  const bool isOver = action.lastSuccess && *action.lastSuccess > date;
  const std::string reason = reasonOf(run);
  attention.text = reason;
  const auto add = [&](const std::string& sentence) {
    if (!attention.text.empty()) attention.text += attention.text.ends_with('.') ? " " : ". ";
    attention.text += sentence;
  };
  if (action.bad > 1) add(m.texts.text("ReportTimes", {action.bad}));
  add(action.lastSuccess ? m.texts.text("ReportLastSuccess", {pastDate(*action.lastSuccess, now)})
                         : m.texts.text("ReportNoSuccess"));
  if (isOver) {
    attention.weight = ReportAttention::Weight::caution;
    add(m.texts.text("ReportIsOver"));
  } else {
    add(what);
  }
  return attention;
}

void ReportGatherer::takeOverdueAndComing(ReportFacts& facts) const {
  const ReferenceTime now = facts.period.until;
  const ZAN_DateUtils& calendar = m.store.dates().calendar();
  const ActionsTools tools(calendar, now);
  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getListOfAllProgrammedActions(actions);
  ComingRuns runs(calendar, now, {});
  for (const ProgrammedAction* action : actions)
    runs.add(action->schedule(), action->getActionContext());
  std::map<std::size_t, ReferenceTime> first;
  std::set<std::size_t> settled;
  for (std::size_t count = 0; count < kMostComingRuns && settled.size() < actions.size(); ++count) {
    const auto run = runs.next();
    if (!run || run->date > now + kComingDays) break;
    if (run->shutDown) continue;
    const ProgrammedAction& action = *actions[run->action];
    const auto [known, isFirst] = first.emplace(run->action, run->date);
    if (isFirst && facts.coming.size() < kMostComing) {
      facts.coming.push_back(
          {shortened(action.getTitle()),
           tools.getScheduleStringForDate(run->date, {.table = m.texts, .strings = m.strings})});
    }
    if (isFirst || !settled.insert(run->action).second) continue;
    takeIfOverdue(action, run->date - known->second, facts);
  }
}

/// Whatever the cause: nothing came of it for three times as long as it should take.
void ReportGatherer::takeIfOverdue(const ProgrammedAction& action, double period,
                                   ReportFacts& facts) const {
  const ReferenceTime now = facts.period.until;
  const auto found = mLastSuccesses.find(action.getReference());
  const auto executed = ActionsTools::getLastExecutionDateForSettings(action.getSettings());
  std::optional<ReferenceTime> success = executed;
  if (found != mLastSuccesses.end()) success = std::max(success.value_or(0), found->second);
  const auto since = success ? success : action.getCreationDate();
  if (!since || now - *since < std::max(kOverdueAfterPeriods * period, kDay)) return;
  // What has failed stands there already.
  if (mFailed.contains(action.getReference())) return;
  facts.attention.push_back({ReportAttention::Weight::overdue,
                             m.texts.text("ReportOverdueTitle", {shortened(action.getTitle())}),
                             (success ? m.texts.text("ReportLastSuccess", {pastDate(*success, now)})
                                      : m.texts.text("ReportNoSuccess")) +
                                 " " + m.texts.text("ReportOverdueText", {action.getReference()})});
}

void ReportGatherer::takeDisks(ReportFacts& facts) const {
  const ReferenceTime now = facts.period.until;
  m.store.files().writeKept();
  const ZAN_Value list = m.store.files().readListFromFile(DataFolder::kVolumesInfo);
  for (const ZAN_Value& entry : list.elements()) {
    const FolderDescription described(entry);
    const ZAN_Value records = FreeSpaceHistory::records(entry);
    if (described.volumeSize() == 0 || records.empty()) continue;
    std::vector<std::pair<double, double>> points;
    for (const ZAN_Value& record : records.elements()) {
      const double date = record["D"].doubleValue();
      if (date > now - kMonth && date <= now) points.emplace_back(date, record["E"].doubleValue());
    }
    if (points.empty() || points.back().first < now - kDiskIsKnown) continue;
    ReportFacts::Disk disk;
    disk.name = shortened(std::string(described.volumeName()));
    disk.size = described.volumeSize();
    disk.free =
        std::min(static_cast<std::uint64_t>(std::max(points.back().second, 0.0)), disk.size);
    if (const auto pace = paceOf(points); pace && *pace < 0) {
      const double seconds = static_cast<double>(disk.free) / -*pace;
      if (seconds < kYear) disk.full = now + seconds;
    }
    if (disk.full && *disk.full > now + kSoonFull) disk.full.reset();
    facts.disks.push_back(disk);
  }
  std::ranges::stable_sort(facts.disks, std::greater<>(), [](const ReportFacts::Disk& disk) {
    return std::pair(disk.isTight(),
                     static_cast<double>(disk.size - disk.free) / static_cast<double>(disk.size));
  });
}

/// The newest, each once.
void ReportGatherer::takeNotes(ReportFacts& facts) const {
  const auto log = mLog.elements();
  std::set<std::string> seen;
  for (auto entry = log.rbegin(); entry != log.rend() && seen.size() < kMostNotes; ++entry) {
    const ReferenceTime date = (*entry)["M"].asDate().value_or(0);
    if (entry->integer("C") != LogCode::message || date < facts.period.since ||
        date >= facts.period.until)
      continue;
    std::string text = shortened(entry->string("N"));
    if (!text.empty() && seen.insert(text).second) facts.notes.push_back(std::move(text));
  }
  std::ranges::reverse(facts.notes);
}

}  // namespace corvana
