#include "actions/ActionResults.h"

#include <algorithm>
#include <cmath>

#include "actions/ActionStore.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr std::string_view kExtension = "cvahisto";
constexpr std::string_view kType = "CVAh";
constexpr std::string_view kMergedUntil = "MergedUntil";

ZAN_Value arrayOf(const ZAN_Value& list) { return list.isArray() ? list : ZAN_Value::array(); }

std::string endingFor(std::int64_t reference) {
  return ZAN_StringUtils::format(" %d.%@", {reference, kExtension});
}

bool isOfExecution(const ZAN_Value& header, std::int64_t reference, ReferenceTime date) {
  const auto stored = header["Date"].asDate();
  return header.integer("Ref") == reference && stored && std::abs(*stored - date) < 1;
}

}  // namespace

Outcome ActionResults::saveActionResults(const ZAN_Value& header, const ZAN_Value& files,
                                         const ZAN_Value& largeFiles, const ZAN_Value& errors,
                                         const ZAN_Value& excluded) {
  const auto date = header["Date"].asDate();
  if (!date) return Error{ErrorKind::refused, "results of an execution without date"};
  const ZAN_Value results = ZAN_Value::dictionary({{"Header", header},
                                                   {"Files", arrayOf(files)},
                                                   {"LargeFiles", arrayOf(largeFiles)},
                                                   {"Errors", arrayOf(errors)},
                                                   {"Excluded", arrayOf(excluded)}});
  Outcome outcome =
      mStore.files().writeTypedObjectToPath(results, pathFor(header.integer("Ref"), *date), kType);
  std::vector<Written> all = notYetMerged();
  all.push_back({results, {}, {}});
  mergeAndSave(all);
  return outcome;
}

std::string ActionResults::pathFor(std::int64_t reference, ReferenceTime date) const {
  const std::string name =
      mStore.dates().calendar().format(date, "%y_%m_%d %H_%M_%S") + endingFor(reference);
  return ZAN_FilesUtils::joinedPath(mStore.folder().historyFolderPath(), name);
}

std::optional<std::string> ActionResults::getActionResultsPathForRef(std::int64_t reference,
                                                                     ReferenceTime date) const {
  std::string path = pathFor(reference, date);
  if (ZAN_FilesUtils::exists(path)) return path;
  // Its name may have been formed in another time zone.
  const std::string folder = mStore.folder().historyFolderPath();
  const auto names = ZAN_FilesUtils::listFolder(folder);
  if (!names) return {};
  const std::string ending = endingFor(reference);
  for (const std::string& name : *names) {
    if (!name.ends_with(ending)) continue;
    path = ZAN_FilesUtils::joinedPath(folder, name);
    if (isOfExecution(readActionResults(path)["Header"], reference, date)) return path;
  }
  return {};
}

ZAN_Value ActionResults::readActionResults(const std::string& path) const {
  const ZAN_Value results = mStore.files().readObjectAtPath(path);
  return results.isDictionary() ? results : ZAN_Value();
}

void ActionResults::updateActionResults() {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kFiles);
  mergeAndSave(notYetMerged());
}

std::vector<ActionResults::Written> ActionResults::notYetMerged() {
  refresh(mFiles);
  const ReferenceTime now = mStore.clock().now();
  const auto until = mergedUntil();
  const std::string folder = mStore.folder().historyFolderPath();
  std::vector<Written> fresh;
  for (const std::string& name : ZAN_FilesUtils::listFolder(folder).valueOr({})) {
    if (ZAN_FilesUtils::pathExtension(name) != kExtension) continue;
    const std::string path = ZAN_FilesUtils::joinedPath(folder, name);
    auto date = ZAN_FilesUtils::modificationDate(path);
    if (!date || (until && *date <= *until)) continue;
    // With a date ahead of now it would be taken in again and again, and those that come until then
    // never.
    if (*date > now && ZAN_FilesUtils::setModificationDate(path, now)) date = now;
    fresh.push_back({{}, path, date});
  }
  // More than the lists take need not be read, when a folder of years is looked through at once.
  const auto kept = std::min(fresh.size(), kMaximum);
  std::partial_sort(fresh.begin(), fresh.begin() + static_cast<std::ptrdiff_t>(kept), fresh.end(),
                    [](const Written& a, const Written& b) { return *a.date > *b.date; });
  fresh.resize(kept);
  return fresh;
}

std::optional<ReferenceTime> ActionResults::mergedUntil() const {
  const ReferenceTime now = mStore.clock().now();
  const auto noted = mFiles.list.at(0)[kMergedUntil].asDate();
  if (!noted || *noted <= now) return noted;
  // It was taken from a file dated ahead. The list was saved when that one was taken in.
  const auto saved = ZAN_FilesUtils::modificationDate(mStore.folder().pathOf(DataFolder::kFiles));
  return saved && *saved <= now ? saved : std::nullopt;
}

void ActionResults::addActionResultsFromFile(const std::string& path) {
  mergeAndSave({{{}, path, {}}});
}

void ActionResults::mergeAndSave(const std::vector<Written>& all) {
  const DataFiles::Lock held = mStore.files().lock(DataFolder::kFiles);
  refresh(mFiles);
  refresh(mErrors);
  const ReferenceTime now = mStore.clock().now();
  bool filesChanged = false;
  bool errorsChanged = false;
  // One after the other, since all of them together may be larger than the memory.
  for (const Written& written : all) {
    const ZAN_Value results =
        written.results.isNull() ? readActionResults(written.path) : written.results;
    filesChanged |= merge(mFiles, results);
    errorsChanged |= merge(mErrors, results);
    ZAN_Value header = mFiles.list.at(0);
    const auto before = mergedUntil();
    // Of the two lists the one of the files remembers how far the results were taken in.
    if (written.date && *written.date <= now && (!before || *before < *written.date)) {
      header.setValue(kMergedUntil, ZAN_Value::date(*written.date));
      mFiles.list.setAt(0, header);
      filesChanged = true;
    }
  }
  if (filesChanged) save(mFiles);
  if (errorsChanged) save(mErrors);
}

bool ActionResults::merge(Latest& latest, const ZAN_Value& results) {
  const ZAN_Value& header = results["Header"];
  const ZAN_Value& items = results[latest.key];
  const auto date = header["Date"].asDate();
  if (items.empty() || !date) return false;

  std::vector<ZAN_Value> list{latest.list.at(0)};
  bool placed = false;
  std::size_t total = 0;
  const auto place = [&](const ZAN_Value& entry) {
    total += entry["List"].size();
    if (list.size() > 1 && (list.size() > kMaximum || total > kMaximumItems)) return;
    list.push_back(entry);
  };
  const auto placeNew = [&] {
    place(ZAN_Value::dictionary({{"Ref", header["Ref"]},
                                 {"Title", header["Title"]},
                                 {"Date", header["Date"]},
                                 {"List", items}}));
    placed = true;
  };
  for (const ZAN_Value& entry : latest.list.elements().subspan(1)) {
    if (isOfExecution(entry, header.integer("Ref"), *date)) continue;
    if (!placed && entry["Date"].asDate().value_or(*date) <= *date) placeNew();
    place(entry);
  }
  if (!placed) placeNew();
  latest.list = ZAN_Value::array(std::move(list));
  return true;
}

void ActionResults::reloadProgrammedFilesAndErrorsList() {
  refresh(mFiles);
  refresh(mErrors);
}

std::size_t ActionResults::latestFilesCount() { return count(mFiles); }
std::size_t ActionResults::latestErrorsCount() { return count(mErrors); }

ZAN_Value ActionResults::getLatestFilesAtIndex(std::int64_t index) {
  return entryAtIndex(mFiles, index);
}

ZAN_Value ActionResults::getLatestErrorsAtIndex(std::int64_t index) {
  return entryAtIndex(mErrors, index);
}

void ActionResults::clearLatestFiles(std::optional<std::int64_t> reference) {
  clear(mFiles, reference);
}

void ActionResults::clearLatestErrors(std::optional<std::int64_t> reference) {
  clear(mErrors, reference);
}

void ActionResults::saveProgrammedFilesList() { save(mFiles); }
void ActionResults::saveProgrammedErrorsList() { save(mErrors); }

void ActionResults::refresh(Latest& latest) {
  const std::string path = mStore.folder().dataFolderPathWithFileName(latest.file);
  if (!latest.identity || latest.identity != mStore.files().identity(path)) {
    DataFiles::List list = mStore.files().readListAtPath(path, {});
    latest.list = std::move(list.elements);
    latest.identity = list.identity;
  }
  if (latest.list.empty()) latest.list.append(ZAN_Value());
  if (!latest.list.at(0).isDictionary()) latest.list.setAt(0, ZAN_Value::dictionary());
}

void ActionResults::save(Latest& latest) {
  const DataFiles::Lock held = mStore.files().lock(latest.file);
  (void)mStore.files().writeListToFile(latest.list, latest.file, DataFiles::Saving::soon);
  latest.identity = mStore.files().identity(mStore.folder().pathOf(latest.file));
}

std::size_t ActionResults::count(Latest& latest) {
  refresh(latest);
  return latest.list.size() - 1;
}

ZAN_Value ActionResults::entryAtIndex(Latest& latest, std::int64_t index) {
  if (index < 0 || static_cast<std::size_t>(index) >= count(latest)) return {};
  return latest.list.at(static_cast<std::size_t>(index) + 1);
}

void ActionResults::clear(Latest& latest, std::optional<std::int64_t> reference) {
  const DataFiles::Lock held = mStore.files().lock(latest.file);
  refresh(latest);
  std::vector<ZAN_Value> kept{latest.list.at(0)};
  for (const ZAN_Value& entry : latest.list.elements().subspan(1)) {
    if (reference && entry.integer("Ref") != *reference) kept.push_back(entry);
  }
  latest.list = ZAN_Value::array(std::move(kept));
  save(latest);
}

}  // namespace corvana
