#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/FolderDescription.h"
#include "actions/Schedule.h"

namespace corvana {

/// The dates at which actions are due, from their settings records, a calendar and a now.
///
/// Made for one moment and used for as many records as one likes: it keeps today's beginning, and
/// no other state. Null dates are "never ran" as a last date and "no date" as a result; a result
/// may lie in the past, which means that the action is due. Nothing here fails, whatever a record
/// holds; a damaged schedule list is told to `log` at every computation and ignored.
///
/// Thread: any; `log` is called on the calling one.
class ActionsTools {
 public:
  using Log = std::function<void(const std::string& line)>;

  ActionsTools(const ZAN_DateUtils& calendar, ReferenceTime now, Log log = {});

  ReferenceTime now() const { return mNow; }
  const ZAN_DateUtils& calendar() const { return mCalendar; }

  /// The next date of an action: the earlier of its periodic date and of its schedule list's.
  /// `shutDown` is set when the list's best entry, or one that was best before it, is a shutdown
  /// occasion, whichever date wins. `firstAfterStartup` makes the start-up frequencies due now.
  std::optional<ReferenceTime> getNextScheduleDateForSettings(const Schedule& schedule,
                                                              bool firstAfterStartup,
                                                              bool* shutDown = nullptr) const;
  std::optional<ReferenceTime> getNextScheduleDateForSettings(const ZAN_Value& settings,
                                                              bool firstAfterStartup,
                                                              bool* shutDown = nullptr) const;

  /// The first point of the series `start` + `increment`, + `delay`, + `delay`… that is not earlier
  /// than the last date + 120 s, then `startTime` seconds on. Without a last date that is the first
  /// point; without a start the series starts at today's 0:00. A `delay` of exactly 86400 steps by
  /// calendar days: to `increment` seconds on the clock of the next day. Any other is elapsed time;
  /// one below 1 s never steps.
  ReferenceTime getNextSchedule(std::optional<ReferenceTime> start,
                                std::optional<ReferenceTime> lastSchedule, std::int64_t startTime,
                                std::int64_t increment, std::int64_t delay) const;

  struct Programmed {
    std::optional<ReferenceTime> date;
    bool startUp = false;
    bool shutDown = false;
  };
  /// The earliest date of the schedule list, within the allowed hours. A flag that an entry set
  /// when it was the best so far stays set.
  Programmed getNextScheduleProgrammed(const Schedule& schedule) const;
  Programmed getNextScheduleProgrammed(const ZAN_Value& settings) const;
  /// One entry's first date from `start`'s day on, within its horizon: 2 days for every day, 8 for
  /// weekdays, 32 for days of the month (3, 15, 63 with even or odd numbers), 368 for one date a
  /// year.
  Programmed getNextScheduleForDict(const ScheduleEntry& entry, ReferenceTime start,
                                    std::optional<ReferenceTime> last) const;
  /// The time of day of `startTime` on the day; null without a time, and when it is earlier than
  /// the last date + 120 s. `mode` makes no difference.
  std::optional<ReferenceTime> getNextScheduleForDay(ReferenceTime day,
                                                     std::optional<ReferenceTime> lastSchedule,
                                                     std::optional<ReferenceTime> startTime,
                                                     int mode = 0) const;

  /// The date from which the series continues: "LastScheduleDate", for both values of `lastOnly`.
  /// One more than a day ahead of now comes from a clock that was wrong, and reads as now.
  std::optional<ReferenceTime> getLastScheduleDateForSettings(const Schedule& schedule,
                                                              bool lastOnly) const;
  std::optional<ReferenceTime> getLastScheduleDateForSettings(const ZAN_Value& settings,
                                                              bool lastOnly) const;
  /// Whether the stored last date is read as now, so that the record wants healing.
  bool isLastScheduleDateAhead(const ZAN_Value& settings) const;

  static std::optional<ReferenceTime> getLastExecutionDateForSettings(const ZAN_Value& settings);
  /// Nothing without one. Whatever other programs execute counts as one, and so does what was
  /// executed before successes were noted.
  static std::optional<ReferenceTime> getLastSuccessDateForSettings(const ZAN_Value& settings);
  static std::int64_t getExecutionsCountForSettings(const ZAN_Value& settings);

  /// The folder descriptions of an action's sources: those of "ItemsListOfSourcePath", an array of
  /// them or one, and without any the one of "ItemsSource". Empty when the record describes none; a
  /// damaged one among them says so, so that nobody goes on without it.
  static std::vector<FolderDescription> getSourcesForAction(const ZAN_Value& settings);
  /// Whether there is a list of sources at all, which may be empty.
  static bool hasSourceList(const ZAN_Value& settings);
  /// The folder description of the destination; null when the record has none.
  static FolderDescription getDestinationForAction(const ZAN_Value& settings);
  /// The copy that one action fills and that the other one would spoil, of this program's own
  /// actions by what their records describe: both fill it, from different sources, or the copies of
  /// one lie in a copy out of which the other deletes. Nothing when they get along.
  static std::optional<std::string> copyInDispute(const ZAN_Value& one, const ZAN_Value& other);
  /// What the last run could not copy is left out from now on, and is not missed any more.
  static void leaveOutMissing(ZAN_Value& settings);
  /// Whether any volume in the place of a described one will do.
  /// Whether the execute program of our own performs it.
  static bool isExecutedByUs(const ZAN_Value& settings);
  static bool toleratesOtherVolumes(const ZAN_Value& settings);

  /// What the texts below are formed with. `strings` is of the calendar's zone.
  struct Texts {
    const ZAN_StringTable& table;
    const ZAN_StringUtils& strings;
  };
  /// What makes the action run: "Every day at 8:00 AM", "Every 15 minutes", "When one of its
  /// volumes is mounted", "Only when it is launched".
  std::string getNextScheduleModeForSettings(const ZAN_Value& settings, const Texts& texts) const;
  /// When it runs next, however far away: "Tomorrow at 8:00 AM", "At shutdown: today at 6:30 PM",
  /// "No date".
  std::string getNextScheduleStringForSettings(const ZAN_Value& settings, const Texts& texts) const;
  /// Both in one line; without a date only what makes it run.
  std::string getNextScheduleSummaryForSettings(const ZAN_Value& settings,
                                                const Texts& texts) const;
  /// A date as people say it: "Now" when it has come, today, tomorrow, a weekday, or the whole
  /// date.
  std::string getScheduleStringForDate(ReferenceTime date, const Texts& texts) const;
  std::string getStartupStringForDate(ReferenceTime date, const Texts& texts) const;
  std::string getShutdownStringForDate(ReferenceTime date, const Texts& texts) const;

 private:
  struct AllowedHours;
  AllowedHours allowedHours(const Schedule& schedule) const;
  bool isOutside(const AllowedHours& hours, ReferenceTime date) const;
  std::optional<ReferenceTime> heldLast(std::optional<ReferenceTime> last) const;
  std::optional<ReferenceTime> periodicDate(const Schedule& schedule, bool firstAfterStartup,
                                            std::optional<ReferenceTime> last,
                                            const AllowedHours& hours) const;
  Programmed programmedDate(const Schedule& schedule, std::optional<ReferenceTime> last,
                            const AllowedHours& hours) const;
  std::optional<ReferenceTime> entryDate(const ScheduleEntry& entry, std::int64_t startDay,
                                         std::optional<ReferenceTime> last) const;
  std::optional<ReferenceTime> dateOnDay(std::int64_t day, std::optional<ReferenceTime> last,
                                         int seconds) const;

  ZAN_DateUtils mCalendar;
  ReferenceTime mNow;
  std::int64_t mTodayNumber;
  ReferenceTime mToday;
  Log mLog;
};

/// What a record says, in keys of this system's own, of how much a synchronisation may delete.
namespace DeletionKey {
/// The share of a copy, in percent, that a run may delete without a question; missing: a third.
inline constexpr std::string_view limit = "DeletionLimit";
/// How many files the last run would have deleted and asked about; 0 or missing: none.
inline constexpr std::string_view toConfirm = "DeletionsToConfirm";
/// How many files the next run may delete, since the user said so; 0 or missing: as many as the
/// limit allows.
inline constexpr std::string_view confirmed = "DeletionsConfirmed";
}  // namespace DeletionKey

/// And whose the copies are that it fills.
namespace CopyKey {
/// 1 since the sources or the destination were changed, until a run has filled the new copies.
inline constexpr std::string_view isNew = "CopiesAreNew";
/// 1 when the next run is to take what it finds for its copies.
inline constexpr std::string_view takesOver = "CopiesTakenOver";
/// What is left out: an array of patterns as rsync takes them; missing: nothing.
inline constexpr std::string_view exclusions = "CopyExclusions";
/// The patterns of what the last run could not copy, 200 at most; missing: nothing.
inline constexpr std::string_view notPossible = "CopyNotPossible";
/// What the file system of the copies cannot keep, in words, as it was said last.
inline constexpr std::string_view losses = "CopyLossesSaid";
/// Bytes a second that a run copies at most; 0 or missing: as many as it can.
inline constexpr std::string_view bandwidth = "CopyBandwidth";
/// 1 when the disk did not confirm what the last run wrote: the next run compares contents.
inline constexpr std::string_view isDoubted = "CopiesDoubted";
}  // namespace CopyKey

/// What a report of an execution's progress says besides.
namespace ProgressKey {
/// So many items were found while it is still being found out what there is to do; missing since.
inline constexpr std::string_view itemsSeen = "ItemsSeen";
inline constexpr std::string_view bytesToCopy = "BytesToCopy";
inline constexpr std::string_view filesToCopy = "FilesToCopy";
inline constexpr std::string_view bytesPerSecond = "BytesPerSecond";  ///< missing: not known yet
inline constexpr std::string_view secondsLeft = "SecondsLeft";        ///< missing: not known yet
}  // namespace ProgressKey

/// The record of a run in its history entry.
namespace RunKey {
inline constexpr std::string_view filesCopied = "FilesCopied";
inline constexpr std::string_view bytesCopied = "SizeCopied";
inline constexpr std::string_view filesReplaced = "FilesReplaced";  ///< of those copied
inline constexpr std::string_view bytesReplaced = "SizeReplaced";
inline constexpr std::string_view filesDeleted = "FilesDeleted";
inline constexpr std::string_view bytesDeleted = "SizeDeleted";
inline constexpr std::string_view skipped = "FilesSkipped";  ///< since the user wanted it
/// Errors that name something of the sources which the copy has to do without.
inline constexpr std::string_view notPossible = "ItemsNotPossible";
inline constexpr std::string_view reason = "Reason";  ///< in words; missing when all went well
/// 1: it was completed but for what is not possible (also in the log).
inline constexpr std::string_view onlyLacks = "OnlyLacks";
/// 1: it was refused over what lies in the places of the copies, which the action may take over.
inline constexpr std::string_view mayTakeOver = "MayTakeOver";
/// 1: what it lacks is not what the run before has lacked (of the log).
inline constexpr std::string_view lacksOthers = "LacksOthers";
/// 1: the first one, of which a part was read back and found good (of the log).
inline constexpr std::string_view isReadBack = "FirstReadBack";
}  // namespace RunKey

}  // namespace corvana
