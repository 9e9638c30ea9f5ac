#include "core/machine/SettingsBackup.h"

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <system_error>
#include <utility>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/FolderDescription.h"
#include "core/record/Records.h"
#include "volumes/VolumeIdentity.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {

namespace {

constexpr std::string_view kDestinations = "CopySettingsDestinations";
constexpr std::string_view kCopyFolder = "Corvana 9 (Settings) Copy";
constexpr std::string_view kLogFile = "_Backup Settings.txt";
constexpr std::string_view kEarlier = "_Earlier Versions";
constexpr std::size_t kEarlierDays = 7;
constexpr double kInterval = 7200;
constexpr double kDay = 86400;
constexpr std::size_t kLongestLog = 51;
constexpr std::size_t kLinesKept = 45;
constexpr std::size_t kMostRead = 1 << 20;
constexpr double kPatience = 600;
/// What the process that copies answers: nothing when no copy was due, else one of these and the
/// reason of what failed.
constexpr char kSucceeded = '+';
constexpr char kFailed = '-';

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

/// A password, or a key that controls another machine as well as one.
bool isSecret(std::string_view key) {
  return key.ends_with("Password") || key.ends_with("password") || key.starts_with("KeyTo");
}

/// Without secrets, at any depth.
ZAN_Value withoutSecrets(const ZAN_Value& value) {
  if (value.isArray()) {
    ZAN_Value list = value;
    for (std::size_t i = 0; i < list.size(); ++i) list.setAt(i, withoutSecrets(list.at(i)));
    return list;
  }
  if (!value.isDictionary()) return value;
  ZAN_Value dictionary = value;
  for (const auto& entry : value.entries()) {
    const std::string_view key = entry.key.stringView();
    if (isSecret(key))
      dictionary.removeKey(key);
    else
      dictionary.setValue(key, withoutSecrets(entry.value));
  }
  return dictionary;
}

Result<ZAN_Value> readArchive(const std::string& path) {
  const auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return file.error();
  if (file->bytes.empty()) return Error{ErrorKind::damaged, path + ": empty"};
  return ZAN_Unarchiver::unarchiveObjectWithData(std::as_bytes(std::span(file->bytes)));
}

/// What a copy of a data file holds.
Result<std::optional<std::string>> contentsFor(const std::string& source,
                                               const std::string& destination, bool keepsRights) {
  if (ZAN_FilesUtils::pathExtension(source) != "cva9data") return std::optional<std::string>();
  const auto value = readArchive(source);
  if (!value) {
    if (readArchive(destination))
      return Error{ErrorKind::damaged,
                   source + ": cannot be read, so the copy keeps its sound one"};
    // Without rights nobody can say what would be open to others then.
    if (!keepsRights && value.error().text.find(": empty") == std::string::npos)
      return Error{ErrorKind::damaged, source + ": cannot be read, and is not copied"};
    return std::optional<std::string>();
  }
  if (keepsRights) return std::optional<std::string>();
  const auto bytes = ZAN_Archiver::archivedDataWithRootObject(withoutSecrets(*value));
  return std::optional(std::string(reinterpret_cast<const char*>(bytes.data()), bytes.size()));
}

/// Whether the folder, made or closed a moment ago, is closed to others.
bool keepsRights(const std::string& folder) {
  std::error_code failed;
  const auto rights = std::filesystem::status(folder, failed).permissions();
  using std::filesystem::perms;
  return !failed && (rights & (perms::group_all | perms::others_all)) == perms::none;
}

}  // namespace

struct SettingsBackup::Destination {
  std::string path;       ///< as it stands in the settings
  std::string place;      ///< where its volume is now
  ZAN_Value description;  ///< of that volume, to be noted with the folder
  std::string refusal;    ///< why nothing may be copied there
};

/// What the thread needs, so that it touches nothing of the main thread.
struct SettingsBackup::Job {
  Clock& clock;
  Processes& processes;
  ZAN_StringUtils strings;
  ZAN_DateUtils calendar;
  std::string source;
  std::vector<Destination> destinations;
  ZAN_FolderMirror::StepHook hook;
};

struct SettingsBackup::Result {
  std::string path;
  bool tried = false;
  bool succeeded = false;
  ReferenceTime date = 0;
  std::string reason;     ///< of what failed
  ZAN_Value description;  ///< of the volume
};

bool SettingsBackup::hasDestinations() const {
  return !m.store.settings().mainAppSettingForKey(kDestinations).empty();
}

void SettingsBackup::backupSettings() {
  if (mSettingsRunningBackup || !hasDestinations()) return;
  mSettingsRunningBackup = true;
  Job job{m.platform.clock,
          m.platform.processes,
          m.store.dates().strings(),
          m.store.dates().calendar(),
          m.store.folder().dataFolderPathWithFileName(),
          {},
          onMirrorStep};
  const ZAN_Value destinations = m.store.settings().mainAppSettingForKey(kDestinations);
  for (const ZAN_Value& each : destinations.elements()) {
    const std::string path = each.string("path");
    if (path.empty() || !m.platform.volumes.exists(path)) continue;
    Destination destination{.path = path, .place = path, .description = {}, .refusal = {}};
    auto described = FolderDescription(each).setPath(path);
    if (const auto found = mVolumes.locate(described, false)) {
      destination.place = found->path;
      destination.description =
          described.setVolumeName(VolumeReference::nameOf(found->mount, found->information))
              .setVolumeSize(ZAN_Value::unsignedInteger(found->information.totalSize))
              .setUuid(found->information.uuid)
              .setMounted(found->mount.fileSystem, found->mount.source, found->mount.root)
              .toValue();
    } else {
      destination.refusal = found.error().text;
    }
    job.destinations.push_back(std::move(destination));
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
  for (const Destination& destination : job.destinations) {
    results.push_back(backup(job, destination));
    results.back().path = destination.path;
    results.back().description = destination.description;
  }
  return results;
}

SettingsBackup::Result SettingsBackup::backup(const Job& job, const Destination& to) {
  const auto answer = job.processes.askExpendable(
      [&]() -> std::string {
        const Result result = copyTo(job, to);
        if (!result.tried) return {};
        return (result.succeeded ? kSucceeded : kFailed) + result.reason;
      },
      kPatience);
  Result result{.path = {}, .reason = {}, .description = {}};
  result.tried = !answer || !answer->empty();
  if (!answer) {
    result.reason = to.place + ": its volume does not answer: " + answer.error().text;
  } else if (result.tried) {
    result.succeeded = answer->front() == kSucceeded;
    result.date = job.clock.now();
    result.reason = answer->substr(1);
  }
  return result;
}

SettingsBackup::Result SettingsBackup::copyTo(const Job& job, const Destination& to) {
  Result result{.path = {}, .reason = {}, .description = {}};
  const std::string folder = ZAN_FilesUtils::joinedPath(to.place, kCopyFolder);
  const std::string log = ZAN_FilesUtils::joinedPath(folder, kLogFile);
  const auto last = ZAN_FilesUtils::modificationDate(log);
  const double age = last ? job.clock.now() - *last : kInterval;
  // A date far ahead comes from a clock that was wrong.
  if (age < kInterval && age > -kDay) return result;

  result.tried = true;
  result.reason = to.refusal;
  if (const Outcome may = ZAN_FolderMirror::mayMirror(job.source, folder); !may)
    result.reason = may.error().text;
  // Where nothing may be copied nothing is written at all.
  if (!result.reason.empty()) return result;

  const std::string before = keptLog(log);
  Outcome outcome = ZAN_FilesUtils::createFolder(folder, 0700);
  if (outcome) (void)::chmod(folder.c_str(), S_IRWXU);
  const bool isClosed = keepsRights(folder);
  if (outcome)
    outcome = saveSettings(job.source, folder, job.calendar.format(job.clock.now(), "%Y-%m-%d"),
                           job.hook);
  result.date = job.clock.now();
  const std::string text = ZAN_StringUtils::format(
      "%@ - %@\n%@",
      {job.strings.getMediumDateTime(result.date),
       !outcome   ? "Error while saving settings"
       : isClosed ? "Settings were saved"
                  : "Settings were saved, without passwords as others may read this file system",
       before});
  Outcome logged =
      ZAN_FileWriter({}).write(log, text, {.attributes = {.mode = 0600, .finderInfo = {}}});
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
      for (const auto& known : result.description.entries())
        each.setValue(known.key.stringView(), known.value);
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
                                     const std::string& day,
                                     const ZAN_FolderMirror::StepHook& hook) {
  const bool isClosed = keepsRights(destination);
  const std::string earlier = ZAN_FilesUtils::joinedPath(destination, kEarlier);
  const ZAN_FolderMirror mirror(
      {.closed = true,
       .spared = {std::string(kLogFile), std::string(kEarlier)},
       .earlier = ZAN_FilesUtils::joinedPath(earlier, day),
       .contents = [isClosed](const std::string& from,
                              const std::string& to) { return contentsFor(from, to, isClosed); }},
      hook);
  Outcome outcome = mirror.mirror(source, destination);
  auto days = ZAN_FilesUtils::listFolder(earlier).valueOr({});
  for (std::size_t i = 0; outcome && i + kEarlierDays < days.size(); ++i)
    outcome = mirror.removeFolder(ZAN_FilesUtils::joinedPath(earlier, days[i]));
  return outcome;
}

void RecoveryCopy::copyRecoveryPartition(const ZAN_Value& userInfo) {
  const std::string source = userInfo.string("sourceDeviceIdentifier");
  const std::string target = userInfo.string("DeviceIdentifier");
  m.platform.runLoop.detachThread("copyRecoveryPartition", [source, target, tools = mTools,
                                                            &loop = m.platform.runLoop,
                                                            &channel = m.channel] {
    ZAN_Value answer =
        ZAN_Value::dictionary({{"DeviceIdentifier", target}, {"sourceDeviceIdentifier", source}});
    if (tools.restore(source, target)) {
      if (const auto result = tools.setFormatType("Apple_Boot", target))
        answer.setValue("commandResult", *result);
    }
    loop.performOnMain(
        [&channel, answer] { channel.postToMainApp("SendCopyRecoveryHDCompleted", answer); });
  });
}

}  // namespace corvana
