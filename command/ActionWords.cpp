#include "command/ActionWords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <sstream>

#include "actions/RecordKeys.h"
#include "actions/TaskRequest.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

constexpr int kCopy = 2;
constexpr int kSynchronise = 3;

constexpr std::array<std::pair<std::string_view, int>, 2> kOnOrOff{{{"on", 1}, {"off", 0}}};

constexpr int number(ActionContext context) { return static_cast<int>(context); }

/// The number that goes with the option's word.
template <std::size_t count>
std::optional<int> choice(Arguments& arguments, std::string_view option,
                          const std::array<std::pair<std::string_view, int>, count>& choices) {
  const auto word = arguments.option(option);
  if (!word) return std::nullopt;
  std::string known;
  for (const auto& [name, number] : choices) {
    if (*word == name) return number;
    known += (known.empty() ? "" : ", ") + std::string(name);
  }
  arguments.complain(std::string(option) + " is one of " + known + ", not \"" + *word + "\"");
  return std::nullopt;
}

/// Bytes a second, from "20M".
std::optional<std::int64_t> bandwidth(Arguments& arguments) {
  const auto word = arguments.option("--bandwidth");
  if (!word) return std::nullopt;
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(word->data(), word->data() + word->size(), number);
  const std::string unit(end, word->data() + word->size());
  constexpr std::array<std::pair<std::string_view, std::int64_t>, 4> kUnits{
      {{"", 1}, {"K", 1'000}, {"M", 1'000'000}, {"G", 1'000'000'000}}};
  for (const auto& [name, factor] : kUnits) {
    if (error == std::errc() && unit == name && number >= 0 && number <= INT64_MAX / factor)
      return number * factor;
  }
  arguments.complain("--bandwidth is a number of bytes a second, as 500K, 20M or 1G, not \"" +
                     *word + "\"");
  return std::nullopt;
}

std::string clockText(int seconds) {
  const auto two = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
  return two(seconds / 3600) + ':' + two(seconds / 60 % 60);
}

std::string neverText(const Forecast::Never& never, const ZAN_Value& record,
                      const ZAN_DateUtils& calendar) {
  const Schedule schedule(record);
  const auto bound = [&](const std::optional<ReferenceTime>& time) {
    return clockText(time ? calendar.secondsInDay(*time) : 0);
  };
  const std::string hours = bound(schedule.allowedFrom) + '-' + bound(schedule.allowedTo);
  switch (never.why) {
    case Forecast::Never::Why::hoursNeverCome:
      return "it can never run: its hours " + hours + " end before they begin";
    case Forecast::Never::Why::outsideHours:
      if (never.time) {
        return "it can never run at " + clockText(*never.time) +
               ", which lies outside of its hours " + hours;
      }
      return schedule.kind == ScheduleKind::minutes
                 ? "counted in steps of " + std::to_string(schedule.minutes) +
                       " minutes it does not come to run within its hours " + hours +
                       ", or no more once it has missed a day; --daily names a time"
                 : "it can never run within its hours " + hours;
    case Forecast::Never::Why::noSuchDay:
      break;
  }
  return "a date of its schedule is on no day";
}

struct Kept {
  bool none = false;
  std::int64_t days = 0;
  std::int64_t bytes = 0;
};

/// "all", "none", or an age, a size, or both with a comma between.
std::optional<Kept> keptOf(const std::string& words) {
  if (words == "all") return Kept();
  if (words == "none") return Kept{.none = true};
  Kept kept;
  std::istringstream stream(words);
  for (std::string word; std::getline(stream, word, ',');) {
    std::int64_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    constexpr std::int64_t kMost = 1'000'000;
    if (error != std::errc() || number < 1 || number > kMost ||
        end + 1 != word.data() + word.size())
      return std::nullopt;
    constexpr std::int64_t kMega = 1'000'000;
    switch (*end) {
      case 'd':
        kept.days = number;
        break;
      case 'w':
        kept.days = 7 * number;
        break;
      case 'y':
        kept.days = 366 * number;
        break;
      case 'M':
        kept.bytes = number * kMega;
        break;
      case 'G':
        kept.bytes = number * 1000 * kMega;
        break;
      case 'T':
        kept.bytes = number * 1000 * 1000 * kMega;
        break;
      default:
        return std::nullopt;
    }
  }
  if (kept.days == 0 && kept.bytes == 0) return std::nullopt;
  return kept;
}

}  // namespace

ActionWords::ActionWords(Arguments& arguments)
    : mSchedule(arguments),
      mSources(arguments.options("--source")),
      mDestination(arguments.option("--destination")),
      mTitle(arguments.option("--title")),
      mShortcut(arguments.option("--shortcut")),
      mMode(choice<2>(arguments, "--mode", {{{"copy", kCopy}, {"synchronise", kSynchronise}}})),
      mContext(choice<4>(arguments, "--context",
                         {{{"office", number(ActionContext::office)},
                           {"home", number(ActionContext::home)},
                           {"nomad", number(ActionContext::nomad)},
                           {"any", number(ActionContext::none)}}})),
      mMakeUp(choice<2>(arguments, "--make-up", kOnOrOff)),
      mAgeAlarm(choice<2>(arguments, "--age-alarm", kOnOrOff)),
      mDeleteLimit(arguments.number("--delete-limit", 0, 100)),
      mGroup(arguments.number("--group", 0, INT64_MAX)),
      mAdopts(arguments.flag("--adopt")),
      mKeep(arguments.option("--keep")),
      mExcluded(arguments.options("--exclude")),
      mTakenBack(arguments.options("--no-exclude")),
      mExcludesMissing(arguments.flag("--exclude-missing")),
      mExcludesProposed(arguments.flag("--exclude-proposed")),
      mRotation(arguments.options("--rotate")),
      mBandwidth(bandwidth(arguments)),
      mForce(arguments.flag("--force")),
      mRepository(arguments) {
  if (const auto folder = mRepository.folder()) {
    if (mDestination) arguments.complain("--repository takes the place of --destination");
    mDestination = folder;
  }
  if (mTitle && mTitle->empty()) arguments.complain("--title wants a text");
  if (mKeep && !keptOf(*mKeep))
    arguments.complain("--keep wants all, none, or limits such as 90d, 2y, 50G or 1y,50G, not \"" +
                       *mKeep + "\"");
}

bool ActionWords::isEmpty() const { return fitsGroup() && !mTitle && !mShortcut && !mGroup; }

bool ActionWords::fitsGroup() const {
  return !mSchedule.isGiven() && mSources.empty() && !mDestination && !mMode && !mContext &&
         !mMakeUp && !mAgeAlarm && !mDeleteLimit && !mAdopts && !mKeep && mExcluded.empty() &&
         mTakenBack.empty() && !mExcludesMissing && !mExcludesProposed && mRotation.empty() &&
         !mBandwidth && !mRepository.isGiven();
}

Outcome ActionWords::describeFolders(CommandHome& home) {
  const auto volumes = home.volumes(ActionFolders::kPatience);
  std::optional<FolderTrouble> trouble;
  const auto add = [&](const std::string& path, ActionFolders::Role role) {
    if (!trouble) trouble = mFolders.add(path, role, mForce, *volumes);
  };
  for (const std::string& source : mSources) add(source, ActionFolders::Role::source);
  if (mDestination) add(*mDestination, ActionFolders::Role::destination);
  for (const std::string& other : mRotation) {
    if (!other.empty()) add(other, ActionFolders::Role::rotation);
  }
  if (trouble) {
    Error error = trouble->error();
    if (error.kind != ErrorKind::refused) error.text += " (--force takes it anyway)";
    return error;
  }
  if (mRepository.isRestic() && hasDestination()) {
    const std::string place =
        mDestination ? std::string(mFolders.destination().path()) : mRepository.shown();
    if (const Outcome kept = mRepository.keepWhatOpens(home, place); !kept) return kept;
  }
  if (mForce) return {};
  if (const auto overlap = mFolders.checkOverlap()) return overlap->error();
  return {};
}

Outcome ActionWords::applyTo(ZAN_Value& record, const CommandHome& home) const {
  if (mTitle) record.setValue("Title", *mTitle);
  if (mShortcut) record.setValue(ActionKey::shortcut, *mShortcut);
  if (mMode) record.setValue("Mode", *mMode);
  if (mDeleteLimit) record.setValue(DeletionKey::limit, *mDeleteLimit);
  mFolders.applyTo(record);
  mRepository.applyTo(record);
  if (mBandwidth) record.setValue(CopyKey::bandwidth, *mBandwidth);
  if (!mRotation.empty()) record.setValue(VolumeIdentity::kRotation, mFolders.rotation());
  if (!mExcluded.empty() || !mTakenBack.empty() || mExcludesMissing || mExcludesProposed) {
    if (mExcludesMissing) ActionsTools::leaveOutMissing(record);
    std::vector<std::string> patterns;
    for (const ZAN_Value& pattern : record[CopyKey::exclusions].elements())
      patterns.emplace_back(pattern.stringView());
    patterns.insert(patterns.end(), mExcluded.begin(), mExcluded.end());
    if (mExcludesProposed) {
      for (std::string& pattern : proposedExclusions(record))
        patterns.push_back(std::move(pattern));
    }
    ZAN_Value list = ZAN_Value::array();
    for (auto pattern = patterns.begin(); pattern != patterns.end(); ++pattern) {
      if (!pattern->empty() && std::find(patterns.begin(), pattern, *pattern) == pattern &&
          std::ranges::find(mTakenBack, *pattern) == mTakenBack.end())
        list.append(*pattern);
    }
    record.setValue(CopyKey::exclusions, std::move(list));
  }
  if (mAdopts) record.setValue(CopyKey::takesOver, 1);
  if (const auto kept = mKeep ? keptOf(*mKeep) : std::nullopt) {
    record.setValue(VersionKey::none, kept->none ? 1 : 0);
    record.setValue(VersionKey::days, kept->days);
    record.setValue(VersionKey::bytes, kept->bytes);
  }
  if (mContext) record.setValue(ActionKey::context, *mContext);
  if (mMakeUp) record.setValue(ActionKey::makesUpMissed, *mMakeUp);
  if (mAgeAlarm) record.setValue(ActionKey::ageAlarm, *mAgeAlarm);
  mSchedule.plan().applyTo(record, home.calendar(), home.now());
  return RepositoryWords::check(record);
}

Outcome ActionWords::checkThatItRuns(const ZAN_Value& record, const CommandHome& home,
                                     const Console& console) const {
  if (!mSchedule.isGiven()) return {};
  const auto never = Forecast::partsThatNeverRun(home.calendar(), Schedule(record), home.now());
  if (never.empty()) return {};
  const std::string reason = neverText(never.front(), record, home.calendar());
  if (!mForce) {
    return Error{ErrorKind::refused,
                 record.string("Title") + ": " + reason + " (--force takes it anyway)"};
  }
  Writer(console, false).complain("warning: " + printable(record.string("Title") + ": " + reason));
  return {};
}

std::string taskInWords(const ZAN_Value& task) {
  if (task.stringView() == TaskRequest::kRestore) return ", restore";
  return task.stringView() == TaskRequest::kVerify ? ", check of the copies" : "";
}

Result<std::int64_t> referenceFrom(const std::string& word) {
  std::int64_t value = 0;
  const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
  if (error != std::errc() || stop != word.data() + word.size() || value <= 0) {
    return Error{ErrorKind::refused, "\"" + word + "\" is no reference; corvana9 tree shows them"};
  }
  return value;
}

Result<ProgrammedAction*> groupWithReference(ProgrammedAction& root, std::int64_t reference) {
  if (reference == 0) return &root;
  ProgrammedAction* group = root.actionOrGroupForReference(reference);
  if (group == nullptr || !group->isGroup()) {
    return Error{ErrorKind::absent, std::to_string(reference) + ": no such group"};
  }
  return group;
}

Answer answerAbout(std::string_view done, const ZAN_Value& settings, CommandHome& home) {
  const auto run = home.nextRun(Schedule(settings));
  const std::string schedule = home.scheduleText(settings);
  const ZAN_Value value =
      ZAN_Value::dictionary({{"done", done},
                             {"reference", settings.integer("Ref")},
                             {"title", settings.string("Title")},
                             {"schedule", schedule},
                             {"next", run ? ZAN_Value(run->date) : ZAN_Value()}});
  ZAN_Value shown = value;
  shown.setValue("runs", home.texts().text("ScheduleRuns", {schedule}));
  ZAN_Value proposed = ZAN_Value::array();
  if (done == "added") {
    for (const std::string& pattern : proposedExclusions(settings)) proposed.append(pattern);
  }
  shown.setValue("proposed", proposed);
  const bool isDue = run && run->date <= home.now();
  return {value, TextForm(home.calendar())
                     .fill(std::string("{done} {reference}: {title}\n") +
                               (isDue ? "next: now\n" : "{next?next: {next:date}}{next!{runs}}\n") +
                               "{proposed?could be left out: corvana9 edit {reference} "
                               "--exclude-proposed\n{proposed*  {}\n}}",
                           shown)};
}

}  // namespace corvana
