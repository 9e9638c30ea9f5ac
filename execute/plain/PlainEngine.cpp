#include "execute/plain/PlainEngine.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/RecordKeys.h"
#include "execute/plain/Verification.h"
#include "execute/plain/VersionView.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

EngineKind plainEngine() {
  return {.name = "plain",
          .make = [](EngineOrder order, EngineHost host) -> std::unique_ptr<Engine> {
            return std::make_unique<PlainEngine>(std::move(order), std::move(host));
          },
          .isPlace =
              [](const std::string& from) {
                return ZAN_FilesUtils::exists(
                    ZAN_FilesUtils::joinedPath(from, std::string(Versions::kName)));
              }};
}

namespace {

DeletionLimit limitOf(const ZAN_Value& settings) {
  DeletionLimit limit;
  const ZAN_Value& share = settings[DeletionKey::limit];
  if (share.isNumber()) limit.share = std::clamp(share.doubleValue(), 0.0, 100.0) / 100;
  limit.confirmed = static_cast<std::uint64_t>(
      std::max<std::int64_t>(settings.integer(DeletionKey::confirmed), 0));
  return limit;
}

}  // namespace

std::string PlainEngine::place() const {
  if (mPlan) return mPlan->destination();
  if (mDestination) return mDestination->path();
  return mOrder.from.empty()
             ? std::string(ActionsTools::getDestinationForAction(mOrder.settings).path())
             : mOrder.from;
}

Outcome PlainEngine::prepare() {
  const VolumeGuard guard(m.volumes, ActionsTools::toleratesOtherVolumes(mOrder.settings));
  auto plan = CopyPlan::fromSettings(mOrder.settings, guard);
  if (!plan) return plan.error();
  mPlan = *std::move(plan);
  return {};
}

std::vector<std::string> PlainEngine::sources() const {
  std::vector<std::string> paths;
  for (const auto& source : mPlan->sources()) paths.push_back(source.path);
  return paths;
}

VersionHeader PlainEngine::own() const {
  return {.machine = m.machine.machineIdentifier(),
          .home = m.machine.homeFolder(),
          .reference = mOrder.settings.integer("Ref"),
          .title = mOrder.settings.string("Title")};
}

CopyOwner PlainEngine::owner() const {
  const ZAN_Value& settings = mOrder.settings;
  const VersionHeader header = own();
  CopyOwner owner;
  owner.mark.machine = header.machine;
  owner.mark.home = header.home;
  owner.mark.reference = header.reference;
  owner.mark.title = header.title;
  owner.hasRun =
      settings["LastExecutionDate"].asDate().has_value() && settings.integer(CopyKey::isNew) == 0;
  owner.takesOver = settings.integer(CopyKey::takesOver) != 0;
  ProgrammedAction::Nodes actions;
  m.tree.rootItem().getAllActionsInOneList(actions, false);
  owner.isAlone = std::ranges::none_of(actions, [&](const ProgrammedAction* action) {
    return action->getReference() != header.reference &&
           ActionsTools::copyInDispute(settings, action->getSettings());
  });
  return owner;
}

CopyRun PlainEngine::runOf(VersionsKept kept) {
  return CopyRun(
      *mPlan, owner(), limitOf(mOrder.settings),
      {.control = m.control, .clock = m.store.clock(), .rsync = m.program("rsync"), .tell = m.tell},
      kept);
}

ExecuteEnd PlainEngine::plan(const std::function<void(const PlannedItem&)>& planned) {
  return runOf({}).look(planned);
}

ExecuteEnd PlainEngine::run() {
  ExecuteEnd end = runOf(VersionsKept::fromSettings(mOrder.settings)).perform();
  mAdded = end.progress.sizeCopied;
  return end;
}

Outcome PlainEngine::forget() {
  const auto destination = mPlan->openDestination();
  if (!destination) return destination.error();
  auto versions = Versions::open(*destination, own());
  if (!versions) return versions.error();
  VersionsKept kept = VersionsKept::fromSettings(mOrder.settings);
  kept.added = mAdded;
  struct statvfs space {};
  // Below a tenth the agent warns of a full start-up disk; a disk for copies may be filled by them.
  if (destination->mount().target == "/" && ::fstatvfs(destination->descriptor(), &space) == 0)
    kept.freeSpace = static_cast<std::uint64_t>(space.f_blocks) * space.f_frsize / 10;
  return versions->thin(m.store.clock().now(), kept);
}

/// Whose copies, held.
Outcome PlainEngine::findPlace() {
  if (!mOrder.from.empty()) {
    auto held = HeldFolder::open(mOrder.from);
    if (!held) return held.error();
    mDestination = *std::move(held);
  } else {
    const FolderDescription described = ActionsTools::getDestinationForAction(mOrder.settings);
    if (described.isNull()) return Error{ErrorKind::refused, "the action has no destination"};
    const VolumeGuard guard(m.volumes, ActionsTools::toleratesOtherVolumes(mOrder.settings));
    const auto place = guard.locate(described);
    if (!place) return place.error();
    auto held = VolumeGuard::hold(place->path, *place);
    if (!held) return held.error();
    mDestination = *std::move(held);
  }
  m.watch.add(*mDestination);
  return {};
}

Result<HeldFolder> PlainEngine::versionsFolder() const {
  auto versions = mDestination->below(std::string(Versions::kName));
  if (versions) return versions;
  if (mOrder.from.empty() && mOrder.settings.integer(VersionKey::none) != 0)
    return Error{ErrorKind::absent, mDestination->path() +
                                        ": the action keeps no versions; its copies are the "
                                        "ordinary folders there"};
  if (mOrder.from.empty() && !mOrder.settings["LastExecutionDate"].asDate())
    return Error{ErrorKind::absent,
                 mDestination->path() + ": the action has copied nothing there yet"};
  return Error{ErrorKind::absent, mDestination->path() + ": there are no versions of copies"};
}

Result<KeptVersions> PlainEngine::versions() {
  if (!mDestination) {
    if (const Outcome found = findPlace(); !found) return found.error();
  }
  const auto folder = versionsFolder();
  if (!folder) return folder.error();
  const auto all = VersionFolder::all(*folder);
  mChain = all;
  VersionHeader own = this->own();
  if (mOrder.settings.isNull()) {
    // Of several actions the one that ran last there, or the one that is wanted.
    for (const auto& version : mChain) {
      if (version.header &&
          (mOrder.reference == 0 || version.header->reference == mOrder.reference))
        own = *version.header;
    }
  }
  KeptVersions kept;
  kept.areCopies = true;
  kept.withoutList =
      static_cast<std::size_t>(std::ranges::count_if(mChain, [](const VersionFolder& version) {
        return !version.header && version.state == VersionFolder::State::dated;
      }));
  std::erase_if(mChain, [&](const VersionFolder& version) {
    return !version.header || !version.header->isOfSameAction(own) ||
           (version.state != VersionFolder::State::dated &&
            version.state != VersionFolder::State::current);
  });
  const auto known = static_cast<std::ptrdiff_t>(VersionFolder::firstKnown(mChain, all));
  kept.withoutList += static_cast<std::size_t>(known);
  mChain.erase(mChain.begin(), mChain.begin() + known);
  for (const auto& version : mChain) {
    if (version.header->isUnfinished) continue;
    KeptVersion one{.id = version.base,
                    .date = version.date,
                    .title = version.header->title,
                    .files = version.header->files,
                    .bytes = version.header->bytes};
    for (const auto& copy : version.header->copies)
      one.copies.push_back({copy.name, copy.source, copy.isFolder});
    kept.versions.push_back(std::move(one));
  }
  return kept;
}

Result<KeptVersion> PlainEngine::newest() {
  auto kept = versions();
  if (!kept) return kept.error();
  if (!kept->versions.empty()) return std::move(kept->versions.back());
  return Error{ErrorKind::absent, place() + ": no version is whole yet"};
}

Result<std::size_t> PlainEngine::indexOf(const KeptVersion& version) const {
  const auto found = std::ranges::find(mChain, version.id, &VersionFolder::base);
  if (found != mChain.end()) return static_cast<std::size_t>(found - mChain.begin());
  return Error{ErrorKind::absent, place() + ": the version " + version.id + " has just gone"};
}

Result<std::vector<VersionItem>> PlainEngine::statesOf(const std::string& name) {
  const auto folder = versionsFolder();
  if (!folder) return folder.error();
  auto states = VersionView::statesOf(*mDestination, *folder, mChain, name);
  if (!states) return states;
  std::vector<VersionItem> finished;
  for (std::size_t i = 0; i < mChain.size(); ++i) {
    if (!mChain[i].header->isUnfinished) finished.push_back(std::move((*states)[i]));
  }
  return finished;
}

Result<std::unique_ptr<VersionTree>> PlainEngine::list(const KeptVersion& version) {
  const auto index = indexOf(version);
  if (!index) return index.error();
  const auto folder = versionsFolder();
  if (!folder) return folder.error();
  auto view = VersionView::open(*mDestination, *folder, mChain, *index);
  if (!view) return view.error();
  return std::unique_ptr<VersionTree>(std::make_unique<VersionView>(*std::move(view)));
}

Outcome PlainEngine::restore(const KeptVersion& version, const std::vector<VersionTarget>& targets,
                             const Restoration::Options& options, const TaskHooks& hooks,
                             Restoration::Counts& restored) {
  auto index = indexOf(version);
  if (!index) return index.error();
  for (const VersionTarget& target : targets) {
    std::vector<std::string> holders{std::string(Versions::kName)};
    for (const auto& copy : version.copies) holders.push_back(copy.name);
    for (const std::string& name : holders) {
      if (const Outcome outside = target.checkOutside(*mDestination, name); !outside)
        return outside;
    }
  }
  // Nothing else may change them meanwhile, and what was cut off is no part of a version.
  auto versions = Versions::open(*mDestination, *mChain[*index].header);
  if (!versions) return versions.error();
  if (versions->wasCut()) {
    if (const Outcome ended = versions->endCut(); !ended) return ended;
    mChain = versions->chain();
    index = indexOf(version);
    if (!index) return index.error();
  }
  const auto view = VersionView::open(*mDestination, *versions->folder(), mChain, *index);
  if (!view) return view.error();
  std::vector<Restoration> restorations;
  restorations.reserve(targets.size());
  Restoration::Counts all;
  // In two rounds, so that what is done can be told of what there is to do.
  for (const VersionTarget& target : targets) {
    Restoration& restoration = restorations.emplace_back(
        *view, target.folder, options,
        Restoration::Hooks{.goesOn =
                               [&](const std::string& path, const Restoration::Counts& counts) {
                                 return hooks.goesOn(
                                     path,
                                     restored.files + restored.same + counts.files + counts.same,
                                     restored.bytes + counts.bytes);
                               },
                           .failed = hooks.failed,
                           .done = hooks.done});
    const auto counted = restoration.count({target.name, target.target});
    if (!counted) return counted.error();
    if (counted->failures > 0) hooks.failed(Restoration::notThere(target.name));
    all += *counted;
  }
  hooks.inAll(all.files, all.bytes);
  for (std::size_t i = 0; i < targets.size(); ++i) {
    const Outcome done = restorations[i].perform({targets[i].name, targets[i].target});
    restored += restorations[i].counts();
    if (!done) return done;
  }
  return {};
}

Outcome PlainEngine::verify(const VerifiedShare& share, const std::vector<VersionTarget>& sources,
                            const TaskHooks& hooks, VerifiedCounts& verified) {
  auto versions = Versions::open(*mDestination, *mChain.back().header);
  if (!versions) return versions.error();
  const auto view =
      VersionView::open(*mDestination, *versions->folder(), mChain, mChain.size() - 1);
  if (!view) return view.error();
  std::vector<Verification::Source> held;
  for (const VersionTarget& source : sources)
    held.push_back({source.name, &source.folder, source.target == "." ? "" : source.target});
  hooks.inAll(view->header().files / share.parts, view->header().bytes / share.parts);
  Verification verification(
      *view, *versions->folder(), ".corvana9-sums-" + std::to_string(view->header().reference),
      std::move(held),
      {.goesOn =
           [&](const std::string& name, const VerifiedCounts& counts) {
             return hooks.goesOn(ZAN_FilesUtils::joinedPath(mDestination->path(), name),
                                 counts.files, counts.bytes);
           },
       .failed = hooks.failed});
  const Outcome done = verification.perform(share);
  verified = verification.counts();
  return done;
}

Result<std::string> PlainEngine::test() {
  if (const Outcome found = findPlace(); !found) return found.error();
  struct statvfs space {};
  if (::fstatvfs(mDestination->descriptor(), &space) != 0)
    return Error{ErrorKind::unreadable, mDestination->path() + ": " + std::strerror(errno)};
  const auto kept = versions();
  return (kept ? std::to_string(kept->versions.size()) + " versions, " : std::string()) +
         ZAN_StringUtils().getShortSizeBytes(static_cast<std::uint64_t>(space.f_bavail) *
                                             space.f_frsize) +
         " free";
}

}  // namespace corvana
