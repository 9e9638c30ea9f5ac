#include "actions/Generations.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <set>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/InstalledPlaces.h"
#include "platform/Clock.h"

namespace corvana {

namespace {

constexpr std::size_t kLast = 10;
constexpr std::size_t kDays = 31;
constexpr std::string_view kExtension = ".cva9data";
constexpr std::string_view kDamaged = " (damaged ";

/// What agent, execute program and main application note by themselves.
constexpr std::array<std::string_view, 17> kNotes = {"ExecCounter",
                                                     "OptionsContinueOnNextDiskCurrentVolume",
                                                     "DeletionsToConfirm",
                                                     "CopiesAreNew",
                                                     "CopiesTakenOver",
                                                     "SchedulerActionsToDoList",
                                                     "SchedulerAgeAlarmsSaid",
                                                     "SchedulerCounter",
                                                     "SchedulerLastWakeupTime",
                                                     "SchedulerNextCheckUpdatesDate",
                                                     "SchedulerPrefCheckStartupHDFreeSpace",
                                                     "SchedulerPrefCleanVolumesInfo",
                                                     "SchedulerPrefErrorInExecution",
                                                     "SchedulerPrefLastNotifications",
                                                     "SchedulerPrefShowAnnouncePositionX",
                                                     "SchedulerPrefShowAnnouncePositionY",
                                                     "LastMailFailure"};

std::uint64_t mixed(std::uint64_t seed, std::uint64_t more) {
  std::uint64_t x = seed ^ (more + 0x9E3779B97F4A7C15ULL + (seed << 6) + (seed >> 2));
  x ^= x >> 31;
  return x * 0xBF58476D1CE4E5B9ULL;
}

std::uint64_t printOf(std::string_view text) { return std::hash<std::string_view>()(text); }

std::uint64_t printOf(const ZAN_Value& value) {
  if (value.isDictionary()) {
    // Whatever the order of the keys.
    std::uint64_t sum = 1;
    for (const auto& entry : value.entries()) {
      const std::string_view key = entry.key.stringView();
      if (entry.value.asDate() || std::ranges::find(kNotes, key) != kNotes.end()) continue;
      sum += mixed(printOf(key), printOf(entry.value));
    }
    return sum;
  }
  if (value.isArray()) {
    std::uint64_t print = 2;
    for (const ZAN_Value& element : value.elements()) print = mixed(print, printOf(element));
    return print;
  }
  if (value.isString()) return mixed(3, printOf(value.stringView()));
  if (value.isData()) {
    const auto bytes = value.bytes();
    return mixed(4, printOf({reinterpret_cast<const char*>(bytes.data()), bytes.size()}));
  }
  if (value.asDate()) return 5;
  return mixed(6, std::hash<double>()(value.doubleValue()));
}

std::string_view baseOf(std::string_view fileName) {
  return ZAN_FilesUtils::pathWithoutExtension(fileName);
}

}  // namespace

bool Generations::areKeptOf(std::string_view fileName) {
  return fileName == DataFolder::kActions || fileName == DataFolder::kSettings ||
         fileName == DataFolder::kSchedulerSettings;
}

std::uint64_t Generations::fingerprint(const ZAN_Value& value) {
  const std::uint64_t print = printOf(value);
  return print == 0 ? 1 : print;
}

std::uint64_t Generations::newest(const std::string& fileName) const {
  const auto known = mNewest.find(fileName);
  return known == mNewest.end() ? 0 : known->second;
}

Outcome Generations::keep(std::string_view fileName, std::string_view bytes, std::uint64_t print) {
  static const ZAN_DateUtils kUniversal("UTC", "C");
  const std::string folder = mFolder.actionsBackupFolderPath();
  const std::string begin =
      std::string(baseOf(fileName)) + " " + kUniversal.format(mClock.now(), "%Y-%m-%d %H.%M.%S");
  std::string path = ZAN_FilesUtils::joinedPath(folder, begin + std::string(kExtension));
  for (int number = 2; ZAN_FilesUtils::exists(path); ++number)
    path = ZAN_FilesUtils::joinedPath(
        folder, begin + " " + std::to_string(number) + std::string(kExtension));
  const Outcome kept = mWriter.write(path, bytes, {.attributes = {.mode = 0600, .finderInfo = {}}});
  if (!kept) return kept;
  // The order is that of the dates of the files.
  (void)ZAN_FilesUtils::setModificationDate(path, mClock.now());
  mNewest[std::string(fileName)] = print;
  thinOut(fileName);
  return {};
}

std::vector<Generations::Generation> Generations::filesWith(const std::string& folder,
                                                            std::string_view begin,
                                                            std::string_view end) const {
  std::vector<Generation> found;
  const auto names = ZAN_FilesUtils::listFolder(folder);
  if (!names) return found;
  for (const std::string& name : *names) {
    if (!name.starts_with(begin) || !name.ends_with(end)) continue;
    const std::string path = ZAN_FilesUtils::joinedPath(folder, name);
    const auto identity = ZAN_FilesUtils::identity(path);
    const auto date = ZAN_FilesUtils::modificationDate(path);
    if (identity && date) found.push_back({path, *date, identity->size});
  }
  std::ranges::sort(found, [](const Generation& a, const Generation& b) {
    // Of one moment the later ones have a number behind their date.
    if (a.date != b.date) return a.date > b.date;
    return a.path.size() != b.path.size() ? a.path.size() > b.path.size() : a.path > b.path;
  });
  return found;
}

std::vector<Generations::Generation> Generations::of(std::string_view fileName) const {
  const std::string folder =
      ZAN_FilesUtils::joinedPath(mFolder.pathOf({}), "Programmed Actions (Backup)");
  // Only what begins with a date: "Corvana 9 Settings" and "Corvana 9 Settings (damaged …)".
  return filesWith(folder, std::string(baseOf(fileName)) + " 2", kExtension);
}

std::vector<Generations::Generation> Generations::damaged(std::string_view fileName) const {
  return filesWith(mFolder.pathOf({}), std::string(fileName) + std::string(kDamaged), {});
}

void Generations::storeDamaged(std::string_view fileName) const {
  for (const Generation& one : damaged(fileName)) {
    const std::string name(ZAN_FilesUtils::lastPathComponent(one.path));
    (void)ZAN_FilesUtils::renameFile(
        one.path, ZAN_FilesUtils::joinedPath(mFolder.actionsBackupFolderPath(), name));
  }
}

void Generations::thinOut(std::string_view fileName) const {
  std::set<double> days;
  const auto all = of(fileName);
  for (std::size_t i = 0; i < all.size(); ++i) {
    const double day = std::floor(all[i].date / 86400);
    const bool isNewestOfDay = days.insert(day).second;
    const bool isOfTheMonth = mClock.now() - all[i].date < double(kDays) * 86400;
    if (i < kLast || (isNewestOfDay && isOfTheMonth)) continue;
    (void)ZAN_FilesUtils::removeFile(all[i].path);
  }
}

}  // namespace corvana
