#include "actions/ActionsTools.h"

#include <algorithm>
#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"

// What a settings record says about its action beside the schedule.

namespace corvana {

namespace {

constexpr double kMargin = 120;  ///< after the last date; a nearer point is the same occasion
constexpr std::int64_t kCalendarStep = 86400;
constexpr double kDay = 86400;

/// Instants within the calendar's bounds; null for what is no number.
std::optional<ReferenceTime> held(std::optional<ReferenceTime> date) {
  if (!date || std::isnan(*date)) return std::nullopt;
  return std::clamp(*date, -ZAN_DateUtils::kFarthest, ZAN_DateUtils::kFarthest);
}

std::optional<ReferenceTime> storedDate(const ZAN_Value& settings, std::string_view key) {
  const std::optional<ReferenceTime> date = settings[key].asDate();
  return date && std::isfinite(*date) ? date : std::nullopt;
}

/// The first of `candidate`, + `delay`, + `delay`… that is not earlier than the threshold.
ReferenceTime steppedByElapsedTime(ReferenceTime candidate, ReferenceTime threshold,
                                   std::int64_t delay) {
  if (candidate >= threshold || delay < 1) return candidate;
  const auto step = static_cast<double>(delay);
  double steps = std::ceil((threshold - candidate) / step);
  // The division may be off by one in its last digit.
  if (candidate + (steps - 1) * step >= threshold) --steps;
  if (candidate + steps * step < threshold) ++steps;
  return candidate + steps * step;
}

/// The first of `candidate`, the next day + `increment`, the day after that + `increment`… that is
/// not earlier than the threshold. Only the last few days are walked, and those around a day that
/// the zone left out: in between every step is equally long.
ReferenceTime steppedByDays(const ZAN_DateUtils& calendar, ReferenceTime candidate,
                            ReferenceTime threshold, std::int64_t increment) {
  const std::int64_t stride = 1 + std::max<std::int64_t>(increment, 0) / kCalendarStep;
  const std::int64_t margin = 4 * stride;
  while (candidate < threshold) {
    const std::int64_t day = calendar.dayNumber(candidate);
    const std::int64_t regularUntil =
        std::min(calendar.dayNumber(threshold), calendar.nextSkippedDay(day));
    std::int64_t next = day + 1;
    if (const std::int64_t far = regularUntil - margin - day; far > stride)
      next = day + far / stride * stride - stride + 1;
    if (calendar.nextSkippedDay(next) == next) ++next;
    const ReferenceTime stepped = calendar.timeOnDay(next, increment);
    if (stepped <= candidate) break;
    candidate = stepped;
  }
  return candidate;
}

}  // namespace

/// The hours of the day within which an action may run, and where its day begins.
struct ActionsTools::AllowedHours {
  bool isOn = false;
  int from = 0;
  int to = 0;
  ReferenceTime dayStart = 0;
};

ActionsTools::ActionsTools(const ZAN_DateUtils& calendar, ReferenceTime now, Log log)
    : mCalendar(calendar),
      mNow(held(now).value_or(0)),
      mTodayNumber(calendar.dayNumber(mNow)),
      mToday(calendar.firstInstantOfDay(mTodayNumber)),
      mLog(std::move(log)) {}

ActionsTools::AllowedHours ActionsTools::allowedHours(const Schedule& schedule) const {
  if (!schedule.hasAllowedHours) return {.dayStart = mToday};
  const auto secondsOf = [this](std::optional<ReferenceTime> bound) {
    return bound ? mCalendar.secondsInDay(*bound) : 0;
  };
  AllowedHours hours{
      .isOn = true, .from = secondsOf(schedule.allowedFrom), .to = secondsOf(schedule.allowedTo)};
  hours.dayStart = mCalendar.timeOnDay(mTodayNumber, hours.from);
  return hours;
}

bool ActionsTools::isOutside(const AllowedHours& hours, ReferenceTime date) const {
  if (!hours.isOn) return false;
  const int seconds = mCalendar.secondsInDay(date);
  return seconds < hours.from || seconds > hours.to;
}

std::optional<ReferenceTime> ActionsTools::heldLast(std::optional<ReferenceTime> last) const {
  const std::optional<ReferenceTime> date = held(last);
  return date && *date > mNow + kDay ? mNow : date;
}

std::optional<ReferenceTime> ActionsTools::getNextScheduleDateForSettings(const Schedule& schedule,
                                                                          bool firstAfterStartup,
                                                                          bool* shutDown) const {
  if (shutDown != nullptr) *shutDown = false;
  if (!schedule.automatic) return std::nullopt;
  const AllowedHours hours = allowedHours(schedule);
  const std::optional<ReferenceTime> last = heldLast(schedule.lastScheduleDate);
  std::optional<ReferenceTime> date = periodicDate(schedule, firstAfterStartup, last, hours);
  if (date && isOutside(hours, *date)) date.reset();
  const Programmed programmed = programmedDate(schedule, last, hours);
  if (shutDown != nullptr) *shutDown = programmed.shutDown;
  if (programmed.date && (!date || *programmed.date < *date)) return programmed.date;
  return date;
}

std::optional<ReferenceTime> ActionsTools::getNextScheduleDateForSettings(const ZAN_Value& settings,
                                                                          bool firstAfterStartup,
                                                                          bool* shutDown) const {
  return getNextScheduleDateForSettings(Schedule(settings), firstAfterStartup, shutDown);
}

std::optional<ReferenceTime> ActionsTools::periodicDate(const Schedule& schedule,
                                                        bool firstAfterStartup,
                                                        std::optional<ReferenceTime> last,
                                                        const AllowedHours& hours) const {
  constexpr std::int64_t quarter = 900;
  constexpr std::int64_t hour = 3600;
  const std::optional<ReferenceTime> nowAfterStartup =
      firstAfterStartup ? std::optional(mNow) : std::nullopt;
  const auto dayStartOfTomorrow = [&] {
    return mCalendar.timeOfDay(mCalendar.nextDay(mToday), hours.from);
  };
  switch (schedule.kind) {
    case ScheduleKind::daily:
      if (!schedule.time) return std::nullopt;
      return getNextSchedule(mToday, last, 0, mCalendar.secondsInDay(*schedule.time),
                             kCalendarStep);
    case ScheduleKind::minutes: {
      // The series continues from the last run, and today's beginning is what it has to reach.
      const std::optional<ReferenceTime> start =
          last ? std::optional(mCalendar.dayAt0Seconds(*last)) : std::nullopt;
      return getNextSchedule(start, hours.dayStart, 0, schedule.minutes * 60,
                             schedule.minutes * 60);
    }
    case ScheduleKind::hourly:
      return getNextSchedule(hours.dayStart, last, schedule.hourDelay * quarter, 0, hour);
    case ScheduleKind::threeHourly:
      return getNextSchedule(hours.dayStart, last, schedule.hourDelay * quarter, 0, 3 * hour);
    case ScheduleKind::firstStartUpOfDay:
      if (!last || *last < mToday - 60) return nowAfterStartup;
      return dayStartOfTomorrow();
    case ScheduleKind::startUp:
      return nowAfterStartup;
    case ScheduleKind::nextDay:
      if (!last || mCalendar.dayNumber(*last) != mTodayNumber) return std::nullopt;
      return dayStartOfTomorrow();
    default:
      return std::nullopt;
  }
}

ReferenceTime ActionsTools::getNextSchedule(std::optional<ReferenceTime> start,
                                            std::optional<ReferenceTime> lastSchedule,
                                            std::int64_t startTime, std::int64_t increment,
                                            std::int64_t delay) const {
  const ReferenceTime first = held(start).value_or(mToday);
  const std::optional<ReferenceTime> last = held(lastSchedule);
  const double threshold = last ? *last + kMargin : -std::numeric_limits<double>::infinity();
  ReferenceTime candidate;
  if (delay == kCalendarStep) {
    const std::int64_t day = mCalendar.dayNumber(first);
    candidate = first == mCalendar.firstInstantOfDay(day)
                    ? mCalendar.timeOnDay(day, increment)
                    : mCalendar.addClockSeconds(first, increment);
    candidate = steppedByDays(mCalendar, candidate, threshold, increment);
  } else {
    candidate = steppedByElapsedTime(first + static_cast<double>(increment), threshold, delay);
  }
  return candidate + static_cast<double>(startTime);
}

ActionsTools::Programmed ActionsTools::getNextScheduleProgrammed(const Schedule& schedule) const {
  return programmedDate(schedule, heldLast(schedule.lastScheduleDate), allowedHours(schedule));
}

ActionsTools::Programmed ActionsTools::getNextScheduleProgrammed(const ZAN_Value& settings) const {
  return getNextScheduleProgrammed(Schedule(settings));
}

ActionsTools::Programmed ActionsTools::programmedDate(const Schedule& schedule,
                                                      std::optional<ReferenceTime> last,
                                                      const AllowedHours& hours) const {
  if (!schedule.listDamage.empty()) {
    if (mLog) mLog("Exception in getNextScheduleProgrammed: " + schedule.listDamage);
    return {};
  }
  Programmed best;
  if (schedule.list.empty()) return best;
  const std::int64_t startDay = hours.isOn ? mCalendar.dayNumber(hours.dayStart) : mTodayNumber;
  for (const ScheduleEntry& entry : schedule.list) {
    const std::optional<ReferenceTime> date = entryDate(entry, startDay, last);
    if (!date || isOutside(hours, *date) || (best.date && *date >= *best.date)) continue;
    best.date = date;
    best.startUp = best.startUp || entry.occasion == ScheduleEntry::Occasion::startUp;
    best.shutDown = best.shutDown || entry.occasion == ScheduleEntry::Occasion::shutDown;
  }
  return best;
}

ActionsTools::Programmed ActionsTools::getNextScheduleForDict(
    const ScheduleEntry& entry, ReferenceTime start, std::optional<ReferenceTime> last) const {
  Programmed result;
  result.date = entryDate(entry, mCalendar.dayNumber(start), held(last));
  if (result.date) {
    result.startUp = entry.occasion == ScheduleEntry::Occasion::startUp;
    result.shutDown = entry.occasion == ScheduleEntry::Occasion::shutDown;
  }
  return result;
}

std::optional<ReferenceTime> ActionsTools::entryDate(const ScheduleEntry& entry,
                                                     std::int64_t startDay,
                                                     std::optional<ReferenceTime> last) const {
  if (!entry.time) return std::nullopt;
  const int seconds = mCalendar.secondsInDay(*entry.time);
  ScheduleDays days(entry, mCalendar, startDay, ZAN_CivilDay::ofNumber(mTodayNumber).year);
  while (const std::optional<std::int64_t> day = days.next()) {
    const std::optional<ReferenceTime> date = dateOnDay(*day, last, seconds);
    if (date && mCalendar.dayNumber(*date) == *day) return date;
  }
  return std::nullopt;
}

std::optional<ReferenceTime> ActionsTools::dateOnDay(std::int64_t day,
                                                     std::optional<ReferenceTime> last,
                                                     int seconds) const {
  const ReferenceTime date = mCalendar.timeOnDay(day, seconds);
  return last && date < *last + kMargin ? std::nullopt : std::optional(date);
}

std::optional<ReferenceTime> ActionsTools::getNextScheduleForDay(
    ReferenceTime day, std::optional<ReferenceTime> lastSchedule,
    std::optional<ReferenceTime> startTime, int) const {
  if (!startTime || std::isnan(*startTime)) return std::nullopt;
  return dateOnDay(mCalendar.dayNumber(day), held(lastSchedule),
                   mCalendar.secondsInDay(*startTime));
}

std::optional<ReferenceTime> ActionsTools::getLastScheduleDateForSettings(const Schedule& schedule,
                                                                          bool) const {
  return heldLast(schedule.lastScheduleDate);
}

std::optional<ReferenceTime> ActionsTools::getLastScheduleDateForSettings(const ZAN_Value& settings,
                                                                          bool) const {
  return heldLast(storedDate(settings, "LastScheduleDate"));
}

bool ActionsTools::isLastScheduleDateAhead(const ZAN_Value& settings) const {
  const std::optional<ReferenceTime> last = storedDate(settings, "LastScheduleDate");
  return last && *last > mNow + kDay;
}

namespace {

/// What is in an archive, null when that is damaged; anything else as it is.
ZAN_Value unwrapped(const ZAN_Value& value) {
  if (!value.isData()) return value;
  Result<ZAN_Value> stored = ZAN_Unarchiver::unarchiveObjectWithData(value.bytes());
  return stored ? std::move(stored).value() : ZAN_Value();
}

/// Folder descriptions come as one, as an array, or as an archive of either.
void appendFolders(const ZAN_Value& value, std::vector<FolderDescription>& folders) {
  const ZAN_Value plain = unwrapped(value);
  if (plain.isDictionary()) folders.emplace_back(plain);
  if (!plain.isArray()) return;
  for (const ZAN_Value& element : plain.elements())
    folders.emplace_back(element.isDictionary() ? element : ZAN_Value::dictionary());
}

}  // namespace

std::optional<ReferenceTime> ActionsTools::getLastExecutionDateForSettings(
    const ZAN_Value& settings) {
  const std::optional<ReferenceTime> date = settings["LastExecutionDate"].asDate();
  return date && std::isfinite(*date) ? date : std::nullopt;
}

std::optional<ReferenceTime> ActionsTools::getLastSuccessDateForSettings(
    const ZAN_Value& settings) {
  if (!isExecutedByUs(settings) || !settings.contains(ActionKey::lastSuccess))
    return getLastExecutionDateForSettings(settings);
  const std::optional<ReferenceTime> date = settings[ActionKey::lastSuccess].asDate();
  return date && std::isfinite(*date) && *date != 0 ? date : std::nullopt;
}

std::int64_t ActionsTools::getExecutionsCountForSettings(const ZAN_Value& settings) {
  return settings.integer("ExecCounter");
}

bool ActionsTools::hasSourceList(const ZAN_Value& settings) {
  for (const char* const key : {"ItemsListOfSourcePath", "ItemsSource"}) {
    const ZAN_Value list = unwrapped(settings[key]);
    if (list.isArray() || list.isDictionary()) return true;
  }
  return false;
}

std::vector<FolderDescription> ActionsTools::getSourcesForAction(const ZAN_Value& settings) {
  std::vector<FolderDescription> folders;
  appendFolders(settings["ItemsListOfSourcePath"], folders);
  if (folders.empty()) appendFolders(settings["ItemsSource"], folders);
  return folders;
}

FolderDescription ActionsTools::getDestinationForAction(const ZAN_Value& settings) {
  std::vector<FolderDescription> folders;
  appendFolders(settings["ItemsDestination"], folders);
  return folders.empty() ? FolderDescription() : folders.front();
}

void ActionsTools::leaveOutMissing(ZAN_Value& settings) {
  ZAN_Value patterns = ZAN_Value::array();
  for (const std::string_view key : {CopyKey::exclusions, CopyKey::notPossible}) {
    for (const ZAN_Value& pattern : settings[key].elements()) {
      const auto known = patterns.elements();
      if (std::ranges::find(known, pattern) == known.end()) patterns.append(pattern);
    }
  }
  settings.setValue(CopyKey::exclusions, std::move(patterns));
  settings.setValue(CopyKey::notPossible, ZAN_Value::array());
}

bool ActionsTools::isExecutedByUs(const ZAN_Value& settings) {
  return settings["OptionsPerformer"].stringView() == "corvana9";
}

bool ActionsTools::toleratesOtherVolumes(const ZAN_Value& settings) {
  return settings.integer("ItemsVolumeTolerance") != 0;
}

namespace {

/// Known UUIDs that differ are two volumes that take turns at one path.
bool mayBeOneVolume(const FolderDescription& one, const FolderDescription& other) {
  return one.uuid().empty() || other.uuid().empty() || one.uuid() == other.uuid();
}

struct FilledCopy {
  std::string path;
  FolderDescription source;
};

std::vector<FilledCopy> copiesOf(const ZAN_Value& settings) {
  std::vector<FilledCopy> copies;
  if (!ActionsTools::isExecutedByUs(settings)) return copies;
  const std::string destination(ActionsTools::getDestinationForAction(settings).path());
  if (destination.empty()) return copies;
  for (auto& source : ActionsTools::getSourcesForAction(settings)) {
    const auto name = ZAN_FilesUtils::lastPathComponent(source.path());
    copies.push_back({ZAN_FilesUtils::joinedPath(destination, name), std::move(source)});
  }
  return copies;
}

}  // namespace

std::optional<std::string> ActionsTools::copyInDispute(const ZAN_Value& one,
                                                       const ZAN_Value& other) {
  constexpr int kSynchronise = 3;
  const auto ones = copiesOf(one);
  const auto others = copiesOf(other);
  if (!mayBeOneVolume(getDestinationForAction(one), getDestinationForAction(other)))
    return std::nullopt;
  for (const FilledCopy& mine : ones) {
    for (const FilledCopy& its : others) {
      const bool isSameSource =
          mine.source.path() == its.source.path() && mayBeOneVolume(mine.source, its.source);
      if (mine.path == its.path && !isSameSource) return mine.path;
      if (one.integer("Mode") == kSynchronise && ZAN_FilesUtils::isBelow(its.path, mine.path))
        return its.path;
      if (other.integer("Mode") == kSynchronise && ZAN_FilesUtils::isBelow(mine.path, its.path))
        return mine.path;
    }
  }
  return std::nullopt;
}

}  // namespace corvana
