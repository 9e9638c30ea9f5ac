#include "application/BackupFacts.h"

#include <algorithm>
#include <map>
#include <set>

#include "actions/ScheduleSentence.h"
#include "actions/TaskRequest.h"
#include "application/Household.h"
#include "core/record/Preferences.h"
#include "core/work/AgeAlarm.h"
#include "desktop/Texts.h"
#include "execute/restic/Repository.h"
#include "ui/windows/WindowWords.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

/// What the history knows of one backup.
struct Past {
  std::optional<ReferenceTime> lastSuccess;
  std::optional<std::uint64_t> files, bytes;
  std::vector<RunKind> runs;
  ZAN_Value lastBad;
};

std::map<std::int64_t, Past> pastOfAll(History& history) {
  history.reloadProgrammedHistoryList();
  std::map<std::int64_t, Past> all;
  for (const ZAN_Value& entry : history.getProgrammedHistoryList().elements()) {
    const auto date = entry["Date"].asDate();
    if (!date || entry.contains(TaskRequest::kTaskKey)) continue;
    const RunKind kind = kindOfRun(entry.integer("C"));
    if (kind == RunKind::running) continue;
    Past& past = all[entry.integer("Ref")];
    past.runs.push_back(kind);
    const bool onlyLacks = entry.integer(RunKey::onlyLacks) != 0;
    if (kind == RunKind::completed || onlyLacks) {
      past.lastSuccess = entry["EndDate"].asDate().value_or(*date);
      past.lastBad = onlyLacks ? entry : ZAN_Value();
      const auto counted = [&](std::string_view key) {
        return entry.contains(key) ? std::optional(entry[key].unsignedValue()) : std::nullopt;
      };
      past.files = counted(RunKey::filesCopied);
      past.bytes = counted(RunKey::bytesCopied);
    } else if (kind != RunKind::stopped) {
      past.lastBad = entry;
    }
  }
  return all;
}

std::string listOf(const std::vector<FolderDescription>& folders) {
  std::string text;
  for (const FolderDescription& folder : folders) {
    const std::string_view path =
        folder.pathLocalized().empty() ? folder.path() : folder.pathLocalized();
    text += (text.empty() ? "" : ", ") + std::string(ZAN_FilesUtils::lastPathComponent(path));
  }
  return text;
}

/// The volumes of the destinations, each asked once.
class Destinations {
 public:
  explicit Destinations(Household& household)
      : mHousehold(household), mIdentity(household.volumes()) {}

  void describe(const ZAN_Value& settings, BackupFacts& facts) {
    const FolderDescription folder = ActionsTools::getDestinationForAction(settings);
    if (folder.isNull()) {
      // "sftp:anna@example.org:/backup" is known by its server.
      facts.destination = settings.string(RepositoryKey::address);
      facts.isOnServer = !facts.destination.empty();
      return;
    }
    const std::string path(folder.pathLocalized().empty() ? folder.path() : folder.pathLocalized());
    const bool isOnStartUpDisk = folder.volumeName().empty() || folder.volumeName() == "/";
    facts.destination = isOnStartUpDisk ? path : std::string(folder.volumeName());
    const std::string_view home = mHousehold.store().folder().homeFolder();
    if (isOnStartUpDisk && path.starts_with(home) && path.size() > home.size())
      facts.destination = path.substr(home.size()).insert(0, 1, '~');
    const Volume& volume = volumeOf(folder, ActionsTools::toleratesOtherVolumes(settings));
    if (!volume.isThere) return;
    facts.folder = volume.path;
    facts.free = volume.free;
    facts.size = volume.size;
  }

 private:
  struct Volume {
    bool isThere = false;
    std::string path;
    std::optional<std::uint64_t> free, size;
  };

  const Volume& volumeOf(const FolderDescription& folder, bool tolerant) {
    const auto [known, isNew] = mKnown.try_emplace(std::string(folder.path()));
    if (!isNew) return known->second;
    if (const auto place = mIdentity.locate(folder, tolerant)) {
      known->second = {true, place->path, place->information.freeSize,
                       place->information.totalSize};
    }
    return known->second;
  }

  Household& mHousehold;
  VolumeIdentity mIdentity;
  std::map<std::string, Volume> mKnown;
};

}  // namespace

std::vector<BackupFacts> factsOf(Household& household) {
  ProgrammedAction::Nodes actions;
  household.actions().getListOfAllProgrammedActions(actions);
  if (actions.empty()) return {};
  auto past = pastOfAll(household.history());
  std::set<std::int64_t> unseen;
  const ZAN_Value settings = household.store().settings().schedulerSettings();
  for (const ZAN_Value& failure : settings[PreferenceKey::failures].elements())
    unseen.insert(failure.integer("R"));
  for (const ZAN_Value& lacking : settings[PreferenceKey::lacking].elements())
    unseen.insert(lacking.integerValue());
  Destinations destinations(household);
  const Circumstances circumstances = household.circumstances();
  const ReferenceTime now = household.now();
  const ScheduleSentence sentence(household.calendar(), household.texts(), household.strings());
  std::vector<BackupFacts> all;
  all.reserve(actions.size());
  for (const ProgrammedAction* action : actions) {
    BackupFacts& facts = all.emplace_back();
    const ZAN_Value& record = action->getSettings();
    facts.reference = action->getReference();
    facts.title = action->getTitle();
    if (const ProgrammedAction* const group = action->parent(); group != nullptr) {
      facts.group = group->getTitle();
      facts.groupReference = group->getReference();
    }
    const auto sources = ActionsTools::getSourcesForAction(record);
    facts.sources = listOf(sources);
    destinations.describe(record, facts);
    facts.isComplete = !sources.empty() && !facts.destination.empty();
    Past& known = past[facts.reference];
    facts.lastSuccess = known.lastSuccess;
    facts.files = known.files;
    facts.bytes = known.bytes;
    if (known.runs.size() > BackupFacts::kRuns)
      known.runs.erase(known.runs.begin(), known.runs.end() - BackupFacts::kRuns);
    facts.runs = std::move(known.runs);
    if (!known.lastBad.isNull()) {
      const std::int64_t code = known.lastBad.integer("C");
      facts.failure = kindOfRun(code);
      facts.failedAt =
          known.lastBad["EndDate"].asDate().value_or(known.lastBad["Date"].asDate().value_or(now));
      const std::string reason = known.lastBad.string(RunKey::reason);
      facts.mayTakeOver = known.lastBad.integer(RunKey::mayTakeOver) != 0;
      facts.reason = utf8(household.said(reason));
      if (facts.reason.empty()) facts.reason = resultInWords(code, household.texts());
      facts.onlyLacks = known.lastBad.integer(RunKey::onlyLacks) != 0;
      // What was left out since is missed no more.
      facts.isFailureSeen = !unseen.contains(facts.reference) ||
                            (facts.onlyLacks && record[CopyKey::notPossible].empty());
    }
    facts.overdueSince = AgeAlarm::overdueSince(*action, household.calendar(), now);
    facts.deletionsToConfirm = record.integer(DeletionKey::toConfirm);
    const Schedule& schedule = action->schedule();
    facts.next = Forecast(household.calendar(), schedule).next(now);
    if (facts.next) facts.hold = circumstances.holds(action->getActionContext());
    facts.waitsForEvent = schedule.automatic && !facts.next;
    facts.schedule = sentence.inWindow(record);
  }
  return all;
}

std::string BackupFacts::shortReason() const {
  constexpr qsizetype kLongest = 100;
  const QString whole = qt(reason);
  return whole.size() <= kLongest ? reason : utf8(whole.left(kLongest - 1)) + "…";
}

std::string pastDateOf(Household& household, ReferenceTime date) {
  return ReportGatherer(household.store(), household.history(), household.tree(), household.texts(),
                        household.strings())
      .pastDate(date, household.now());
}

std::string comingDateOf(Household& household, ReferenceTime date) {
  return household.tools().getScheduleStringForDate(
      date, {.table = household.texts(), .strings = household.strings()});
}

QString withCapital(const std::string& text) {
  QString whole = qt(text);
  if (!whole.isEmpty()) whole[0] = whole[0].toUpper();
  return whole;
}

}  // namespace corvana
