#include "core/machine/AliasMounter.h"

#include <atomic>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "core/record/Records.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/Volumes.h"
#include "volumes/AliasFile.h"

namespace corvana {

namespace {

constexpr double kLook = 0.1;
constexpr int kMostLooks = 100;
constexpr int kSystemWithHelper = 100800;

}  // namespace

/// One run of the helper.
struct AliasMounter::Attempt {
  std::unique_ptr<ChildProcess> child;
  std::string name;
  int looks = 0;
};

AliasMounter::AliasMounter(Records& records, std::string toolsFolder)
    : m(records), mToolsFolder(std::move(toolsFolder)) {}

void AliasMounter::mountVolumeFromAlias(const std::string& aliasPath) {
  std::string tool = ZAN_FilesUtils::joinedPath(mToolsFolder, "mountvolume");
  if (!ZAN_FilesUtils::exists(tool)) {
    // Where a tree of sources has it.
    std::string_view above = mToolsFolder;
    for (int level = 0; level < 3; ++level) above = ZAN_FilesUtils::parentPath(above);
    tool = ZAN_FilesUtils::joinedPath(above, "mountvolume/build/Release/mountvolume");
  }
  const std::string name(ZAN_FilesUtils::lastPathComponent(aliasPath));
  if (m.platform.machine.systemVersion() >= kSystemWithHelper && ZAN_FilesUtils::exists(tool)) {
    m.messages.sendUserNotification(m.texts.text("TryToMount", {name}));
    auto started = m.platform.processes.start({tool, aliasPath}, true, {});
    if (!started) {
      m.platform.systemLog.write(started.error().text);
      return;
    }
    watch(std::make_shared<Attempt>(Attempt{std::move(started).value(), name}));
    return;
  }
  m.platform.runLoop.detachThread("mountFromAliasFile",
                                  [&processes = m.platform.processes, aliasPath] {
                                    AliasFile::mountFromAliasFile(processes, aliasPath);
                                  });
}

void AliasMounter::watch(const std::shared_ptr<Attempt>& attempt) {
  if (!attempt->child->isRunning()) return;
  if (attempt->looks++ < kMostLooks) {
    m.platform.runLoop.performAfter(kLook, [this, attempt] { watch(attempt); });
    return;
  }
  attempt->child->terminate();
  m.messages.sendUserNotification(m.texts.text("UnableToMount", {attempt->name}));
}

/// Runs on a thread of its own.
class AliasMounter::Examination {
 public:
  Examination(Records& records, std::string aliasPath)
      : m(records),
        mAlias(std::move(aliasPath)),
        mDesktop(records.platform.machine.desktopFolder()) {}

  void run() {
    add("%@\n\n", mAlias);
    auto volumes = mounted();
    mText += "Mounted volumes (" + std::to_string(volumes.size()) + "):\n";
    addPaths(volumes);
    mText += "\nMethod 1 (Resolve Alias):\n";
    const int resolved = AliasFile::mountFromAliasFile(m.platform.processes, mAlias);
    mText += resolved == AliasFile::kNoSuchFile ? "ERROR (getFSRef)\n"
             : resolved == 0                    ? "OK (ResolveAliasFileWithMountFlags)\n"
                                                : "ERROR (ResolveAliasFileWithMountFlags)\n";
    waitForChange(volumes, 1);
    m.platform.clock.sleep(1);
    mText += "\nMethod 2 (Open File):\n";
    mText += open() ? "OK (Open File)\n" : "ERROR (Open File)\n";
    waitForChange(volumes, 2);
    write();
  }

 private:
  void add(std::string_view format, const std::string& text) {
    mText += ZAN_StringUtils::format(format, {text});
  }

  std::vector<std::string> mounted() const {
    std::vector<std::string> paths;
    for (const auto& mount : m.platform.volumes.mounts()) {
      if (mount.isVolume) paths.push_back(mount.target);
    }
    return paths;
  }

  void addPaths(const std::vector<std::string>& paths) {
    for (const auto& path : paths) add("%@\n", path);
  }

  void waitForChange(std::vector<std::string>& volumes, int method) {
    int seconds = 0;
    auto now = mounted();
    while (seconds < 11 && now.size() == volumes.size()) {
      m.platform.clock.sleep(1);
      ++seconds;
      now = mounted();
    }
    mText += "\nMounted volumes " + std::to_string(seconds) + " seconds after method " +
             std::to_string(method) + " (" + std::to_string(now.size()) + "):\n";
    addPaths(now);
    volumes = std::move(now);
  }

  /// The main thread opens files.
  bool open() {
    struct Answer {
      std::atomic<int> value{-1};
    };
    const auto answer = std::make_shared<Answer>();
    m.platform.runLoop.performOnMain([answer, &processes = m.platform.processes, alias = mAlias] {
      answer->value = processes.open(alias) ? 1 : 0;
    });
    for (int looks = 0; answer->value < 0 && looks < kMostLooks; ++looks)
      m.platform.clock.sleep(kLook);
    return answer->value == 1;
  }

  void write() const {
    const std::string file = ZAN_StringUtils::format(
        "Corvana Log (Alias %@).txt", {std::string(ZAN_FilesUtils::lastPathComponent(mAlias))});
    const std::string path = ZAN_FilesUtils::joinedPath(mDesktop, file);
    // A report of an earlier time goes.
    static_cast<void>(ZAN_FilesUtils::removeFile(path));
    static_cast<void>(ZAN_FilesUtils::appendToFile(path, mText, false));
  }

  Records& m;
  std::string mAlias;
  std::string mDesktop;
  std::string mText;
};

void AliasMounter::checkMountVolume(const std::string& aliasPath) {
  auto examination = std::make_shared<Examination>(m, aliasPath);
  m.platform.runLoop.detachThread("checkMountVolume", [examination] { examination->run(); });
}

}  // namespace corvana
