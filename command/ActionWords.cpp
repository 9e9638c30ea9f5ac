#include "command/ActionWords.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "volumes/VolumeReference.h"

namespace corvana {

namespace {

/// A disk that sleeps takes its time to wake up.
constexpr double kSecondsForADisk = 30;

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

/// The path as a description holds it.
std::string absolutePath(const std::string& path) {
  std::error_code ignored;
  std::string absolute = std::filesystem::absolute(path, ignored).lexically_normal().string();
  while (absolute.size() > 1 && absolute.ends_with('/')) absolute.pop_back();
  return absolute;
}

enum class Role { source, destination };

/// What a record has to say of a source or a destination: the path, made absolute, and the volume
/// that must hold it when the action runs. Refused when a source, or the folder above a
/// destination, is not there, and when the place below the volumes folder has no volume mounted on
/// it; `force` describes it all the same, without the volume where that is not known.
Result<FolderDescription> describe(const std::string& path, Role role, bool force,
                                   Volumes& volumes) {
  const std::string absolute = absolutePath(path);
  if (path.empty() || absolute == "/") {
    return Error{ErrorKind::refused, "\"" + path + "\": neither a source nor a destination"};
  }
  const bool exists = ZAN_FilesUtils::exists(absolute);
  const bool isUsable =
      role == Role::source ? exists
      : exists             ? ZAN_FilesUtils::isFolder(absolute)
               : ZAN_FilesUtils::isFolder(std::string(ZAN_FilesUtils::parentPath(absolute)));
  if (!isUsable && !force) {
    return Error{ErrorKind::absent,
                 absolute + (exists                 ? ": not a folder"
                             : role == Role::source ? ": not there (--force takes it anyway)"
                                                    : ": neither it nor the folder above it is "
                                                      "there (--force takes it anyway)")};
  }

  const VolumeReference reference(volumes);
  const auto mount = reference.ofPath(absolute);
  if (!mount && !force) {
    return Error{ErrorKind::absent,
                 absolute + ": no volume is mounted there (--force takes it anyway)"};
  }
  const auto known = mount ? volumes.information(*mount) : std::nullopt;
  FolderDescription description;
  description.setPath(absolute)
      .setPathLocalized(reference.localizedPath(absolute))
      .setVolumeName(mount ? VolumeReference::nameOf(*mount, known) : std::string())
      .setVolumeSize(known ? known->totalSize : std::uint64_t{0})
      .setVolumeDate(known ? known->creationDate : std::uint64_t{0});
  if (known && !known->uuid.empty()) description.setUuid(known->uuid);
  if (mount) description.setMounted(mount->fileSystem, mount->source, mount->root);
  return description;
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
      mExcluded(arguments.options("--exclude")),
      mTakenBack(arguments.options("--no-exclude")),
      mForce(arguments.flag("--force")) {
  if (mTitle && mTitle->empty()) arguments.complain("--title wants a text");
}

bool ActionWords::isEmpty() const { return fitsGroup() && !mTitle && !mShortcut && !mGroup; }

bool ActionWords::fitsGroup() const {
  return !mSchedule.isGiven() && mSources.empty() && !mDestination && !mMode && !mContext &&
         !mMakeUp && !mAgeAlarm && !mDeleteLimit && !mAdopts && mExcluded.empty() &&
         mTakenBack.empty();
}

Outcome ActionWords::describeFolders(CommandHome& home) {
  const auto volumes = home.volumes(kSecondsForADisk);
  for (const std::string& source : mSources) {
    auto described = describe(source, Role::source, mForce, *volumes);
    if (!described) return described.error();
    mSourceDescriptions.push_back(*std::move(described));
  }
  if (mDestination) {
    auto described = describe(*mDestination, Role::destination, mForce, *volumes);
    if (!described) return described.error();
    mDestinationDescription = *std::move(described);
  }
  return mForce ? Outcome() : checkOverlap();
}

Outcome ActionWords::checkOverlap() const {
  const std::string_view destination = mDestinationDescription.path();
  if (destination.empty()) return {};
  for (const FolderDescription& source : mSourceDescriptions) {
    const std::string_view path = source.path();
    if (ZAN_FilesUtils::isAtOrBelow(destination, path)) {
      return Error{
          ErrorKind::refused,
          std::string(destination) + ": the destination lies in the source " + std::string(path)};
    }
  }
  return {};
}

void ActionWords::applyTo(ZAN_Value& record, const CommandHome& home) const {
  if (mTitle) record.setValue("Title", *mTitle);
  if (mShortcut) record.setValue("Shortcut", *mShortcut);
  if (mMode) record.setValue("Mode", *mMode);
  if (mDeleteLimit) record.setValue(DeletionKey::limit, *mDeleteLimit);
  if ((hasSources() || hasDestination()) && !record["LastExecutionDate"].isNull())
    record.setValue(CopyKey::isNew, 1);
  if (!mExcluded.empty() || !mTakenBack.empty()) {
    std::vector<std::string> patterns;
    for (const ZAN_Value& pattern : record[CopyKey::exclusions].elements())
      patterns.emplace_back(pattern.stringView());
    patterns.insert(patterns.end(), mExcluded.begin(), mExcluded.end());
    ZAN_Value list = ZAN_Value::array();
    for (auto pattern = patterns.begin(); pattern != patterns.end(); ++pattern) {
      if (!pattern->empty() && std::find(patterns.begin(), pattern, *pattern) == pattern &&
          std::ranges::find(mTakenBack, *pattern) == mTakenBack.end())
        list.append(*pattern);
    }
    record.setValue(CopyKey::exclusions, std::move(list));
  }
  if (mAdopts) record.setValue(CopyKey::takesOver, 1);
  if (mContext) record.setValue("TriggerContextPopup", *mContext);
  if (mMakeUp) record.setValue("TriggerMakeUpMissed", *mMakeUp);
  if (mAgeAlarm) record.setValue("TriggerAgeAlarm", *mAgeAlarm);
  if (!mSourceDescriptions.empty()) {
    record.setValue("ItemsSource", mSourceDescriptions.front().toValue());
    ZAN_Value list = ZAN_Value::array();
    for (const FolderDescription& source : mSourceDescriptions) list.append(source.toValue());
    record.setValue("ItemsListOfSourcePath", std::move(list));
  }
  if (!mDestinationDescription.isNull()) {
    record.setValue("ItemsDestination", mDestinationDescription.toValue());
  }
  mSchedule.applyTo(record, home.calendar(), home.now());
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

Outcome checkCopies(ProgrammedAction& root, const ZAN_Value& settings) {
  ProgrammedAction::Nodes actions;
  root.getAllActionsInOneList(actions, false);
  for (const ProgrammedAction* other : actions) {
    if (other->getReference() == settings.integer("Ref")) continue;
    const auto copy = ActionsTools::copyInDispute(settings, other->getSettings());
    if (!copy) continue;
    return Error{ErrorKind::refused,
                 *copy + ": the action " + std::to_string(other->getReference()) + " \"" +
                     other->getTitle() +
                     "\" copies there too, and each would delete or replace what the other has "
                     "copied; choose another destination"};
  }
  return {};
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
  const bool isDue = run && run->date <= home.now();
  return {value, TextForm(home.calendar())
                     .fill(isDue ? "{done} {reference}: {title}\nnext: now\n"
                                 : "{done} {reference}: {title}\n"
                                   "{next?next: {next:date}}{next!{runs}}\n",
                           shown)};
}

}  // namespace corvana
