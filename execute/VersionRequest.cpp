#include "execute/VersionRequest.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <utility>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/TaskRequest.h"
#include "execute/Engines.h"
#include "execute/ReadBack.h"
#include "execute/VersionPlaces.h"
#include "execute/engine/Difference.h"
#include "execute/engine/NameList.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr std::size_t kMostTold = 10'000;

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

/// What has become of it at its place: "same", "changed" or "gone".
std::string sinceOf(const VersionItem& then, const std::string& source) {
  struct stat now {};
  if (::lstat(source.c_str(), &now) != 0) return "gone";
  if (VersionItem::kindOf(now) != then.kind) return "changed";
  const bool isOther =
      then.kind == VersionItem::Kind::file &&
      (static_cast<std::uint64_t>(now.st_size) != then.size || now.st_mtim.tv_sec != then.seconds);
  return isOther ? "changed" : "same";
}

}  // namespace

/// The version that is wanted, of those that there are.
Outcome VersionRequest::choose() {
  auto kept = mEngine->versions();
  if (!kept) return kept.error();
  mKept = *std::move(kept);
  mAnswer.set("older", mKept.withoutList);
  const ZAN_Value& at = mRequest["at"];
  const auto isWanted = [&](const KeptVersion& version) {
    return !at.isNumber() || version.date <= at.doubleValue();
  };
  const auto found = std::find_if(mKept.versions.rbegin(), mKept.versions.rend(), isWanted);
  if (found == mKept.versions.rend()) {
    if (!mKept.versions.empty()) mAnswer.set("oldest", mKept.versions.front().date);
    return Error{ErrorKind::absent,
                 mEngine->place() + (at.isNumber() ? ": there is no version as old as that"
                                                   : ": no version is whole yet")};
  }
  mVersion = *found;
  mAnswer.set("version", mVersion.date);
  mAnswer.set("title", mVersion.title);
  return {};
}

Result<std::vector<std::string>> VersionRequest::names() const {
  const VersionPlaces places(mVersion, mSettings, m.volumes);
  std::vector<std::string> names;
  const std::string folder = TaskRequest::pathFrom(mRequest["folder"]);
  for (const ZAN_Value& given : mRequest["names"].elements()) {
    auto name = places.nameOf(TaskRequest::pathFrom(given), folder);
    if (!name) return name.error();
    names.push_back(*std::move(name));
  }
  return names;
}

Result<std::vector<VersionTarget>> VersionRequest::targets() const {
  auto wanted = names();
  if (!wanted) return wanted.error();
  if (wanted->empty()) {
    for (const auto& copy : mVersion.copies) wanted->push_back(copy.name);
  }
  const std::string to = TaskRequest::pathFrom(mRequest["to"]);
  // Copies that somebody else's action has made belong nowhere here.
  const ZAN_Value nobody{};
  const VersionPlaces places(mVersion, mRequest.string("from").empty() ? mSettings : nobody,
                             m.volumes);
  std::vector<VersionTarget> targets;
  for (const auto& name : *wanted) {
    auto target = to.empty() ? places.origin(name) : VersionPlaces::in(to, name);
    if (!target) return target.error();
    targets.push_back(*std::move(target));
  }
  return targets;
}

Outcome VersionRequest::versions() {
  const auto wanted = names();
  if (!wanted) return wanted.error();
  ZAN_Value list = ZAN_Value::array();
  std::vector<VersionItem> states;
  if (!wanted->empty()) {
    auto found = mEngine->statesOf(wanted->front());
    if (!found) return found.error();
    states = *std::move(found);
    mAnswer.set("name", wanted->front());
  }
  for (std::size_t i = 0; i < mKept.versions.size(); ++i) {
    const KeptVersion& version = mKept.versions[i];
    ZAN_Value entry = ZAN_Value::dictionary({{"date", version.date},
                                             {"folder", version.id},
                                             {"newest", i + 1 == mKept.versions.size() ? 1 : 0}});
    if (wanted->empty()) {
      if (version.files) entry.setValue("files", *version.files);
      if (version.bytes) entry.setValue("bytes", *version.bytes);
    } else {
      entry.setValue("kind", std::string(wordFor(states[i].kind)));
      if (states[i].kind != VersionItem::Kind::none) {
        entry.setValue("bytes", states[i].size);
        entry.setValue("changed", changeOf(states[i]));
      }
    }
    list.append(std::move(entry));
  }
  mAnswer.set("areCopies", mKept.areCopies ? 1 : 0);
  mAnswer.set("versions", list);
  return {};
}

Outcome VersionRequest::restore() {
  const auto targets = this->targets();
  if (!targets) return targets.error();
  for (const VersionTarget& target : *targets) mWatch.add(target.folder);
  ZAN_Value kept = ZAN_Value::array();
  ZAN_Value items = ZAN_Value::array();
  TaskHooks hooks = mAnswer.hooks();
  hooks.done = [&](const std::string& path, bool isInTheWay) {
    ZAN_Value& list = isInTheWay ? kept : items;
    if (list.size() < kMostTold) list.append(path);
  };
  Restoration::Counts restored;
  const Outcome done =
      mEngine->restore(mVersion, *targets,
                       {.overwrites = mRequest["overwrite"].boolValue(),
                        .onlyLooks = mRequest["dryRun"].boolValue(),
                        .suffix = ".before-" + versionDateText(m.files.store.clock().now())},
                       hooks, restored);
  mAnswer.setDone(restored.files, restored.bytes);
  mAnswer.set("same", restored.same);
  mAnswer.set("unread", restored.unread);
  mAnswer.set("inTheWay", restored.kept);
  mAnswer.set("kept", kept);
  mAnswer.set("items", items);
  mWatch.clear();
  if (!done) return done;
  if (mAnswer.errors() == 1 && targets->size() == 1 && mAnswer.filesInAll() == 0)
    return Error{ErrorKind::absent, mAnswer.firstError()};
  if (mAnswer.errors() > 0)
    return Error{ErrorKind::damaged, mAnswer.errors() == 1 ? "one item could not be restored"
                                                           : std::to_string(mAnswer.errors()) +
                                                                 " items could not be restored"};
  return {};
}

Outcome VersionRequest::verify() {
  const ZAN_Value& sample = mRequest["sample"];
  ReadBack readBack(*mEngine, m.files, mWatch);
  const Outcome done =
      readBack.perform(ReadBack::shareOf(m.files.store.clock().now(),
                                         sample.isNumber() ? sample.doubleValue() : 100),
                       mRequest.string("from").empty() ? mSettings : ZAN_Value(),
                       mKept.versions.back(), m.volumes, mAnswer.hooks());
  const VerifiedCounts& counts = readBack.counts();
  mAnswer.setDone(counts.files, counts.bytes);
  mAnswer.set("unit", counts.unit);
  mAnswer.set("unknown", counts.unknown);
  mAnswer.set("mismatches", counts.mismatches);
  if ((done || counts.mismatches > 0) && m.control.stopReason() == StopReason::none)
    readBack.note(mSettings.integer("Ref"));
  return done;
}

Outcome VersionRequest::diff() {
  const auto tree = mEngine->list(mVersion);
  if (!tree) return tree.error();
  const auto targets = this->targets();
  if (!targets) return targets.error();
  ZAN_Value list = ZAN_Value::array();
  std::uint64_t differences = 0;
  for (const VersionTarget& target : *targets) {
    const Outcome found =
        Difference(**tree, target.folder,
                   {.goesOn = [&](const std::string& path) { return mAnswer.goesOn(path); },
                    .tell =
                        [&](const char* what, const std::string& path) {
                          ++differences;
                          if (list.size() < kMostTold)
                            list.append(ZAN_Value::dictionary({{"what", what}, {"path", path}}));
                        }})
            .find(target.name, target.target);
    if (!found) return found;
  }
  mAnswer.set("differences", list);
  mAnswer.set("count", differences);
  return {};
}

/// What a folder of the version has, or what below it has the word in its name.
Outcome VersionRequest::list() {
  const auto tree = mEngine->list(mVersion);
  if (!tree) return tree.error();
  const auto wanted = names();
  if (!wanted) return wanted.error();
  const std::string folder = wanted->empty() ? std::string() : wanted->front();
  const std::string word = foldedCase(mRequest.string("find"));
  const bool isTop = folder.empty() && word.empty();
  std::vector<std::string> roots;
  if (folder.empty()) {
    for (const auto& copy : mVersion.copies) roots.push_back(copy.name);
  } else {
    roots.push_back(folder);
  }
  const VersionPlaces places(mVersion, mSettings, m.volumes);
  const bool isOurs = mRequest.string("from").empty();
  ZAN_Value items = ZAN_Value::array();
  std::uint64_t more = 0;
  const auto tell = [&](const VersionTree::Entry& entry) {
    if (items.size() >= kMostTold) {
      ++more;
      return;
    }
    const VersionItem& item = entry.item;
    const std::string source = places.sourceOf(item.name);
    ZAN_Value one = ZAN_Value::dictionary({{"name", splitName(item.name).second},
                                           {"path", item.name},
                                           {"source", source},
                                           {"kind", std::string(wordFor(item.kind))},
                                           {"bytes", item.size},
                                           {"changed", changeOf(item)}});
    if (isOurs) one.setValue("since", sinceOf(item, source));
    if (entry.holder != nullptr && item.kind == VersionItem::Kind::file)
      one.setValue("contents", ZAN_FilesUtils::joinedPath(entry.holder->path(), item.name));
    items.append(std::move(one));
  };
  for (const std::string& root : roots) {
    const Outcome read = (*tree)->forEach(root, [&](const VersionTree::Entry& entry) {
      const std::string& name = entry.item.name;
      if (!mAnswer.goesOn(name)) return false;
      if (isTop) {
        if (name == root) tell(entry);
        return false;
      }
      if (!word.empty()) {
        if (foldedCase(splitName(name).second).find(word) != std::string::npos) tell(entry);
      } else if (name != root && name.find('/', root.size() + 1) == std::string::npos) {
        tell(entry);
      }
      return true;
    });
    if (!read) return read;
  }
  mAnswer.set("items", items);
  mAnswer.set("more", more);
  return {};
}

void VersionRequest::take(const ExecuteArguments& arguments) {
  mAnswer.begin(arguments.request);
  std::ifstream stream(arguments.request, std::ios::binary);
  const auto request =
      ZAN_Json::valueWithJson(std::string(std::istreambuf_iterator<char>(stream), {}));
  mRequest = request ? *request : ZAN_Value::dictionary();
  mKind = mRequest.string("kind");
  const auto* action = m.files.tree.rootItem().actionForReference(arguments.reference);
  mSettings = action ? action->getSettings() : ZAN_Value();
  if (action && TaskRequest::isTask(mKind) && !mRequest["dryRun"].boolValue()) {
    mAnswer.record(mKind, arguments.reference, action->getTitle());
  }
}

Outcome VersionRequest::carryOut(const ExecuteArguments& arguments) {
  if (mSettings.isNull() && mRequest.string("from").empty())
    return Error{ErrorKind::refused,
                 "Ref " + std::to_string(arguments.reference) + ": there is no such action"};
  auto engine = makeEngine({.settings = mSettings,
                            .from = mRequest.string("from"),
                            .reference = mRequest.integer("reference"),
                            .engine = mRequest.string("engine"),
                            .passwordFile = mRequest.string("passwordFile")},
                           m.host(mWatch, {}));
  if (!engine) return engine.error();
  mEngine = *std::move(engine);
  if (mKind == "test") {
    const auto found = mEngine->test();
    if (!found) return found.error();
    mAnswer.set("place", mEngine->place());
    mAnswer.set("text", *found);
    return {};
  }
  if (const Outcome chosen = choose(); !chosen) return chosen;
  if (mKind == "versions") return versions();
  if (mKind == TaskRequest::kRestore) return restore();
  if (mKind == TaskRequest::kVerify) return verify();
  if (mKind == "diff") return diff();
  if (mKind == "list") return list();
  return Error{ErrorKind::refused, arguments.request + ": it asks for nothing that is known"};
}

void VersionRequest::perform(const ExecuteArguments& arguments) {
  take(arguments);
  mAnswer.finish(mAnswer.end(carryOut(arguments), mKind == TaskRequest::kRestore));
}

void VersionRequest::recordEnd(const ExecuteArguments& arguments, const ExecuteEnd& end) {
  take(arguments);
  mAnswer.takeUp();
  mAnswer.finish(end);
}

}  // namespace corvana
