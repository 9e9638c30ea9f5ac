#include "core/machine/SettingsBackup.h"

#include <algorithm>
#include <span>
#include <string_view>
#include <utility>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "core/record/Records.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/RunLoop.h"

namespace corvana {

namespace {

constexpr std::string_view kDestinations = "CopySettingsDestinations";
constexpr std::string_view kCopyFolder = "Corvana 9 (Settings) Copy";
constexpr std::string_view kLogFile = "_Backup Settings.txt";
constexpr double kInterval = 7200;
constexpr double kDay = 86400;
constexpr std::size_t kLongestLog = 51;
constexpr std::size_t kLinesKept = 45;
constexpr std::size_t kMostRead = 1 << 20;

/// The first lines of the log of earlier copies, when there are many; of more than anybody wants to
/// read, the newest whole lines.
std::string keptLog(const std::string& path) {
  std::string log = ZAN_FilesUtils::readBeginning(path, kMostRead).valueOr({});
  if (log.size() == kMostRead) log.resize(std::min(log.rfind('\n'), log.size()));
  const auto lines = static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n')) + 1;
  if (lines < kLongestLog) return log;
  std::size_t end = 0;
  for (std::size_t line = 1; line < kLinesKept; ++line) end = log.find('\n', end) + 1;
  return log.substr(0, log.find('\n', end));
}

}  // namespace

/// What the thread needs, so that it touches nothing of the main thread.
struct SettingsBackup::Job {
  Clock& clock;
  ZAN_StringUtils strings;
  std::string source;
  std::vector<std::string> paths;
  ZAN_FolderMirror::StepHook hook;
};

struct SettingsBackup::Result {
  std::string path;
  bool tried = false;
  bool succeeded = false;
  ReferenceTime date = 0;
  std::string reason;  ///< of what failed
};

bool SettingsBackup::hasDestinations() const {
  return !m.store.settings().mainAppSettingForKey(kDestinations).empty();
}

void SettingsBackup::backupSettings() {
  if (mSettingsRunningBackup || !hasDestinations()) return;
  mSettingsRunningBackup = true;
  Job job{m.platform.clock,
          m.store.dates().strings(),
          m.store.folder().dataFolderPathWithFileName(),
          {},
          onMirrorStep};
  const ZAN_Value destinations = m.store.settings().mainAppSettingForKey(kDestinations);
  for (const ZAN_Value& each : destinations.elements()) {
    if (!each["path"].stringView().empty()) job.paths.push_back(each.string("path"));
  }
  RunLoop& loop = m.platform.runLoop;
  loop.detachThread("settings copy", [job = std::move(job), &loop, self = std::weak_ptr(mSelf)] {
    loop.performOnMain([results = backupSettingsThread(job), self] {
      if (const auto here = self.lock()) (*here)->take(results);
    });
  });
}

std::vector<SettingsBackup::Result> SettingsBackup::backupSettingsThread(const Job& job) {
  std::vector<Result> results;
  for (const std::string& path : job.paths) results.push_back(backup(job, path));
  return results;
}

SettingsBackup::Result SettingsBackup::backup(const Job& job, const std::string& path) {
  Result result{.path = path, .reason = {}};
  if (!ZAN_FilesUtils::exists(path)) return result;
  const std::string folder = ZAN_FilesUtils::joinedPath(path, kCopyFolder);
  const std::string log = ZAN_FilesUtils::joinedPath(folder, kLogFile);
  const auto last = ZAN_FilesUtils::modificationDate(log);
  const double age = last ? job.clock.now() - *last : kInterval;
  // A date far ahead comes from a clock that was wrong.
  if (age < kInterval && age > -kDay) return result;

  const std::string before = keptLog(log);
  result.tried = true;
  Outcome outcome = ZAN_FilesUtils::createFolder(folder);
  if (outcome) outcome = saveSettings(job.source, folder, job.hook);
  result.date = job.clock.now();
  const std::string text = ZAN_StringUtils::format(
      "%@ - %@\n%@", {job.strings.getMediumDateTime(result.date),
                      outcome ? "Settings were saved" : "Error while saving settings", before});
  Outcome logged = ZAN_FileWriter({}).write(log, text, {.attributes = {}});
  if (logged) logged = ZAN_FilesUtils::setModificationDate(log, result.date);
  result.succeeded = static_cast<bool>(outcome);
  if (!outcome) {
    result.reason = outcome.error().text;
  } else if (!logged) {
    result.reason = logged.error().text;
  }
  return result;
}

/// The folders may have been edited meanwhile: dates go to those that are still there.
void SettingsBackup::take(const std::vector<Result>& results) {
  mSettingsRunningBackup = false;
  SettingsFiles& settings = m.store.settings();
  const DataFiles::Lock held = settings.lockMainAppSettings();
  ZAN_Value destinations = settings.mainAppSettingForKey(kDestinations);
  bool changed = false;
  for (const Result& result : results) {
    if (!result.tried) continue;
    std::string& said = mReasons[result.path];
    if (!result.reason.empty() && said != result.reason) {
      m.platform.systemLog.write("The settings could not be copied: " + result.reason);
    }
    said = result.reason;
    if (!result.succeeded) continue;
    for (std::size_t i = 0; i < destinations.size(); ++i) {
      ZAN_Value each = destinations.at(i);
      if (each["path"].stringView() != result.path) continue;
      each.setValue("date", ZAN_Value::date(result.date));
      destinations.setAt(i, each);
      changed = true;
    }
  }
  if (!changed) return;
  if (const Outcome saved = settings.setMainAppSetting(destinations, kDestinations); !saved) {
    m.platform.systemLog.write(saved.error().text);
  }
}

Outcome SettingsBackup::saveSettings(const std::string& source, const std::string& destination,
                                     const ZAN_FolderMirror::StepHook& hook) {
  return ZAN_FolderMirror(hook).mirror(source, destination);
}

}  // namespace corvana
