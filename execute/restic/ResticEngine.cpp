#include "execute/restic/ResticEngine.h"

#include <algorithm>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionStore.h"
#include "actions/ActionsTools.h"
#include "execute/restic/ResticReadBack.h"
#include "execute/restic/ResticRestoration.h"
#include "execute/restic/ResticUpkeep.h"
#include "platform/KeyringTool.h"

namespace corvana {

namespace {

using Kind = ResticEnd::Kind;

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

std::string ResticEngine::dataFolder() const { return m.store.folder().hiddenFolderPath(); }

Result<std::string> ResticEngine::password(const std::string& address,
                                           std::string& secretAddress) const {
  std::string file = mOrder.passwordFile;
  if (file.empty()) file = mOrder.settings.string(RepositoryKey::passwordFile);
  // The keyring is asked through a program of its own, which takes its time.
  if (!file.empty() && !RepositoryAddress(address).mayHaveSecret())
    return RepositorySecret::passwordFrom(file);
  const auto secret = RepositorySecret::find(
      address, dataFolder(),
      [this](const std::vector<std::string>& words) { return askKeyring(words); });
  if (secret) secretAddress = secret->address;
  if (!file.empty()) return RepositorySecret::passwordFrom(file);
  if (!secret) return secret.error();
  return secret->password;
}

Result<std::string> ResticEngine::askKeyring(const std::vector<std::string>& words) const {
  const auto seconds = std::to_string(static_cast<int>(KeyringTool::kSeconds));
  ChildProgram::Task task{.arguments = {"/usr/bin/timeout", seconds}, .obeysSkip = false};
  task.arguments.insert(task.arguments.end(), words.begin(), words.end());
  std::string said;
  task.onOutput = [&](std::string_view bytes) { said += bytes; };
  const auto end = ChildProgram::run(task, m.control);
  constexpr int kTimeIsUp = 124;
  if (!end) return end.error();
  if (!end->signalled && end->status == 0) return said;
  const bool isLate = end->signalled || end->status == kTimeIsUp;
  return Error{
      isLate ? ErrorKind::unavailable : ErrorKind::refused,
      words.front() + ": " + (isLate ? "no answer in " + seconds + " s" : "nothing there")};
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
  use(RepositoryAddress(path), *std::move(password));
  return {};
}

void ResticEngine::use(RepositoryAddress address, std::string password) {
  mRestic = std::make_unique<Restic>(m, std::move(address), std::move(password));
  mAction.emplace(ResticAction{mOrder, m, *mRestic});
  if (!mOrder.from.empty()) return;
  mNotes.emplace(
      ZAN_FilesUtils::joinedPath(
          dataFolder(), "Snapshots " + std::to_string(mOrder.settings.integer("Ref")) + ".json"),
      place());
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
  use(secretAddress.empty() || given.hasSecret() ? given : RepositoryAddress(secretAddress),
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

ResticBackup ResticEngine::backup() const {
  return {*mAction, mSources, mFolder ? &*mFolder : nullptr};
}

ExecuteEnd ResticEngine::run() {
  ResticBackup backup = this->backup();
  ExecuteEnd end = backup.run(*mNotes);
  // It need not be asked for; each opening of the repository takes its time.
  if (backup.made()) mSnapshots = {*backup.made()};
  return end;
}

ExecuteEnd ResticEngine::plan(const std::function<void(const PlannedItem&)>& planned) {
  return backup().plan(planned);
}

Outcome ResticEngine::forget() { return ResticUpkeep(*mAction).forget(*mNotes); }

Result<KeptVersions> ResticEngine::versions() {
  if (const Outcome opened = open(); !opened) return opened.error();
  const bool isOwn = mOrder.from.empty();
  std::string tags;
  if (mOrder.reference > 0)
    tags = std::string(SnapshotTag::own) + "," + std::string(SnapshotTag::action) +
           std::to_string(mOrder.reference);
  auto all = isOwn ? mAction->snapshots() : Snapshot::all(*mRestic, tags);
  if (!all && all.error().kind == ErrorKind::absent && isOwn &&
      !mOrder.settings["LastExecutionDate"].asDate())
    return Error{ErrorKind::absent, place() + ": the action has copied nothing there yet"};
  if (!all) return all.error();
  mSnapshots = *std::move(all);
  if (isOwn) mNotes->update(mSnapshots);
  if (!isOwn && !mSnapshots.empty()) {
    // Those of whoever was the last one there.
    const Snapshot newest = mSnapshots.back();
    const auto isSame = [&](const Snapshot& other, std::string_view prefix) {
      return other.tagged(prefix) == newest.tagged(prefix);
    };
    std::erase_if(mSnapshots, [&](const Snapshot& other) {
      if (newest.tagged(SnapshotTag::action))
        return !isSame(other, SnapshotTag::action) || !isSame(other, SnapshotTag::machine) ||
               !isSame(other, SnapshotTag::home);
      return other.host != newest.host || other.paths != newest.paths;
    });
  }
  KeptVersions kept;
  for (const Snapshot& snapshot : mSnapshots) kept.versions.push_back(keptVersion(snapshot));
  return kept;
}

KeptVersion ResticEngine::keptVersion(const Snapshot& snapshot) const {
  const bool isOwn = mOrder.from.empty();
  KeptVersion version{.id = snapshot.id.substr(0, Snapshot::kShortId),
                      .date = snapshot.date,
                      .title = isOwn ? mOrder.settings.string("Title") : snapshot.host};
  if (const auto* note = isOwn ? mNotes->of(snapshot.id) : nullptr) {
    version.files = note->files;
    version.bytes = note->bytes;
  }
  for (std::size_t i = 0; i < snapshot.paths.size(); ++i) {
    const std::string& path = snapshot.paths[i];
    version.copies.push_back({path.substr(1), path, !snapshot.isFile(i)});
  }
  return version;
}

Result<KeptVersion> ResticEngine::newest() {
  if (mSnapshots.empty()) {
    if (const auto kept = versions(); !kept) return kept.error();
  }
  if (!mSnapshots.empty()) return keptVersion(mSnapshots.back());
  return Error{ErrorKind::absent, place() + ": no version is whole yet"};
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
  words.push_back(resticLiteral("/" + name));
  const auto text = mRestic->answer(std::move(words));
  if (!text) return text.error();
  // Nothing found is no JSON.
  const auto found = ZAN_Json::valueWithJson(*text);
  if (!found) return states;
  // Nor are bytes that are no Unicode; it was asked for by them.
  const std::string told = withReplacedBytes(name);
  for (const ZAN_Value& hit : found->elements()) {
    const std::string id = hit.string("snapshot");
    const auto snapshot = std::ranges::find(mSnapshots, id, &Snapshot::id);
    if (snapshot == mSnapshots.end()) continue;
    for (const ZAN_Value& node : hit["matches"].elements()) {
      if (auto item = resticItem(node); item && item->name == told) {
        item->name = name;
        states[static_cast<std::size_t>(snapshot - mSnapshots.begin())] = *std::move(item);
      }
    }
  }
  return states;
}

Result<std::unique_ptr<VersionTree>> ResticEngine::list(const KeptVersion& version) {
  const auto snapshot = snapshotOf(version);
  if (!snapshot) return snapshot.error();
  return std::unique_ptr<VersionTree>(std::make_unique<SnapshotTree>(*mRestic, **snapshot));
}

Outcome ResticEngine::restore(const KeptVersion& version, const std::vector<VersionTarget>& targets,
                              const Restoration::Options& options, const TaskHooks& hooks,
                              Restoration::Counts& restored) {
  const auto snapshot = snapshotOf(version);
  if (!snapshot) return snapshot.error();
  for (const VersionTarget& target : targets) {
    const Outcome outside = mFolder ? target.checkOutside(*mFolder) : Outcome();
    if (!outside) return outside;
  }
  return ResticRestoration(*mAction, **snapshot, hooks).restore(targets, options, restored);
}

Outcome ResticEngine::verify(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                             const TaskHooks& hooks, VerifiedCounts& verified) {
  if (share.files == UINT64_MAX || mSnapshots.empty())
    return ResticUpkeep(*mAction).check(share, hooks, verified);
  return ResticReadBack(*mAction, mSnapshots.back(), sources, dataFolder())
      .perform(share, hooks, verified);
}

Result<std::string> ResticEngine::test() {
  if (const Outcome opened = open(); !opened) return opened.error();
  const ResticEnd there = mRestic->call({.words = {"cat", "config"}});
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
