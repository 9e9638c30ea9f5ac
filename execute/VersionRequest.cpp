#include "execute/VersionRequest.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iostream>
#include <iterator>
#include <optional>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/TaskRequest.h"
#include "actions/VersionKey.h"
#include "execute/plain/Restoration.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr double kInterval = 0.25;
constexpr std::size_t kMostTold = 10'000;

std::string withoutEnd(std::string path) {
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  return path;
}

const char* wordFor(VersionItem::Kind kind) {
  switch (kind) {
    case VersionItem::Kind::none:
      return "none";
    case VersionItem::Kind::folder:
      return "folder";
    case VersionItem::Kind::file:
      return "file";
    case VersionItem::Kind::link:
      return "link";
    case VersionItem::Kind::other:
      return "other";
  }
  return "";
}

ReferenceTime changeOf(const VersionItem& item) {
  return static_cast<double>(item.seconds) + static_cast<double>(item.nanoseconds) / 1e9 -
         kReferenceEpochInUnixTime;
}

}  // namespace

void VersionRequest::answer(bool isDone) {
  if (!mAnswers) return;
  mAnswer.setValue("done", isDone ? 1 : 0);
  mAnswer.setValue("files", mFiles);
  mAnswer.setValue("bytes", mBytes);
  mAnswer.setValue("filesInAll", mFilesInAll);
  mAnswer.setValue("bytesInAll", mBytesInAll);
  const auto text = ZAN_Json::jsonWithValue(mAnswer, {.compact = true, .plain = true});
  if (!text) return;
  const std::string file = TaskRequest::answerOf(mFile);
  const std::string fresh = file + ".new";
  const ZAN_Descriptor open(
      ::open(fresh.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_CLOEXEC, 0600));
  if (open && writeAll(open.get(), *text)) std::rename(fresh.c_str(), file.c_str());
}

/// Whether nobody wants it to end, and no volume has gone.
bool VersionRequest::goesOn(const std::string& path, std::uint64_t files, std::uint64_t bytes) {
  mFiles = files;
  mBytes = bytes;
  if (mRecords && !std::exchange(mHasBegun, true)) mRecords->began(mKind);
  while (m.control.isPaused() && m.control.stopReason() == StopReason::none) {
    pollfd wake{m.control.wakeDescriptor(), POLLIN, 0};
    ::poll(&wake, 1, -1);
    m.control.clearWake();
  }
  for (const HeldFolder* folder : mWatched) {
    if (folder->isMounted(mMounts.mounts())) continue;
    mGone = folder->path() + ": its volume is not mounted any more";
    m.control.stop(StopReason::volumeGone);
  }
  const double now = m.files.store.clock().monotonic();
  if (now >= mNextAnswer) {
    mNextAnswer = now + kInterval;
    mAnswer.setValue("path", path);
    answer(false);
    const double all = static_cast<double>(mBytesInAll) + 4096.0 * static_cast<double>(mFilesInAll);
    const double done = static_cast<double>(bytes) + 4096.0 * static_cast<double>(files);
    ExecuteMessages::Progress progress{.currentPath = path,
                                       .value = all <= 0 ? 0 : std::min(99.0, 100 * done / all),
                                       .sizeCopied = bytes,
                                       .filesCopied = files,
                                       .errors = mErrors};
    progress.bytesToCopy = mBytesInAll;
    progress.filesToCopy = mFilesInAll;
    m.messages.postProgress(progress, false);
    if (mRecords) mRecords->workingOn(path);
  }
  return m.control.stopReason() == StopReason::none;
}

/// Whose copies, held, and the version that is wanted of them.
Result<VersionRequest::Place> VersionRequest::findPlace() {
  std::optional<HeldFolder> destination;
  if (const std::string from = mRequest.string("from"); !from.empty()) {
    auto held = HeldFolder::open(from);
    if (!held) return held.error();
    destination = *std::move(held);
  } else {
    const FolderDescription described = ActionsTools::getDestinationForAction(mSettings);
    if (described.isNull()) return Error{ErrorKind::refused, "the action has no destination"};
    const VolumeGuard guard(m.volumes, ActionsTools::toleratesOtherVolumes(mSettings));
    const auto place = guard.locate(described);
    if (!place) return place.error();
    auto held = VolumeGuard::hold(place->path, *place);
    if (!held) return held.error();
    destination = *std::move(held);
  }
  const auto versions = destination->below(std::string(Versions::kName));
  if (!versions)
    return Error{ErrorKind::absent, destination->path() + ": there are no versions of copies"};
  Place place{.destination = *std::move(destination), .chain = VersionFolder::all(*versions)};
  VersionHeader own{.machine = m.machine.machineIdentifier(),
                    .home = m.machine.homeFolder(),
                    .reference = mSettings.integer("Ref")};
  if (mSettings.isNull()) {
    // Of several actions the one that ran last there, or the one that is wanted.
    for (const auto& folder : place.chain) {
      const auto wanted = mRequest.integer("reference");
      if (folder.header && (wanted == 0 || folder.header->reference == wanted))
        own = *folder.header;
    }
  }
  mAnswer.setValue(
      "older", static_cast<int>(std::ranges::count_if(place.chain, [](const VersionFolder& folder) {
        return !folder.header && folder.state == VersionFolder::State::dated;
      })));
  std::erase_if(place.chain, [&](const VersionFolder& folder) {
    return !folder.header || !folder.header->isOfSameAction(own) ||
           (folder.state != VersionFolder::State::dated &&
            folder.state != VersionFolder::State::current);
  });
  const ZAN_Value& at = mRequest["at"];
  bool isFound = false;
  for (std::size_t i = 0; i < place.chain.size(); ++i) {
    const auto& folder = place.chain[i];
    if (folder.header->isUnfinished || (at.isNumber() && folder.date > at.doubleValue())) continue;
    place.index = i;
    isFound = true;
  }
  if (!isFound) {
    return Error{ErrorKind::absent,
                 place.destination.path() + (at.isNumber() ? ": there is no version as old as that"
                                                           : ": no version is whole yet")};
  }
  mAnswer.setValue("version", place.chain[place.index].date);
  mAnswer.setValue("title", place.chain[place.index].header->title);
  return place;
}

/// The names in the version that the paths of the request mean; one empty name for all.
Result<std::vector<std::string>> VersionRequest::namesIn(const VersionHeader& header) const {
  std::vector<std::string> names;
  for (const ZAN_Value& given : mRequest["names"].elements()) {
    const std::string path = withoutEnd(std::string(given.stringView()));
    const std::string full =
        path.starts_with('/') ? path : ZAN_FilesUtils::joinedPath(mRequest.string("folder"), path);
    std::optional<std::string> name;
    for (const auto& copy : header.copies) {
      if (const auto rest = ZAN_FilesUtils::relativePath(full, copy.source); rest && !name)
        name = ZAN_FilesUtils::joinedPath(copy.name, *rest);
      if (!name && !path.starts_with('/') && (path == copy.name || isBelow(path, copy.name)))
        name = path;
    }
    if (!name && !path.starts_with('/') && header.copies.size() == 1 && header.copies[0].isFolder)
      name = ZAN_FilesUtils::joinedPath(header.copies[0].name, path);
    if (!name) return Error{ErrorKind::refused, path + ": it lies in no source of the action"};
    names.push_back(withoutEnd(*name));
  }
  return names;
}

/// Where something of a version goes.
Result<VersionRequest::Target> VersionRequest::targetFor(const VersionHeader& header,
                                                         const std::string& name) const {
  if (const std::string to = mRequest.string("to"); !to.empty()) {
    auto held = HeldFolder::open(to);
    if (!held && held.error().kind == ErrorKind::absent) {
      auto above = HeldFolder::open(std::string(ZAN_FilesUtils::parentPath(to)));
      if (!above) return above.error();
      held = above->makeBelow(std::string(ZAN_FilesUtils::lastPathComponent(to)));
    }
    if (!held) return held.error();
    return Target{*std::move(held), name, splitName(name).second};
  }
  const auto copy = std::ranges::find_if(header.copies, [&](const VersionHeader::Copy& other) {
    return name == other.name || isBelow(name, other.name);
  });
  if (copy == header.copies.end() || !mRequest.string("from").empty())
    return Error{ErrorKind::refused, name + ": where it came from is not known; --to FOLDER"};
  const std::string rest = name.substr(copy->name.size());
  // The source as the action describes it, so that the right volume is there.
  FolderDescription described = FolderDescription().setPath(copy->source);
  for (const auto& source : ActionsTools::getSourcesForAction(mSettings)) {
    if (ZAN_FilesUtils::lastPathComponent(source.path()) == copy->name) described = source;
  }
  const VolumeGuard guard(m.volumes, ActionsTools::toleratesOtherVolumes(mSettings));
  const auto place = guard.locate(described);
  if (!place) return place.error();
  if (copy->isFolder) {
    auto held = VolumeGuard::hold(place->path, *place);
    if (held) return Target{*std::move(held), name, rest.empty() ? "." : rest.substr(1)};
    if (held.error().kind != ErrorKind::absent || ZAN_FilesUtils::exists(place->path))
      return held.error();
  }
  auto above = VolumeGuard::hold(std::string(ZAN_FilesUtils::parentPath(place->path)), *place);
  if (!above) return above.error();
  return Target{*std::move(above), name,
                std::string(ZAN_FilesUtils::lastPathComponent(place->path)) + rest};
}

Outcome VersionRequest::versions() {
  auto place = findPlace();
  if (!place) return place.error();
  const auto names = namesIn(*place->chain.back().header);
  if (!names) return names.error();
  ZAN_Value list = ZAN_Value::array();
  std::vector<VersionItem> states;
  if (!names->empty()) {
    const auto folder = place->destination.below(std::string(Versions::kName));
    if (!folder) return folder.error();
    auto found = VersionView::statesOf(place->destination, *folder, place->chain, names->front());
    if (!found) return found.error();
    states = *std::move(found);
    mAnswer.setValue("name", names->front());
  }
  for (std::size_t i = 0; i < place->chain.size(); ++i) {
    const auto& version = place->chain[i];
    if (version.header->isUnfinished) continue;
    ZAN_Value entry = ZAN_Value::dictionary({{"date", version.date},
                                             {"folder", version.base},
                                             {"newest", i + 1 == place->chain.size() ? 1 : 0}});
    if (states.empty()) {
      entry.setValue("files", version.header->files);
      entry.setValue("bytes", version.header->bytes);
    } else {
      entry.setValue("kind", std::string(wordFor(states[i].kind)));
      if (states[i].kind != VersionItem::Kind::none) {
        entry.setValue("bytes", states[i].size);
        entry.setValue("changed", changeOf(states[i]));
      }
    }
    list.append(std::move(entry));
  }
  mAnswer.setValue("versions", list);
  return {};
}

Outcome VersionRequest::restore() {
  auto place = findPlace();
  if (!place) return place.error();
  const bool onlyLooks = mRequest["dryRun"].boolValue();
  // Nothing else may change them meanwhile, and what was cut off is no part of a version.
  auto versions = Versions::open(place->destination, *place->chain[place->index].header);
  if (!versions) return versions.error();
  if (versions->wasCut()) {
    if (const Outcome ended = versions->endCut(); !ended) return ended;
    const std::string wanted = place->chain[place->index].base;
    place->chain = versions->chain();
    place->index = static_cast<std::size_t>(
        std::ranges::find(place->chain, wanted, &VersionFolder::base) - place->chain.begin());
    if (place->index == place->chain.size()) return findPlace().error();
  }
  const auto view =
      VersionView::open(place->destination, *versions->folder(), place->chain, place->index);
  if (!view) return view.error();
  const VersionHeader& header = view->header();
  auto names = namesIn(header);
  if (!names) return names.error();
  if (names->empty()) {
    for (const auto& copy : header.copies) names->push_back(copy.name);
  }
  mWatched.push_back(&place->destination);
  std::vector<Target> targets;
  for (const auto& name : *names) {
    auto target = targetFor(header, name);
    if (!target) return target.error();
    targets.push_back(*std::move(target));
  }
  ZAN_Value kept = ZAN_Value::array();
  ZAN_Value items = ZAN_Value::array();
  std::uint64_t same = 0;
  std::uint64_t inTheWay = 0;
  // In two rounds, so that what is done can be told of what there is to do.
  for (const bool isCounting : {true, false}) {
    std::uint64_t files = 0;
    std::uint64_t bytes = 0;
    for (const Target& target : targets) {
      if (isCounting) mWatched.push_back(&target.folder);
      Restoration restoration(*view, target.folder,
                              {.overwrites = mRequest["overwrite"].boolValue(),
                               .onlyLooks = onlyLooks,
                               .suffix = ".before-" + versionDateText(m.files.store.clock().now())},
                              {.goesOn =
                                   [&](const std::string& path, const Restoration::Counts& counts) {
                                     return goesOn(path, files + counts.files + counts.same,
                                                   bytes + counts.bytes);
                                   },
                               .failed =
                                   [&](std::string text) {
                                     ++mErrors;
                                     if (mErrorTexts.size() < kMostTold)
                                       mErrorTexts.push_back(std::move(text));
                                   },
                               .done =
                                   [&](const std::string& path, bool isInTheWay) {
                                     ZAN_Value& list = isInTheWay ? kept : items;
                                     if (list.size() < kMostTold) list.append(path);
                                   }});
      if (isCounting) {
        const auto counted = restoration.count({target.name, target.target});
        if (!counted) return counted.error();
        mFilesInAll += counted->files;
        mBytesInAll += counted->bytes;
        continue;
      }
      if (const Outcome done = restoration.perform({target.name, target.target}); !done)
        return done;
      files += restoration.counts().files;
      bytes += restoration.counts().bytes;
      same += restoration.counts().same;
      inTheWay += restoration.counts().kept;
      mFiles = files;
      mBytes = bytes;
    }
  }
  if (mFilesInAll == 0 && names->size() == 1 && items.empty() && same == 0 && mErrors == 0) {
    struct stat state {};
    const bool isFolder =
        ::fstatat(targets.front().folder.descriptor(), targets.front().target.c_str(), &state,
                  AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISDIR(state.st_mode);
    if (!isFolder)
      return Error{ErrorKind::absent, names->front() + ": the version has nothing of that name"};
  }
  mAnswer.setValue("same", same);
  mAnswer.setValue("inTheWay", inTheWay);
  mAnswer.setValue("kept", kept);
  mAnswer.setValue("items", items);
  if (mErrors > 0)
    return Error{ErrorKind::damaged, std::to_string(mErrors) + " items could not be restored"};
  return {};
}

Outcome VersionRequest::verify(const Verification::Share& share) {
  auto place = findPlace();
  if (!place) return place.error();
  auto versions = Versions::open(place->destination, *place->chain.back().header);
  if (!versions) return versions.error();
  const std::size_t newest = place->chain.size() - 1;
  const auto view =
      VersionView::open(place->destination, *versions->folder(), place->chain, newest);
  if (!view) return view.error();
  mWatched.push_back(&place->destination);
  // A source that is not there leaves the checksums.
  std::vector<Target> held;
  std::vector<Verification::Source> sources;
  if (mRequest.string("from").empty()) {
    for (const auto& copy : view->header().copies) {
      if (auto target = targetFor(view->header(), copy.name)) held.push_back(*std::move(target));
    }
  }
  for (const Target& target : held) {
    sources.push_back({target.name, &target.folder, target.target == "." ? "" : target.target});
    mWatched.push_back(&target.folder);
  }
  mFilesInAll = view->header().files / share.parts;
  mBytesInAll = view->header().bytes / share.parts;
  Verification verification(
      *view, *versions->folder(), ".corvana9-sums-" + std::to_string(view->header().reference),
      std::move(sources),
      {.goesOn =
           [&](const std::string& name, const Verification::Counts& counts) {
             return goesOn(ZAN_FilesUtils::joinedPath(place->destination.path(), name),
                           counts.files, counts.bytes);
           },
       .failed =
           [&](std::string text) {
             ++mErrors;
             if (mErrorTexts.size() < kMostTold) mErrorTexts.push_back(std::move(text));
           }});
  const Outcome done = verification.perform(share);
  mFiles = verification.counts().files;
  mBytes = verification.counts().bytes;
  mUnknown = verification.counts().unknown;
  mMismatches = verification.counts().mismatches;
  mAnswer.setValue("unknown", mUnknown);
  mAnswer.setValue("mismatches", mMismatches);
  mWatched.clear();
  if (!done) return done;
  if (mMismatches > 0) {
    return Error{ErrorKind::damaged, "THE COPY IS DAMAGED: " + std::to_string(mMismatches) +
                                         (mMismatches == 1 ? " file is" : " files are") +
                                         " not what was copied (" + mErrorTexts.front() +
                                         "). Check the disk, and restore nothing over good files"};
  }
  return {};
}

namespace {

constexpr double kWeek = 7 * 86400.0;
constexpr std::uint32_t kPartsAWeek = 10;
constexpr std::uint64_t kFilesReadBack = 20;
constexpr std::uint64_t kBytesReadBack = 50 << 20;

/// Another part each week.
Verification::Share shareOf(ReferenceTime now, double percent) {
  const auto parts =
      static_cast<std::uint32_t>(std::clamp(100 / std::max(percent, 0.1), 1.0, 1000.0));
  return {.parts = parts,
          .part = static_cast<std::uint32_t>(static_cast<std::uint64_t>(now / kWeek) % parts)};
}

}  // namespace

/// In the action's record.
void VersionRequest::noteVerification() {
  auto* action = m.files.tree.rootItem().actionForReference(mSettings.integer("Ref"));
  if (!action || m.control.stopReason() != StopReason::none) return;
  action->addInChangesList(ZAN_Value::date(m.files.store.clock().now()), VersionKey::verified);
  action->addInChangesList(mMismatches, VersionKey::mismatches);
}

void VersionRequest::verifyAfterRun(const ZAN_Value& settings, bool isFirst, ExecuteEnd& end) {
  const ReferenceTime now = m.files.store.clock().now();
  const auto last = settings[VersionKey::verified].asDate();
  if (!end.isExecuted() || settings.integer(VersionKey::none) != 0 ||
      (!isFirst && last && now - *last < kWeek && now >= *last))
    return;
  mAnswers = false;
  mSettings = settings;
  mRequest = ZAN_Value::dictionary();
  const Outcome verified =
      verify(isFirst ? Verification::Share{.files = kFilesReadBack, .bytes = kBytesReadBack}
                     : shareOf(now, 100.0 / kPartsAWeek));
  if (m.control.stopReason() != StopReason::none) return;
  if (mMismatches > 0) {
    end.code = ExecuteCode::completedWithErrors;
    end.reason = verified.error().text;
    end.errors += mErrors;
    end.errorTexts.insert(end.errorTexts.end(), mErrorTexts.begin(), mErrorTexts.end());
  } else if (!verified) {
    return;
  } else if (isFirst && mFiles > 0) {
    end.isReadBack = true;
  }
  noteVerification();
}

Outcome VersionRequest::diff() {
  auto place = findPlace();
  if (!place) return place.error();
  const auto folder = place->destination.below(std::string(Versions::kName));
  if (!folder) return folder.error();
  const auto view = VersionView::open(place->destination, *folder, place->chain, place->index);
  if (!view) return view.error();
  mWatched.push_back(&place->destination);
  ZAN_Value list = ZAN_Value::array();
  std::uint64_t differences = 0;
  const auto tell = [&](const char* what, const std::string& path) {
    ++differences;
    if (list.size() < kMostTold)
      list.append(ZAN_Value::dictionary({{"what", what}, {"path", path}}));
  };
  const auto wanted = namesIn(view->header());
  if (!wanted) return wanted.error();
  std::vector<std::string> names = *wanted;
  if (names.empty()) {
    for (const auto& copy : view->header().copies) names.push_back(copy.name);
  }
  for (const std::string& name : names) {
    auto target = targetFor(view->header(), name);
    if (!target) return target.error();
    // Names as the source has them now, in the order of the version's.
    const bool isAll = target->target == ".";
    const auto [above, entry] = splitName(target->target);
    const ZAN_Descriptor parent =
        openPathBelow(target->folder.descriptor(), above, O_PATH | O_DIRECTORY);
    const ZAN_Descriptor root =
        isAll ? openFolderBelow(target->folder.descriptor(), ".")
              : (parent ? openFolderBelow(parent.get(), entry) : ZAN_Descriptor());
    std::optional<TreeCursor> cursor;
    if (root) cursor.emplace(root.get(), name);
    auto now = cursor ? cursor->next() : std::nullopt;
    const auto pathOf = [&](const std::string& item) {
      return ZAN_FilesUtils::joinedPath(
          ZAN_FilesUtils::joinedPath(target->folder.path(), isAll ? "" : target->target),
          item.size() > name.size() ? item.substr(name.size() + 1) : std::string());
    };
    const auto isBefore = [](const std::string& one, const std::string& two) {
      return comesBefore(VersionItem::escaped(one), VersionItem::escaped(two));
    };
    const auto compare = [&](const VersionItem& then, const VersionItem& there) {
      if (there.kind == VersionItem::Kind::none) return tell("gone", pathOf(then.name));
      const bool isOther = there.kind != then.kind || there.target != then.target ||
                           (then.kind == VersionItem::Kind::file &&
                            (there.size != then.size || there.seconds != then.seconds));
      if (isOther) return tell("changed", pathOf(then.name));
      if (there.mode != then.mode || there.user != then.user || there.group != then.group)
        tell("attributes", pathOf(then.name));
    };
    const Outcome read = view->forEach(name, [&](const VersionView::Entry& found) {
      const std::string& item = found.item.name;
      if (!goesOn(pathOf(item), mFiles + 1, 0)) return false;
      if (item == name) {
        const auto there =
            isAll ? VersionItem::read(target->folder.descriptor(), ".", name, false)
                  : (parent ? VersionItem::read(parent.get(), entry, name, false) : std::nullopt);
        compare(found.item, there.value_or(VersionItem{.name = name}));
        return true;
      }
      while (now && isBefore(now->name, item)) {
        tell("new", pathOf(now->name));
        if (now->isFolder) cursor->skip();
        now = cursor->next();
      }
      if (now && now->name == item) {
        const auto there = VersionItem::read(now->folder, now->entry, item, false);
        compare(found.item, there.value_or(VersionItem{.name = item}));
        if (now->isFolder && found.item.kind != VersionItem::Kind::folder) cursor->skip();
        now = cursor->next();
      } else {
        tell("gone", pathOf(item));
      }
      return true;
    });
    if (!read) return read.error();
    for (; now; now = cursor->next()) {
      tell("new", pathOf(now->name));
      if (now->isFolder) cursor->skip();
    }
  }
  mAnswer.setValue("differences", list);
  mAnswer.setValue("count", differences);
  return {};
}

ExecuteEnd VersionRequest::end(const Outcome& outcome) const {
  ExecuteEnd end;
  end.errors = mErrors;
  end.errorTexts = mErrorTexts;
  end.progress.filesCopied = mFiles;
  end.progress.sizeCopied = mBytes;
  switch (m.control.stopReason()) {
    case StopReason::user:
      end.code = ExecuteCode::abortedByUser;
      end.reason = "stopped; what was restored stays";
      return end;
    case StopReason::volumeGone:
      end.code = ExecuteCode::volumeGone;
      end.reason = mGone;
      return end;
    case StopReason::sessionEnd:
      end.code = ExecuteCode::unexpectedError;
      end.reason = kSessionEnded;
      return end;
    case StopReason::none:
      break;
  }
  if (outcome) return end;
  end.code = mErrors > 0 ? ExecuteCode::completedWithErrors : ExecuteCode::unexpectedError;
  end.reason = outcome.error().text;
  return end;
}

void VersionRequest::take(const ExecuteArguments& arguments) {
  mFile = arguments.request;
  std::ifstream stream(mFile, std::ios::binary);
  const auto request =
      ZAN_Json::valueWithJson(std::string(std::istreambuf_iterator<char>(stream), {}));
  mRequest = request ? *request : ZAN_Value::dictionary();
  mKind = mRequest.string("kind");
  const auto* action = m.files.tree.rootItem().actionForReference(arguments.reference);
  mSettings = action ? action->getSettings() : ZAN_Value();
  if (action && TaskRequest::isTask(mKind) && !mRequest["dryRun"].boolValue()) {
    mRecords.emplace(m.files, m.messages, m.agentRuns, arguments.reference, action->getTitle());
  }
}

void VersionRequest::perform(const ExecuteArguments& arguments) {
  take(arguments);
  Outcome outcome;
  if (mSettings.isNull() && mRequest.string("from").empty()) {
    outcome = Error{ErrorKind::refused,
                    "Ref " + std::to_string(arguments.reference) + ": there is no such action"};
  } else if (mKind == "versions") {
    outcome = versions();
  } else if (mKind == TaskRequest::kRestore) {
    outcome = restore();
  } else if (mKind == TaskRequest::kVerify) {
    const ZAN_Value& sample = mRequest["sample"];
    outcome = verify(
        shareOf(m.files.store.clock().now(), sample.isNumber() ? sample.doubleValue() : 100));
    if (outcome || mMismatches > 0) noteVerification();
  } else if (mKind == "diff") {
    outcome = diff();
  } else {
    outcome = Error{ErrorKind::refused, mFile + ": it asks for nothing that is known"};
  }
  finish(end(outcome));
}

void VersionRequest::recordEnd(const ExecuteArguments& arguments, const ExecuteEnd& end) {
  take(arguments);
  mHasBegun = true;
  if (mRecords) mRecords->takeUp();
  finish(end);
}

void VersionRequest::finish(const ExecuteEnd& end) {
  mAnswer.setValue("code", end.code == ExecuteCode::completed ? 0 : 1);
  if (!end.reason.empty()) mAnswer.setValue("reason", end.reason);
  ZAN_Value failed = ZAN_Value::array();
  for (const auto& error : mErrorTexts) failed.append(error);
  mAnswer.setValue("failed", failed);
  if (mRecords && mHasBegun) mRecords->taskEnded(mKind, end);
  ::unlink(mFile.c_str());
  // Last, since whoever waits for it goes on then.
  answer(true);
  if (!end.reason.empty()) std::cerr << end.reason << std::endl;
}

}  // namespace corvana
