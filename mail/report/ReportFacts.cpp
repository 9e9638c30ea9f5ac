#include "mail/report/ReportFacts.h"

#include <algorithm>

#include "ZANCocoaFramework/ZAN_Translation.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/Forecast.h"
#include "actions/History.h"
#include "actions/TaskRequest.h"
#include "core/record/SchedulerLog.h"
#include "core/work/AgeAlarm.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "volumes/VolumesHistory.h"

namespace corvana {
namespace {

constexpr double kDay = 86400;
constexpr double kMonth = 30 * kDay;
constexpr double kYear = 365 * kDay;
constexpr double kDiskIsKnown = 7 * kDay;
/// Less is no pace to be trusted.
constexpr double kShortestPace = 3 * kDay;
constexpr double kSoonFull = 60 * kDay;
constexpr double kLogDelay = 60;
constexpr double kComingDays = 14 * kDay;
constexpr std::size_t kMostComing = 8;
constexpr std::size_t kMostComingRuns = 5000;
constexpr std::size_t kMostNotes = 15;
constexpr std::size_t kLongestText = 600;
constexpr int kNoticedAsInterrupted = 16;

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

/// It has copied all that can be, and counts as a success that leaves something to be done.
bool isWholeButForLacks(const ZAN_Value& run) { return run.integer(RunKey::onlyLacks) != 0; }

}  // namespace

RunKind kindOfRun(std::int64_t code) {
  switch (code) {
    case LogCode::launched:
      return RunKind::running;
    case LogCode::completedWithErrors:
      return RunKind::withErrors;
    case LogCode::abortedByUser:
      return RunKind::stopped;
    case LogCode::volumeNotFound:
    case LogCode::unexpectedError:
    case LogCode::crashed:
    case LogCode::timeOut:
    case LogCode::volumeGone:
    case LogCode::volumeNotAvailable:
    case kNoticedAsInterrupted:
      return RunKind::failed;
    default:
      return RunKind::completed;
  }
}

bool ReportFacts::Disk::isTight() const { return full || (size != 0 && free < size / 10); }

bool ReportFacts::hasFailures() const {
  return std::ranges::any_of(attention, [](const ReportAttention& one) {
    return one.weight != ReportAttention::Weight::lacking;
  });
}

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
  ZAN_Value lack;  ///< the last run in the period, when it lacks only what cannot be copied
  std::optional<ReferenceTime> lastSuccess;  ///< at any time
};

std::string ReportGatherer::pastDate(ReferenceTime date, ReferenceTime now) const {
  const ZAN_DateUtils& calendar = mStore.dates().calendar();
  const std::string time = mStrings.getShortTime(date);
  const std::int64_t days = calendar.dayNumber(now) - calendar.dayNumber(date);
  if (days <= 0) return mTexts.text("ReportToday", {time});
  if (days == 1) return mTexts.text("ReportYesterday", {time});
  if (days < 7)
    return mTexts.text("ReportWeekday",
                       {calendar.weekdayName(calendar.weekdayForDate(date)), time});
  return mStrings.getShortDate(date);
}

ReportFacts ReportGatherer::gather(const ReportPeriod& period) {
  ReportFacts facts;
  facts.period = period;
  mFailed.clear();
  facts.machine = mStore.machine().networkName();
  mLog = mHistory.log().readLogList();
  takeRuns(facts);
  ProgrammedAction::Nodes actions;
  mTree.rootItem().getListOfAllProgrammedActions(actions);
  takeOverdue(actions, facts);
  takeComing(actions, facts);
  takeDisks(facts);
  takeNotes(facts);
  std::ranges::stable_sort(facts.attention, {}, &ReportAttention::weight);
  return facts;
}

void ReportGatherer::takeRuns(ReportFacts& facts) {
  mHistory.reloadProgrammedHistoryList();
  const ZAN_Value list = mHistory.getProgrammedHistoryList();
  std::map<std::pair<std::int64_t, std::string>, Action> actions;
  for (const ZAN_Value& entry : list.elements()) {
    const auto date = entry["Date"].asDate();
    if (!date || *date >= facts.period.until || entry.contains(TaskRequest::kTaskKey)) continue;
    // One without reference is told apart by its title.
    const std::int64_t reference = entry.integer("Ref");
    Action& action = actions[{reference, reference == 0 ? entry.string("Title") : std::string()}];
    action.reference = reference;
    action.title = shortened(entry.string("Title"));
    facts.lastRun = std::max(facts.lastRun.value_or(*date), *date);
    if (kindOfRun(entry.integer("C")) == RunKind::completed || isWholeButForLacks(entry))
      action.lastSuccess = std::max(action.lastSuccess.value_or(*date), *date);
    // It may have begun before and ended within.
    if (entry["EndDate"].asDate().value_or(*date) < facts.period.since) continue;
    takeRun(entry, action, facts);
  }
  for (auto& [key, action] : actions) {
    if (action.bad > 0) mFailed.insert(action.reference);
    if (action.ran.runs == 0) continue;
    action.ran.title = action.title;
    if (action.bad > 0) facts.attention.push_back(attentionOf(action, facts.period.until));
    if (!action.lack.isNull()) facts.attention.push_back(lackOf(action));
    if (action.bad < action.ran.runs || action.ran.bytes) facts.ran.push_back(action.ran);
  }
  std::ranges::sort(facts.ran, {},
                    [](const ReportFacts::Ran& ran) { return foldedCase(ran.title); });
}

void ReportGatherer::takeRun(const ZAN_Value& entry, Action& action, ReportFacts& facts) const {
  RunKind kind = kindOfRun(entry.integer("C"));
  if (kind == RunKind::running) {
    if (!hasCrashed(entry)) return;
    kind = RunKind::failed;
  }
  const ReferenceTime date = *entry["Date"].asDate();
  const bool isWhole = isWholeButForLacks(entry);
  action.lack = isWhole ? entry : ZAN_Value();
  if (isWhole) kind = RunKind::completed;
  ++action.ran.runs;
  action.ran.seconds += std::max(entry["EndDate"].asDate().value_or(date) - date, 0.0);
  if (entry.contains("FilesCopied"))
    action.ran.files = action.ran.files.value_or(0) + entry["FilesCopied"].unsignedValue();
  if (entry.contains("SizeCopied")) {
    action.ran.bytes = action.ran.bytes.value_or(0) + entry["SizeCopied"].unsignedValue();
    if (entry["FilesCopied"].unsignedValue() == 0 && kind == RunKind::completed)
      ++action.ran.withoutNews;
  }
  switch (kind) {
    case RunKind::completed:
      ++facts.completed;
      break;
    case RunKind::stopped:
      facts.skipped.push_back(
          mTexts.text("ReportStopped", {action.title, pastDate(date, facts.period.until)}));
      break;
    default:
      ++(kind == RunKind::failed ? facts.failed : facts.withErrors);
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
    reason = translated(mTexts, entry.string("F"));
    if (const std::string path = entry.string("P"); !path.empty())
      reason += (reason.empty() ? "" : ": ") + path;
  }
  return shortened(reason);
}

ReportAttention ReportGatherer::attentionOf(const Action& action, ReferenceTime now) const {
  const ZAN_Value& run = action.lastBad;
  const ReferenceTime date = run["Date"].asDate().value_or(0);
  ReportAttention attention;
  attention.weight = kindOfRun(run.integer("C")) == RunKind::withErrors
                         ? ReportAttention::Weight::caution
                         : ReportAttention::Weight::failed;
  std::string what;
  switch (run.integer("C")) {
    case LogCode::volumeNotFound:
    case LogCode::volumeNotAvailable:
      attention.title = mTexts.text("ReportNotThere", {action.title});
      what = mTexts.text("ReportDoConnect");
      break;
    case LogCode::volumeGone:
      attention.title = mTexts.text("ReportWentAway", {action.title});
      what = mTexts.text("ReportDoConnect");
      break;
    case LogCode::timeOut:
      attention.title = mTexts.text("ReportTookTooLong", {action.title});
      what = mTexts.text("ReportDoLook");
      break;
    case LogCode::completedWithErrors:
      attention.title = mTexts.text("ReportErrors", {action.title, run.integer("ActionErrors")});
      what = mTexts.text("ReportDoErrors");
      break;
    case LogCode::unexpectedError:
      attention.title = mTexts.text("ReportEndedByError", {action.title});
      what = mTexts.text("ReportDoLook");
      break;
    default:
      attention.title = mTexts.text("ReportEndedUnexpectedly", {action.title});
      what = mTexts.text("ReportDoLook");
  }
  const bool isOver = action.lastSuccess && *action.lastSuccess > date;
  const std::string reason = reasonOf(run);
  attention.text = reason;
  const auto add = [&](const std::string& sentence) {
    if (!attention.text.empty()) attention.text += attention.text.ends_with('.') ? " " : ". ";
    attention.text += sentence;
  };
  if (action.bad > 1) add(mTexts.text("ReportTimes", {action.bad}));
  add(action.lastSuccess ? mTexts.text("ReportLastSuccess", {pastDate(*action.lastSuccess, now)})
                         : mTexts.text("ReportNoSuccess"));
  if (isOver) {
    attention.weight = ReportAttention::Weight::caution;
    add(mTexts.text("ReportIsOver"));
  } else {
    add(what);
  }
  return attention;
}

ReportAttention ReportGatherer::lackOf(const Action& action) const {
  return {ReportAttention::Weight::lacking,
          mTexts.text("ReportLacks", {action.title, action.lack.integer("ActionErrors")}),
          mTexts.text("ReportDoLacks", {action.reference})};
}

void ReportGatherer::takeComing(const ProgrammedAction::Nodes& actions, ReportFacts& facts) const {
  const ReferenceTime now = facts.period.until;
  const ActionsTools tools(mStore.dates().calendar(), now);
  ComingRuns runs(mStore.dates().calendar(), now, {});
  for (const ProgrammedAction* action : actions)
    runs.add(action->schedule(), action->getActionContext());
  std::set<std::size_t> named;
  for (std::size_t count = 0; count < kMostComingRuns && named.size() < kMostComing; ++count) {
    const auto run = runs.next();
    if (!run || run->date > now + kComingDays) break;
    if (run->shutDown || !named.insert(run->action).second) continue;
    facts.coming.push_back(
        {shortened(actions[run->action]->getTitle()),
         tools.getScheduleStringForDate(run->date, {.table = mTexts, .strings = mStrings})});
  }
}

/// Whatever the cause. What has failed stands there already.
void ReportGatherer::takeOverdue(const ProgrammedAction::Nodes& actions, ReportFacts& facts) const {
  const ReferenceTime now = facts.period.until;
  for (const ProgrammedAction* action : actions) {
    if (mFailed.contains(action->getReference()) ||
        !AgeAlarm::overdueSince(*action, mStore.dates().calendar(), now))
      continue;
    const auto success = ActionsTools::getLastSuccessDateForSettings(action->getSettings());
    facts.attention.push_back(
        {ReportAttention::Weight::overdue,
         mTexts.text("ReportOverdueTitle", {shortened(action->getTitle())}),
         (success ? mTexts.text("ReportLastSuccess", {pastDate(*success, now)})
                  : mTexts.text("ReportNoSuccess")) +
             " " + mTexts.text("ReportOverdueText", {action->getReference()})});
  }
}

void ReportGatherer::takeDisks(ReportFacts& facts) const {
  const ReferenceTime now = facts.period.until;
  mStore.files().writeKept();
  const ZAN_Value list = mStore.files().readListFromFile(DataFolder::kVolumesInfo);
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
