#include "execute/restic/ResticBackup.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <memory>
#include <utility>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "execute/engine/FolderWalk.h"
#include "execute/restic/StagedSnapshot.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr std::size_t kKeptErrors = 200;
using Kind = ResticEnd::Kind;

/// An rsync pattern of the user as restic takes it. `source`: where an anchored one begins.
std::string resticPattern(std::string pattern, const std::string& source) {
  while (pattern.size() > 1 && pattern.ends_with('/')) pattern.pop_back();
  return pattern.starts_with('/') ? resticLiteral(source) + pattern : pattern;
}

/// A path that restic records, by no link at its end.
std::string realPath(const HeldSource& source) {
  struct stat state {};
  if (::lstat(source.path.c_str(), &state) != 0 || !S_ISLNK(state.st_mode)) return source.path;
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(source.path.c_str(), nullptr),
                                                         &std::free);
  return real ? real.get() : source.path;
}

/// "2026-11-22 10:19:21" in universal time, as restic takes it there.
std::string timeText(ReferenceTime date) {
  const auto seconds = static_cast<std::time_t>(std::floor(date + kReferenceEpochInUnixTime));
  std::tm parts{};
  ::gmtime_r(&seconds, &parts);
  std::string text(32, '\0');
  text.resize(std::strftime(text.data(), text.size(), "%Y-%m-%d %H:%M:%S", &parts));
  return text;
}

/// Whether all that is there was left by making a repository that was cut off: folders with nothing
/// in them but keys, which open nothing and would be in the way of the next.
bool isHalfMade(int folder, const std::vector<std::string>& names) {
  return std::ranges::all_of(names, [&](const std::string& name) {
    const bool isTemporary = name.starts_with("config-tmp-");
    constexpr std::array<std::string_view, 5> kFolders{"data", "index", "keys", "locks",
                                                       "snapshots"};
    if (isTemporary) return true;
    if (std::ranges::find(kFolders, name) == kFolders.end()) return false;
    const ZAN_Descriptor below = openFolderBelow(folder, name);
    if (!below) return false;
    if (name == "keys") return true;
    TreeCursor cursor(below.get(), {});
    while (const auto entry = cursor.next()) {
      if (!entry->isFolder) return false;
    }
    return true;
  });
}

}  // namespace

std::vector<std::string> ResticBackup::words(ReferenceTime date) const {
  const ZAN_Value& settings = m.order.settings;
  std::vector<std::string> words{
      "backup", "--json",      "--one-file-system", "--host", m.host.machine.hostName(),
      "--time", timeText(date)};
  for (std::string rest = m.tags(); !rest.empty();) {
    const auto comma = std::min(rest.find(','), rest.size());
    words.insert(words.end(), {"--tag", rest.substr(0, comma)});
    rest.erase(0, comma + 1);
  }
  for (std::size_t i = 0; i < mSources.size(); ++i) {
    if (!mSources[i].isFolder) words.insert(words.end(), {"--tag", Snapshot::fileTag(i)});
  }
  const auto exclude = [&](const std::string& pattern) { words.push_back("--exclude=" + pattern); };
  exclude(StagedSnapshot::kFolder);
  for (const HeldSource& source : mSources) {
    const std::string path = realPath(source);
    for (const auto& mount : source.mountsWithin)
      exclude(resticLiteral(ZAN_FilesUtils::joinedPath(path, mount)) + "/*");
    for (const ZAN_Value& pattern : settings[CopyKey::exclusions].elements()) {
      const std::string text = resticPattern(std::string(pattern.stringView()), path);
      if (!text.empty()) exclude(text);
    }
    // A repository within a source is no part of what it holds.
    if (mFolder && ZAN_FilesUtils::isBelow(m.place(), path)) exclude(resticLiteral(m.place()));
  }
  for (const std::string& item : mEnd.skipped) exclude(resticLiteral(item));
  if (const auto limit = settings.integer(CopyKey::bandwidth); limit > 0)
    words.insert(words.end(),
                 {"--limit-upload", std::to_string(std::max<std::int64_t>(limit / 1024, 1))});
  return words;
}

void ResticBackup::addPaths(std::vector<std::string>& words) const {
  words.emplace_back("--");
  for (const HeldSource& source : mSources) words.push_back(realPath(source));
}

void ResticBackup::readLine(std::string_view line) {
  const auto value = ZAN_Json::valueWithJson(line);
  if (!value) return;
  const std::string_view type = (*value)["message_type"].stringView();
  if (type == "status") readStatus(*value);
  if (type == "summary") mSummary = *value;
}

void ResticBackup::readErrorLine(std::string_view line) {
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
  ++mEnd.errors;
  if (mEnd.errorTexts.size() < kKeptErrors) mEnd.errorTexts.push_back(std::move(text));
  if (!mEnd.firstErrorPath) mEnd.firstErrorPath = path;
  mEnd.lastErrorPath = path;
}

void ResticBackup::readStatus(const ZAN_Value& status) {
  const double share = status["percent_done"].doubleValue();
  for (const ZAN_Value& path : status["current_files"].elements()) {
    mProgress.currentPath = path.stringView();
    break;
  }
  mProgress.bytesToCopy = status["total_bytes"].unsignedValue();
  mProgress.filesToCopy = status["total_files"].unsignedValue();
  mProgress.sizeCopied = status["bytes_done"].unsignedValue();
  mProgress.filesCopied = status["files_done"].unsignedValue();
  mProgress.itemsSeen = mProgress.filesToCopy;
  // While it still counts, a share would go back and forth.
  mProgress.value = std::max(mProgress.value, std::min(99.0, 100 * share));
  mProgress.errors = mEnd.errors;
  const double seconds = m.host.store.clock().monotonic() - mStart;
  if (seconds > 1) mProgress.bytesPerSecond = static_cast<double>(mProgress.sizeCopied) / seconds;
  if (status.contains("seconds_remaining"))
    mProgress.secondsLeft = status["seconds_remaining"].doubleValue();
  if (m.host.tell) m.host.tell(mProgress);
}

void ResticBackup::finish() {
  mEnd.progress = mProgress;
  mEnd.progress.isPlanning = false;
  mEnd.progress.value = 100;
  mEnd.progress.secondsLeft = -1;
  mEnd.progress.errors = mEnd.errors;
  mEnd.progress.filesCopied =
      mSummary["files_new"].unsignedValue() + mSummary["files_changed"].unsignedValue();
  mEnd.progress.sizeCopied = mSummary["data_added"].unsignedValue();
  mEnd.filesReplaced = mSummary["files_changed"].unsignedValue();
}

ResticEnd ResticBackup::backUp(ReferenceTime date) {
  for (;;) {
    ExecuteEnd begun;
    begun.skipped = std::move(mEnd.skipped);
    mEnd = std::move(begun);
    mProgress = {};
    mSummary = {};
    mStart = m.host.store.clock().monotonic();
    auto words = this->words(date);
    addPaths(words);
    const ResticEnd end =
        m.restic.call({.words = std::move(words),
                       .onLine = [this](std::string_view line) { readLine(line); },
                       .onErrorLine = [this](std::string_view line) { readErrorLine(line); },
                       .obeysSkip = true,
                       .onWait =
                           [this](const std::string& whose) {
                             if (m.host.tell)
                               m.host.tell({.currentPath = m.place() + ": locked by " + whose});
                           }});
    if (end.kind != Kind::skipWanted) return end;
    if (!mProgress.currentPath.empty()) mEnd.skipped.push_back(mProgress.currentPath);
  }
}

/// Whether it is plain that there is no repository, without asking restic.
bool ResticBackup::isNothingThere() const {
  if (!mFolder) return false;
  if (mFolder->path() != m.place()) return true;
  const auto names = namesInFolder(mFolder->descriptor());
  return names && names->empty();
}

/// Where one has been used, an empty place is the wrong one, or the copies are lost.
bool ResticBackup::expectsRepository() const {
  const ZAN_Value& settings = m.order.settings;
  return settings["LastExecutionDate"].asDate() && settings.integer(CopyKey::isNew) == 0 &&
         settings.integer(CopyKey::takesOver) == 0;
}

ResticEnd ResticBackup::makeRepository() {
  const bool isThere = mFolder && mFolder->path() == m.place();
  const auto names = isThere ? namesInFolder(mFolder->descriptor()) : std::nullopt;
  if (names && !names->empty()) {
    if (!isHalfMade(mFolder->descriptor(), *names)) {
      return {Kind::failed,
              "there are files in it, and no repository; nothing was changed. Choose an empty "
              "folder"};
    }
    for (const auto& name : *names) removeTree(mFolder->descriptor(), name);
  }
  return m.restic.call({.words = {"init"}});
}

ExecuteEnd ResticBackup::run(SnapshotNotes& notes) {
  // Clocks are set back; the order of versions stays.
  const ReferenceTime now = std::floor(m.host.store.clock().now());
  ReferenceTime date = std::max(now, notes.newest().value_or(0) + 1);
  ResticEnd end = isNothingThere() ? ResticEnd{Kind::noRepository} : backUp(date);
  if (end.kind == Kind::noRepository && expectsRepository()) {
    ExecuteEnd missing = m.endOf(
        {Kind::failed,
         "the repository of the action is not there any more; to begin a new one: corvana9 edit " +
             std::to_string(m.reference()) + " --adopt"});
    missing.mayTakeOver = true;
    return missing;
  }
  if (end.kind == Kind::noRepository) {
    end = makeRepository();
    if (end.isDone()) {
      notes.startAnew();
      end = backUp(date = now);
    }
  }
  if (!end.isDone() && end.kind != Kind::partly) return m.endOf(end);
  finish();
  // restic ends well when one of several sources, or all below a mount, has just gone.
  for (const HeldSource& source : mSources) {
    if (!m.host.watch.check()) return m.endOf(ResticEnd{Kind::stopped});
    const Outcome alive = source.checkAlive();
    if (alive) continue;
    ++mEnd.errors;
    mEnd.errorTexts.push_back(alive.error().text);
  }
  if (mEnd.errors > 0) mEnd.code = ExecuteCode::completedWithErrors;
  const std::string snapshot = mSummary.string("snapshot_id");
  if (snapshot.empty())
    return m.endOf(Error{ErrorKind::refused, m.place() + ": restic told of no snapshot"});
  // What a snapshot comes to is known now, and would have to be counted anew later.
  notes.add(snapshot, {.date = date,
                       .files = mSummary["total_files_processed"].unsignedValue(),
                       .bytes = mSummary["total_bytes_processed"].unsignedValue()});
  mMade = Snapshot{.id = snapshot, .date = date, .host = m.host.machine.hostName()};
  for (std::size_t i = 0; i < mSources.size(); ++i) {
    mMade->paths.push_back(realPath(mSources[i]));
    if (!mSources[i].isFolder) mMade->tags.push_back(Snapshot::fileTag(i));
  }
  return std::move(mEnd);
}

void ResticBackup::planFirst(const std::function<void(const PlannedItem&)>& planned) const {
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
        planned({PlannedItem::Kind::copied,
                 ZAN_FilesUtils::joinedPath(source.path, item->name) + (entry->isFolder ? "/" : ""),
                 item->size});
    }
  }
}

ExecuteEnd ResticBackup::plan(const std::function<void(const PlannedItem&)>& planned) {
  auto words = this->words(m.host.store.clock().now());
  words.insert(words.end(), {"--dry-run", "--verbose=2"});
  addPaths(words);
  const ResticEnd end = m.restic.call(
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
       .onErrorLine = [this](std::string_view line) { readErrorLine(line); }});
  if (end.kind == Kind::noRepository) {
    planFirst(planned);
    return {};
  }
  if (!end.isDone() && end.kind != Kind::partly) return m.endOf(end);
  if (mEnd.errors > 0) mEnd.code = ExecuteCode::completedWithErrors;
  return std::move(mEnd);
}

}  // namespace corvana
