#include "execute/restic/ResticEngine.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/VersionKey.h"
#include "execute/engine/FileContents.h"
#include "execute/engine/FolderWalk.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr std::size_t kKeptErrors = 200;
constexpr double kWeek = 7 * 86400.0;
constexpr const char* kStaging = ".corvana9-restored";
using Kind = ResticEnd::Kind;

/// A pattern that matches this very path.
std::string literal(const std::string& path) {
  std::string pattern;
  for (const char letter : path) {
    if (std::string_view("*?[\\").find(letter) != std::string_view::npos) pattern.push_back('\\');
    pattern.push_back(letter);
  }
  return pattern;
}

/// An rsync pattern of the user as restic takes it. `source`: where an anchored one begins.
std::string resticPattern(std::string pattern, const std::string& source) {
  while (pattern.size() > 1 && pattern.ends_with('/')) pattern.pop_back();
  return pattern.starts_with('/') ? literal(source) + pattern : pattern;
}

/// A path that restic records, by no link at its end.
std::string realPath(const HeldSource& source) {
  struct stat state {};
  if (::lstat(source.path.c_str(), &state) != 0 || !S_ISLNK(state.st_mode)) return source.path;
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(source.path.c_str(), nullptr),
                                                         &std::free);
  return real ? real.get() : source.path;
}

}  // namespace

EngineKind resticEngine() {
  return {.name = RepositoryKey::kEngine,
          .make = [](EngineOrder order, EngineHost host) -> std::unique_ptr<Engine> {
            return std::make_unique<ResticEngine>(std::move(order), std::move(host));
          },
          .isPlace =
              [](const std::string& from) {
                if (RepositoryAddress(from).isRemote()) return true;
                return ZAN_FilesUtils::exists(ZAN_FilesUtils::joinedPath(from, "config")) &&
                       ZAN_FilesUtils::exists(ZAN_FilesUtils::joinedPath(from, "snapshots"));
              }};
}

ResticEngine::ResticEngine(EngineOrder order, EngineHost host)
    : mOrder(std::move(order)), m(std::move(host)) {}

std::string ResticEngine::place() const {
  if (mRestic) return mRestic->address().shown();
  if (!mOrder.from.empty()) return RepositoryAddress(mOrder.from).shown();
  const std::string address = mOrder.settings.string(RepositoryKey::address);
  return address.empty()
             ? std::string(ActionsTools::getDestinationForAction(mOrder.settings).path())
             : address;
}

std::string ResticEngine::secretsFolder() const { return m.store.folder().hiddenFolderPath(); }

Result<std::string> ResticEngine::password(const std::string& address,
                                           std::string& secretAddress) const {
  std::string file = mOrder.passwordFile;
  if (file.empty()) file = mOrder.settings.string(RepositoryKey::passwordFile);
  const auto secret = RepositorySecret::find(address, secretsFolder());
  if (secret) secretAddress = secret->address;
  if (!file.empty()) return RepositorySecret::passwordFrom(file);
  if (!secret) return secret.error();
  return secret->password;
}

/// The folder of a repository on a volume, or the one that is to hold it.
Outcome ResticEngine::openFolder() {
  std::string path = mOrder.from;
  std::string name = path;  ///< as it is known, wherever its volume is mounted now
  std::optional<VolumeGuard::Place> place;
  if (path.empty()) {
    const VolumeGuard guard(m.volumes, ActionsTools::toleratesOtherVolumes(mOrder.settings));
    const auto destinations = VolumeIdentity::destinationsOf(mOrder.settings);
    if (destinations.empty())
      return Error{ErrorKind::refused,
                   std::string(RepositoryKey::address) + ": the action has no repository"};
    Outcome there;
    for (const FolderDescription& destination : destinations) {
      auto found = guard.locate(destination);
      if (!found && &destination == &destinations.front()) there = found.error();
      if (!found) continue;
      place = *std::move(found);
      name = destination.path();
      break;
    }
    if (!place) return there;
    path = place->path;
  }
  const auto hold = [&](const std::string& folder) {
    return place ? VolumeGuard::hold(folder, *place) : HeldFolder::open(folder);
  };
  auto held = hold(path);
  if (!held && held.error().kind == ErrorKind::absent && !ZAN_FilesUtils::exists(path) && place)
    held = hold(std::string(ZAN_FilesUtils::parentPath(path)));
  if (!held) return held.error();
  mFolder = *std::move(held);
  m.watch.add(*mFolder);
  std::string secretAddress;
  auto password = this->password(name, secretAddress);
  if (!password) return password.error();
  mRestic = std::make_unique<Restic>(m, RepositoryAddress(path), *std::move(password));
  return {};
}

Outcome ResticEngine::open() {
  if (mRestic) {
    if (mFolder) m.watch.add(*mFolder);
    return {};
  }
  const RepositoryAddress given(mOrder.from.empty() ? mOrder.settings.string(RepositoryKey::address)
                                                    : mOrder.from);
  if (!given.isRemote()) return openFolder();
  std::string secretAddress;
  auto password = this->password(given.shown(), secretAddress);
  if (!password) return password.error();
  mRestic = std::make_unique<Restic>(
      m, secretAddress.empty() || given.hasSecret() ? given : RepositoryAddress(secretAddress),
      *std::move(password));
  return {};
}

Outcome ResticEngine::prepare() {
  const VolumeGuard guard(m.volumes, ActionsTools::toleratesOtherVolumes(mOrder.settings));
  const auto sources = ActionsTools::getSourcesForAction(mOrder.settings);
  if (sources.empty()) return Error{ErrorKind::refused, "ItemsSource: the action has no source"};
  for (const auto& described : sources) {
    auto source = HeldSource::hold(described, guard);
    if (!source) return source.error();
    mSources.push_back(*std::move(source));
  }
  if (const Outcome opened = open(); !opened) return opened;
  for (const HeldSource& source : mSources) m.watch.add(source.held);
  return {};
}

std::vector<std::string> ResticEngine::sources() const {
  std::vector<std::string> paths;
  for (const HeldSource& source : mSources) paths.push_back(source.path);
  return paths;
}

ResticEnd ResticEngine::look() { return mRestic->call({.words = {"cat", "config"}}); }

/// Those of the action on this machine.
std::string ResticEngine::tags() const {
  return "corvana9,action=" + std::to_string(mOrder.settings.integer("Ref")) +
         ",machine=" + m.machine.machineIdentifier();
}

ExecuteEnd ResticEngine::endOf(const Error& error) const {
  ExecuteEnd end;
  end.code = ExecuteCode::unexpectedError;
  end.reason = error.text;
  end.isUnreachable = error.kind == ErrorKind::unavailable;
  if (end.isUnreachable || error.kind == ErrorKind::unwritable)
    end.code = ExecuteCode::volumeNotAvailable;
  return end;
}

/// What a call of restic that came to nothing makes of a run.
ExecuteEnd ResticEngine::endOf(const ResticEnd& failed) const {
  ExecuteEnd end;
  switch (m.control.stopReason()) {
    case StopReason::user:
      end.code = ExecuteCode::abortedByUser;
      return end;
    case StopReason::volumeGone:
      end.code = ExecuteCode::volumeGone;
      end.reason = m.watch.gone();
      return end;
    case StopReason::sessionEnd:
      end.code = ExecuteCode::unexpectedError;
      end.reason = kSessionEnded;
      return end;
    case StopReason::none:
      break;
  }
  return endOf(failed.error(place()));
}

std::vector<std::string> ResticEngine::backupWords() const {
  std::vector<std::string> words{"backup", "--json", "--one-file-system", "--host",
                                 m.machine.hostName()};
  for (std::string rest = tags(); !rest.empty();) {
    const auto comma = std::min(rest.find(','), rest.size());
    words.insert(words.end(), {"--tag", rest.substr(0, comma)});
    rest.erase(0, comma + 1);
  }
  for (std::size_t i = 0; i < mSources.size(); ++i) {
    if (!mSources[i].isFolder) words.insert(words.end(), {"--tag", "file=" + std::to_string(i)});
  }
  const auto exclude = [&](const std::string& pattern) { words.push_back("--exclude=" + pattern); };
  exclude(std::string(kStaging) + "*");
  for (const HeldSource& source : mSources) {
    const std::string path = realPath(source);
    for (const auto& mount : source.mountsWithin)
      exclude(literal(ZAN_FilesUtils::joinedPath(path, mount)) + "/*");
    for (const ZAN_Value& pattern : mOrder.settings[CopyKey::exclusions].elements()) {
      const std::string text = resticPattern(std::string(pattern.stringView()), path);
      if (!text.empty()) exclude(text);
    }
    // A repository within a source is no part of what it holds.
    if (mFolder && ZAN_FilesUtils::isBelow(mRestic->address().shown(), path))
      exclude(literal(mRestic->address().shown()));
  }
  if (const auto limit = mOrder.settings.integer(CopyKey::bandwidth); limit > 0)
    words.insert(words.end(),
                 {"--limit-upload", std::to_string(std::max<std::int64_t>(limit / 1024, 1))});
  return words;
}

/// What restic says during a backup, as progress and as an end.
class ResticEngine::Backup {
 public:
  explicit Backup(ResticEngine& engine) : mEngine(engine) {
    mStart = engine.m.store.clock().monotonic();
  }

  void readLine(std::string_view line) {
    const auto value = ZAN_Json::valueWithJson(line);
    if (!value) return;
    const std::string_view type = (*value)["message_type"].stringView();
    if (type == "status") status(*value);
    if (type == "summary") mSummary = *value;
  }

  void readErrorLine(std::string_view line) {
    if (!line.starts_with('{')) return;
    const auto value = ZAN_Json::valueWithJson(line);
    if (!value || value->string("message_type") != "error") return;
    const ZAN_Value& error = (*value)["error"];
    const auto number = static_cast<int>(error.integer("Err"));
    // What vanished while it was looked at was not there in the end.
    if (number == ENOENT) return;
    const std::string path = value->string("item");
    std::string text = path + ": " +
                       (number > 0         ? std::string(std::strerror(number))
                        : error.isString() ? error.string()
                                           : "it cannot be read");
    ++end.errors;
    if (end.errorTexts.size() < kKeptErrors) end.errorTexts.push_back(std::move(text));
    if (!end.firstErrorPath) end.firstErrorPath = path;
    end.lastErrorPath = path;
  }

  void finish() {
    end.progress = mProgress;
    end.progress.isPlanning = false;
    end.progress.value = 100;
    end.progress.secondsLeft = -1;
    end.progress.errors = end.errors;
    end.progress.filesCopied =
        mSummary["files_new"].unsignedValue() + mSummary["files_changed"].unsignedValue();
    end.progress.sizeCopied = mSummary["data_added"].unsignedValue();
    end.filesReplaced = mSummary["files_changed"].unsignedValue();
  }
  const ZAN_Value& summary() const { return mSummary; }

  ExecuteEnd end;

 private:
  void status(const ZAN_Value& value) {
    const double share = value["percent_done"].doubleValue();
    for (const ZAN_Value& path : value["current_files"].elements()) {
      mProgress.currentPath = path.stringView();
      break;
    }
    mProgress.bytesToCopy = value["total_bytes"].unsignedValue();
    mProgress.filesToCopy = value["total_files"].unsignedValue();
    mProgress.sizeCopied = value["bytes_done"].unsignedValue();
    mProgress.filesCopied = value["files_done"].unsignedValue();
    mProgress.itemsSeen = mProgress.filesToCopy;
    // While it still counts, a share would go back and forth.
    mProgress.value = std::max(mProgress.value, std::min(99.0, 100 * share));
    mProgress.errors = end.errors;
    const double seconds = mEngine.m.store.clock().monotonic() - mStart;
    if (seconds > 1) mProgress.bytesPerSecond = static_cast<double>(mProgress.sizeCopied) / seconds;
    if (value.contains("seconds_remaining"))
      mProgress.secondsLeft = value["seconds_remaining"].doubleValue();
    if (mEngine.m.tell) mEngine.m.tell(mProgress);
  }

  ResticEngine& mEngine;
  ZAN_Value mSummary;
  ExecuteProgress mProgress;
  double mStart = 0;
};

ExecuteEnd ResticEngine::run() {
  const ZAN_Value& settings = mOrder.settings;
  ResticEnd there = look();
  if (there.kind == Kind::noRepository) {
    const bool hasRun =
        settings["LastExecutionDate"].asDate() && settings.integer(CopyKey::isNew) == 0;
    if (hasRun && settings.integer(CopyKey::takesOver) == 0) {
      return endOf(Error{ErrorKind::refused,
                         place() +
                             ": the repository of the action is not there any more; to begin a new "
                             "one: corvana9 edit " +
                             std::to_string(settings.integer("Ref")) + " --adopt"});
    }
    const auto names = mFolder && mFolder->path() == mRestic->address().shown()
                           ? namesInFolder(mFolder->descriptor())
                           : std::nullopt;
    if (names && !names->empty()) {
      return endOf(Error{ErrorKind::refused,
                         place() + ": there are files in it, and no repository; nothing was "
                                   "changed. Choose an empty folder"});
    }
    there = mRestic->call({.words = {"init"}});
  }
  if (!there.isDone()) return endOf(there);
  Backup backup(*this);
  std::vector<std::string> words = backupWords();
  words.emplace_back("--");
  for (const HeldSource& source : mSources) words.push_back(realPath(source));
  const ResticEnd end =
      mRestic->call({.words = std::move(words),
                     .onLine = [&](std::string_view line) { backup.readLine(line); },
                     .onErrorLine = [&](std::string_view line) { backup.readErrorLine(line); },
                     .onWait =
                         [&](const std::string& whose) {
                           if (m.tell) m.tell({.currentPath = place() + ": locked by " + whose});
                         }});
  if (!end.isDone() && end.kind != Kind::partly) return endOf(end);
  backup.finish();
  // restic ends well when one of several sources, or all below a mount, has just gone.
  for (const HeldSource& source : mSources) {
    if (!m.watch.check()) return endOf(ResticEnd{Kind::stopped});
    const Outcome alive = source.checkAlive();
    if (alive) continue;
    ++backup.end.errors;
    backup.end.errorTexts.push_back(alive.error().text);
  }
  if (backup.end.errors > 0) backup.end.code = ExecuteCode::completedWithErrors;
  const ZAN_Value& summary = backup.summary();
  if (summary.string("snapshot_id").empty()) {
    return endOf(Error{ErrorKind::refused, place() + ": restic told of no snapshot"});
  }
  // What a snapshot comes to is known now, and would have to be counted anew later.
  ZAN_Value counts = ZAN_Value::dictionary();
  if (const auto known = ZAN_FilesUtils::readBeginning(countsFile(), 1 << 20)) {
    if (const auto value = ZAN_Json::valueWithJson(*known); value && value->isDictionary())
      counts = *value;
  }
  counts.setValue(
      summary.string("snapshot_id"),
      ZAN_Value::array({summary["total_files_processed"], summary["total_bytes_processed"]}));
  if (const auto text = ZAN_Json::jsonWithValue(counts, {.compact = true, .plain = true}))
    (void)ZAN_FileWriter({}).write(countsFile(), *text, {});
  return backup.end;
}

std::string ResticEngine::countsFile() const {
  return ZAN_FilesUtils::joinedPath(
      secretsFolder(), "Snapshots " + std::to_string(mOrder.settings.integer("Ref")) + ".json");
}

ExecuteEnd ResticEngine::plan(const std::function<void(const PlannedItem&)>& planned) {
  const ResticEnd there = look();
  if (!there.isDone() && there.kind != Kind::noRepository) return endOf(there);
  Backup backup(*this);
  if (there.kind == Kind::noRepository) {
    for (const HeldSource& source : mSources) {
      const ZAN_Descriptor folder =
          source.isFolder ? openFolderBelow(source.held.descriptor(), ".") : ZAN_Descriptor();
      if (!folder) {
        planned({PlannedItem::Kind::copied, source.path, 0});
        continue;
      }
      TreeCursor cursor(folder.get(), {});
      while (const auto entry = cursor.next()) {
        const auto item = VersionItem::read(entry->folder, entry->entry, entry->name, false);
        if (item)
          planned(
              {PlannedItem::Kind::copied,
               ZAN_FilesUtils::joinedPath(source.path, item->name) + (entry->isFolder ? "/" : ""),
               item->size});
      }
    }
    return backup.end;
  }
  std::vector<std::string> words = backupWords();
  words.insert(words.end(), {"--dry-run", "--verbose=2", "--"});
  for (const HeldSource& source : mSources) words.push_back(realPath(source));
  const ResticEnd end = mRestic->call(
      {.words = std::move(words),
       .onLine =
           [&](std::string_view line) {
             const auto value = ZAN_Json::valueWithJson(line);
             if (!value || value->string("message_type") != "verbose_status") return;
             const std::string action = value->string("action");
             const std::string item = value->string("item");
             // Of folders it tells with all that lie above a source.
             if (item.ends_with('/') || (action != "new" && action != "modified")) return;
             planned({action == "new" ? PlannedItem::Kind::copied : PlannedItem::Kind::replaced,
                      item, (*value)["data_size"].unsignedValue()});
           },
       .onErrorLine = [&](std::string_view line) { backup.readErrorLine(line); }});
  if (!end.isDone() && end.kind != Kind::partly) return endOf(end);
  if (backup.end.errors > 0) backup.end.code = ExecuteCode::completedWithErrors;
  return backup.end;
}

Outcome ResticEngine::forget() {
  const ZAN_Value& settings = mOrder.settings;
  std::vector<std::string> words{"forget", "--tag",
                                 tags(),   "--group-by",
                                 "",       "--keep-within",
                                 "2d",     "--keep-within-daily",
                                 "1m",     "--keep-within-weekly",
                                 "1y",     "--keep-last",
                                 "1"};
  const auto days = settings.integer(VersionKey::days);
  if (settings.integer(VersionKey::none) != 0) {
    words = {"forget", "--tag", tags(), "--group-by", "", "--keep-last", "1"};
  } else if (days > 0) {
    const std::string most = std::to_string(days) + "d";
    words = {"forget", "--tag", tags(), "--group-by", "", "--keep-last", "1"};
    words.insert(words.end(), {"--keep-within", days < 2 ? most : "2d", "--keep-within-daily",
                               days < 30 ? most : "30d", "--keep-within-weekly",
                               days < 365 ? most : "365d", "--keep-within-monthly", most});
  } else {
    words.insert(words.end(), {"--keep-monthly", "10000"});
  }
  // Others may be at work in a shared repository; the next run forgets just as well.
  const auto call = [&](std::vector<std::string> what) {
    const ResticEnd end = mRestic->call({.words = std::move(what), .patienceForLocks = 0});
    const bool isLater = end.isDone() || end.kind == Kind::locked || end.kind == Kind::stopped;
    return std::pair(end, isLater);
  };
  if (const auto [end, isLater] = call(std::move(words)); !isLater) return end.error(place());
  const ReferenceTime now = m.store.clock().now();
  const auto last = settings[RepositoryKey::pruned].asDate();
  auto* action = m.tree.rootItem().actionForReference(settings.integer("Ref"));
  const auto note = [&] {
    if (action) action->addInChangesList(ZAN_Value::date(now), RepositoryKey::pruned);
  };
  // The week counts from the first run on, in which there is nothing to prune.
  if (!last || now < *last) {
    note();
    return {};
  }
  if (now - *last < kWeek) return {};
  const auto [end, isLater] = call({"prune"});
  if (end.isDone()) note();
  return isLater ? Outcome() : Outcome(end.error(place()));
}

Result<KeptVersions> ResticEngine::versions() {
  if (const Outcome opened = open(); !opened) return opened.error();
  const bool isOwn = mOrder.from.empty();
  auto all = Snapshot::all(*mRestic, isOwn ? tags()
                                     : mOrder.reference > 0
                                         ? "corvana9,action=" + std::to_string(mOrder.reference)
                                         : std::string());
  if (!all) return all.error();
  mSnapshots = *std::move(all);
  if (!isOwn && !mSnapshots.empty()) {
    // Those of whoever was the last one there.
    const Snapshot newest = mSnapshots.back();
    const auto action = newest.tagged("action=");
    std::erase_if(mSnapshots, [&](const Snapshot& other) {
      if (action)
        return other.tagged("action=") != action ||
               other.tagged("machine=") != newest.tagged("machine=");
      return other.host != newest.host || other.paths != newest.paths;
    });
  }
  ZAN_Value counts;
  if (const auto known = ZAN_FilesUtils::readBeginning(countsFile(), 1 << 20); known && isOwn) {
    if (const auto value = ZAN_Json::valueWithJson(*known)) counts = *value;
  }
  KeptVersions kept;
  for (const Snapshot& snapshot : mSnapshots) {
    KeptVersion version{.id = snapshot.id.substr(0, 8),
                        .date = snapshot.date,
                        .title = isOwn ? mOrder.settings.string("Title") : snapshot.host};
    if (const ZAN_Value& count = counts[version.id]; count.size() == 2) {
      version.files = count.at(0).unsignedValue();
      version.bytes = count.at(1).unsignedValue();
    }
    for (std::size_t i = 0; i < snapshot.paths.size(); ++i) {
      const std::string& path = snapshot.paths[i];
      version.copies.push_back({path.substr(1), path, !snapshot.isFile(i)});
    }
    kept.versions.push_back(std::move(version));
  }
  return kept;
}

Result<const Snapshot*> ResticEngine::snapshotOf(const KeptVersion& version) const {
  const auto found = std::ranges::find_if(
      mSnapshots, [&](const Snapshot& snapshot) { return snapshot.id.starts_with(version.id); });
  if (found != mSnapshots.end()) return &*found;
  return Error{ErrorKind::absent, place() + ": there is no snapshot " + version.id};
}

Result<std::vector<VersionItem>> ResticEngine::statesOf(const std::string& name) {
  std::vector<VersionItem> states(mSnapshots.size(), VersionItem{.name = name});
  std::vector<std::string> words{"find", "--json"};
  for (const Snapshot& snapshot : mSnapshots)
    words.insert(words.end(), {"--snapshot", snapshot.id});
  words.push_back(literal("/" + name));
  const auto text = mRestic->answer(std::move(words));
  if (!text) return text.error();
  // Nothing found is no JSON.
  const auto found = ZAN_Json::valueWithJson(*text);
  if (!found) return states;
  for (const ZAN_Value& hit : found->elements()) {
    const std::string id = hit.string("snapshot");
    const auto snapshot = std::ranges::find(mSnapshots, id, &Snapshot::id);
    if (snapshot == mSnapshots.end()) continue;
    for (const ZAN_Value& node : hit["matches"].elements()) {
      if (auto item = resticItem(node); item && item->name == name)
        states[static_cast<std::size_t>(snapshot - mSnapshots.begin())] = *std::move(item);
    }
  }
  return states;
}

Result<std::unique_ptr<VersionTree>> ResticEngine::list(const KeptVersion& version) {
  const auto snapshot = snapshotOf(version);
  if (!snapshot) return snapshot.error();
  return std::unique_ptr<VersionTree>(std::make_unique<SnapshotTree>(*mRestic, **snapshot));
}

ResticEngine::Restored ResticEngine::restoreInto(const Snapshot& snapshot,
                                                 const std::vector<std::string>& names,
                                                 const HeldFolder& folder, const TaskHooks& hooks) {
  Restored restored;
  std::vector<std::string> words{"restore", snapshot.id, "--target", folder.heldPath()};
  for (const auto& name : names) words.push_back("--include=" + literal("/" + name));
  restored.end = mRestic->call({.words = std::move(words),
                                .onErrorLine =
                                    [&](std::string_view line) {
                                      constexpr std::string_view kIgnoring = "ignoring error for ";
                                      if (!line.starts_with(kIgnoring)) return;
                                      line.remove_prefix(kIgnoring.size());
                                      const auto colon = line.find(": ");
                                      const std::string path(line.substr(0, colon));
                                      restored.failed.push_back(
                                          path.substr(std::min<std::size_t>(1, path.size())));
                                      if (hooks.failed) hooks.failed(std::string(line));
                                    },
                                .descriptors = {folder.descriptor()}});
  // What could not be read is told one by one; anything else leaves it open what is good.
  if (restored.end.kind == Kind::failed && !restored.failed.empty()) restored.end = {};
  return restored;
}

Outcome ResticEngine::restore(const KeptVersion& version, const std::vector<VersionTarget>& targets,
                              const Restoration::Options& options, const TaskHooks& hooks,
                              Restoration::Counts& restored) {
  const auto snapshot = snapshotOf(version);
  if (!snapshot) return snapshot.error();
  const SnapshotTree tree(*mRestic, **snapshot);
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::vector<const VersionTarget*> wanted;
  for (const VersionTarget& target : targets) {
    ParentFolders folders(target.folder.descriptor());
    bool differs = false;
    const Outcome listed = tree.forEach(target.name, [&](const VersionTree::Entry& entry) {
      const VersionItem& item = entry.item;
      const std::string rest = item.name.substr(target.name.size());
      const std::string place =
          target.target == "." ? (rest.empty() ? "." : rest.substr(1)) : target.target + rest;
      const auto [above, name] = splitName(place);
      const int folder = folders.open(above);
      const auto now = folder < 0 ? std::nullopt
                                  : VersionItem::read(folder, name.empty() ? "." : name, {}, false);
      const bool isThere = now && now->kind == item.kind;
      if (item.kind == VersionItem::Kind::folder) {
        differs = differs || !isThere;
        return true;
      }
      ++files;
      bytes += item.size;
      if (isThere && now->size == item.size && now->seconds == item.seconds &&
          now->nanoseconds == item.nanoseconds) {
        if (options.onlyLooks) ++restored.same;
        return true;
      }
      differs = true;
      if (!options.onlyLooks) return true;
      ++restored.files;
      restored.bytes += item.size;
      const std::string path = ZAN_FilesUtils::joinedPath(target.folder.path(), place);
      if (now && now->kind != VersionItem::Kind::none &&
          (!options.overwrites || now->kind == VersionItem::Kind::folder)) {
        ++restored.kept;
        hooks.done(path, true);
      }
      hooks.done(path, false);
      return hooks.goesOn(path, files, bytes);
    });
    if (!listed) return listed;
    if (differs) wanted.push_back(&target);
  }
  hooks.inAll(files, bytes);
  if (options.onlyLooks) return {};
  if (wanted.empty()) restored.same += files;
  for (const VersionTarget* target : wanted) {
    if (!hooks.goesOn(place(), restored.files, restored.bytes)) return {};
    removeTree(target->folder.descriptor(), kStaging);
    const auto staging = target->folder.makeBelow(kStaging, 0700);
    if (!staging) return staging.error();
    Restored brought = restoreInto(**snapshot, {target->name}, *staging, hooks);
    Outcome done;
    if (brought.end.isDone()) {
      const StagedTree staged(*staging, std::move(brought.failed));
      Restoration::Options moving = options;
      moving.moves = true;
      Restoration restoration(
          staged, target->folder, moving,
          {.goesOn =
               [&](const std::string& path, const Restoration::Counts& counts) {
                 return hooks.goesOn(path,
                                     restored.files + restored.same + counts.files + counts.same,
                                     restored.bytes + counts.bytes);
               },
           .failed = hooks.failed,
           .done = hooks.done});
      done = restoration.perform({target->name, target->target});
      const auto& counts = restoration.counts();
      restored.files += counts.files;
      restored.bytes += counts.bytes;
      restored.same += counts.same;
      restored.kept += counts.kept;
      restored.failures += counts.failures;
    } else if (m.control.stopReason() == StopReason::none) {
      done = brought.end.error(place());
    }
    removeTree(target->folder.descriptor(), kStaging);
    if (!done) return done;
  }
  return {};
}

/// A few files of the newest version beside what they were copied from.
Outcome ResticEngine::readBack(const VerifiedShare& share,
                               const std::vector<VersionTarget>& sources, const TaskHooks& hooks,
                               VerifiedCounts& verified) {
  std::vector<std::string> names;
  std::uint64_t bytes = 0;
  const SnapshotTree tree(*mRestic, mSnapshots.back());
  const Outcome listed = tree.forEach({}, [&](const VersionTree::Entry& entry) {
    const VersionItem& item = entry.item;
    if (item.kind != VersionItem::Kind::file || bytes + item.size > share.bytes) return true;
    names.push_back(item.name);
    bytes += item.size;
    return names.size() < share.files;
  });
  if (!listed || names.empty()) return listed;
  hooks.inAll(names.size(), bytes);
  auto home = HeldFolder::open(secretsFolder());
  if (!home) return home.error();
  removeTree(home->descriptor(), kStaging);
  const auto staging = home->makeBelow(kStaging, 0700);
  if (!staging) return staging.error();
  const Restored brought = restoreInto(mSnapshots.back(), names, *staging, hooks);
  for (const auto& name : names) {
    if (!brought.end.isDone() || !hooks.goesOn("/" + name, verified.files, verified.bytes)) break;
    if (std::ranges::find(brought.failed, name) != brought.failed.end()) {
      ++verified.mismatches;
      continue;
    }
    const ZAN_Descriptor copy = openPathBelow(staging->descriptor(), name, O_RDONLY);
    ZAN_Descriptor source;
    for (const VersionTarget& target : sources) {
      if (name != target.name && !isBelow(name, target.name)) continue;
      const std::string rest = name.substr(target.name.size());
      source = openPathBelow(target.folder.descriptor(),
                             target.target == "." ? rest.substr(1) : target.target + rest,
                             O_RDONLY | O_NONBLOCK);
    }
    struct stat one {};
    struct stat two {};
    // What has changed since says nothing of the copy.
    if (!copy || !source || ::fstat(copy.get(), &one) != 0 || ::fstat(source.get(), &two) != 0 ||
        one.st_size != two.st_size || one.st_mtim.tv_sec != two.st_mtim.tv_sec ||
        one.st_mtim.tv_nsec != two.st_mtim.tv_nsec) {
      ++verified.unknown;
      continue;
    }
    const auto found = readTogether(copy.get(), source.get());
    ++verified.files;
    verified.bytes += static_cast<std::uint64_t>(one.st_size);
    if (found && found->first) continue;
    ++verified.mismatches;
    hooks.failed("/" + name + ": it is not what its source is, though that has not changed");
  }
  removeTree(home->descriptor(), kStaging);
  return brought.end.isDone() ? Outcome() : Outcome(brought.end.error(place()));
}

Outcome ResticEngine::verify(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                             const TaskHooks& hooks, VerifiedCounts& verified) {
  if (share.files != UINT64_MAX && !mSnapshots.empty())
    return readBack(share, sources, hooks, verified);
  hooks.inAll(0, 0);
  verified.unit = "pack";
  std::vector<std::string> damages;
  // More parts than restic takes read too much rather than too little.
  constexpr std::uint32_t kMostParts = 256;
  const std::uint32_t parts = std::min(share.parts, kMostParts);
  const ResticEnd end = mRestic->call(
      {.words = {"check", "--read-data-subset",
                 std::to_string(share.part % parts + 1) + "/" + std::to_string(parts)},
       .onLine =
           [&](std::string_view line) {
             // "[0:01] 100.00%  4 / 4 packs"
             const auto slash = line.find(" / ");
             if (line.starts_with('[') && line.ends_with(" packs") && slash != line.npos) {
               const auto start = line.rfind(' ', slash - 1) + 1;
               verified.files = std::strtoull(std::string(line.substr(start)).c_str(), nullptr, 10);
             }
             hooks.goesOn(place(), verified.files, 0);
           },
       .onErrorLine =
           [&](std::string_view line) {
             if (line.find("error") != line.npos || line.find("does not match") != line.npos ||
                 line.find("Pack") != line.npos)
               damages.emplace_back(line);
           },
       .onWait = [&](const std::string& whose) { hooks.goesOn(place() + ": " + whose, 0, 0); }});
  if (end.isDone() || m.control.stopReason() != StopReason::none) return {};
  if (end.kind != Kind::damaged) return end.error(place());
  std::erase_if(damages, [](const std::string& line) {
    return line.find("repository contains errors") != std::string::npos;
  });
  if (damages.empty()) damages.push_back(end.text);
  verified.mismatches = damages.size();
  for (const auto& damage : damages) hooks.failed(place() + ": " + damage);
  return {};
}

Result<std::string> ResticEngine::test() {
  if (const Outcome opened = open(); !opened) return opened.error();
  const ResticEnd there = look();
  if (there.kind == Kind::noRepository)
    return std::string("reachable; there is no repository yet, the first run makes it");
  if (!there.isDone()) return there.error(place());
  const auto snapshots = Snapshot::all(*mRestic, {});
  if (!snapshots) return snapshots.error();
  const auto stats = mRestic->answer({"stats", "--json", "--mode", "raw-data"});
  if (!stats) return stats.error();
  const auto value = ZAN_Json::valueWithJson(*stats);
  std::string text = "reachable; the password is right; " + std::to_string(snapshots->size()) +
                     (snapshots->size() == 1 ? " snapshot" : " snapshots");
  if (value)
    text += ", " + ZAN_StringUtils().getShortSizeBytes((*value)["total_size"].unsignedValue());
  return text;
}

}  // namespace corvana
