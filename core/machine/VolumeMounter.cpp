#include "core/machine/VolumeMounter.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

#include "core/machine/VolumeWatch.h"
#include "core/record/Records.h"
#include "volumes/AliasFile.h"
#include "volumes/ZAN_MountVolume.h"
#include "volumes/ZAN_MountedVolumes.h"

namespace corvana {

namespace {

constexpr double kLook = 0.1;
constexpr int kMostLooksForAlias = 100;
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
  if (attempt->looks++ < kMostLooksForAlias) {
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
    for (int looks = 0; answer->value < 0 && looks < kMostLooksForAlias; ++looks)
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

namespace {

constexpr std::array<std::string_view, 3> kSystemPartitions = {"Boot OS X", "EFI", "Recovery HD"};
constexpr double kHoldWhileMounting = 5.0;
constexpr double kMessageSeconds = 45.0;
constexpr int kMostLooksForGone = 50;

}  // namespace

VolumeMounter::VolumeMounter(Records& records, VolumeWatch& watch, const Means& means)
    : m(records), mWatch(watch), mMeans(means), mAliasFolder(m.store.folder().pathOf("Alias")) {}

void VolumeMounter::updateListOfVolumesToMount() {
  if (mUpdatingMountedVolumes) return;
  mMeans.connected.updateListVolumes();
  mUpdatingMountedVolumes = true;
}

bool VolumeMounter::isListReady() const {
  return mUpdatingMountedVolumes && mMeans.connected.isListVolumesAvailable();
}

void VolumeMounter::takeUpdatedList() {
  mUpdatingMountedVolumes = false;
  buildVolumesToMountList();
}

void VolumeMounter::buildVolumesToMountList() {
  mVolumesToMountList.clear();
  static_cast<void>(ZAN_FilesUtils::createFolder(mAliasFolder));
  const auto names = ZAN_FilesUtils::listFolder(mAliasFolder);
  const auto mounts = m.platform.volumes.mounts();
  for (const auto& name : names ? *names : std::vector<std::string>()) {
    std::string path = ZAN_FilesUtils::joinedPath(mAliasFolder, name);
    // One that leads to what is mounted already need not be asked.
    const Mount* const mount = mountAt(mounts, withLinksFollowed(mounts, path));
    if ((!mount || !mount->isForeign) && AliasFile::isAlias(path))
      mVolumesToMountList.push_back(
          {.volName = name, .volPath = std::move(path), .bsdName = {}, .isAlias = true});
  }
  if (mMeans.connected.isListVolumesAvailable()) {
    for (const ZAN_Value& record : mMeans.connected.getUnmountedVolumes()) {
      const std::string name = record.string("volName");
      if (!mMountVolumesSystemPartition &&
          std::ranges::find(kSystemPartitions, name) != kSystemPartitions.end())
        continue;
      mVolumesToMountList.push_back(
          {.volName = name, .volPath = {}, .bsdName = record.string("bsdName")});
    }
  }
  m.changes.note(Change::volumes);
}

void VolumeMounter::setMountsSystemPartitions(bool also) {
  mMountVolumesSystemPartition = also;
  buildVolumesToMountList();
}

void VolumeMounter::selectVolumeToMountInMenu(std::size_t index) {
  m.state.mMenuWasUsed = true;
  if (index >= mVolumesToMountList.size()) return;
  const MountCandidate candidate = mVolumesToMountList[index];
  if (!candidate.isAlias) {
    mMeans.connected.mountVolumeWithBsd(candidate.bsdName);
  } else if (m.platform.input.optionKeyDown() && m.platform.volumes.exists(candidate.volPath)) {
    mMeans.aliases.checkMountVolume(candidate.volPath);
  } else {
    mountAlias(candidate);
  }
}

void VolumeMounter::mountAlias(const MountCandidate& candidate) {
  if (!m.platform.volumes.exists(candidate.volPath)) return;
  m.state.holdBackUntil(m.platform.clock.now() + kHoldWhileMounting);
  mMeans.aliases.mountVolumeFromAlias(candidate.volPath);
}

void VolumeMounter::mountSelectedVolumes(const std::vector<std::size_t>& rows) {
  std::vector<MountCandidate> chosen;
  for (const std::size_t row : rows) {
    if (row < mVolumesToMountList.size()) chosen.push_back(mVolumesToMountList[row]);
  }
  const auto mounting =
      std::make_shared<std::ptrdiff_t>(std::ranges::count(chosen, false, &MountCandidate::isAlias));
  if (*mounting == 0) updateListOfVolumesToMount();
  for (const auto& candidate : chosen) {
    if (candidate.isAlias) {
      mountAlias(candidate);
    } else {
      mMeans.connected.mountVolumeWithBsd(candidate.bsdName,
                                          [this, mounting, alive = std::weak_ptr<int>(mAlive)] {
                                            if (--*mounting == 0 && !alive.expired())
                                              updateListAfterMounting();
                                          });
    }
  }
}

/// A list that is being read may be one from before the last mount.
void VolumeMounter::updateListAfterMounting() {
  if (!mUpdatingMountedVolumes && !mMeans.connected.isUpdatingList()) {
    updateListOfVolumesToMount();
    return;
  }
  m.platform.runLoop.performAfter(kLook, [this, alive = std::weak_ptr<int>(mAlive)] {
    if (!alive.expired()) updateListAfterMounting();
  });
}

void VolumeMounter::rememberVolumeMountedByScheduler(const std::string& path) {
  if (m.preferences.mAutoUnmountVolumes != 0 && !path.empty()) mMountedVolumesList.push_back(path);
}

void VolumeMounter::unmountVolumesMountedByScheduler() {
  if (mMountedVolumesList.empty()) return;
  mWatch.saveVolumesInfos();
  mUnmountsForQueue = true;
  for (const auto& path : std::exchange(mMountedVolumesList, {})) unmountVolume(path);
}

void VolumeMounter::unmountVolume(std::string path) {
  // The mount table knows no slash at the end.
  while (path.size() > 1 && path.ends_with('/')) path.pop_back();
  if (path.empty()) return;
  mUnmounting.push_back(path);
  if (mUnmounting.size() == 1) beginUnmount();
}

void VolumeMounter::beginUnmount() {
  const std::string path = mUnmounting.front();
  if (m.preferences.mPrefShowMountMessage != 0) {
    mUnmountMessage =
        m.messages.showMessage(m.texts.text("UnmountingVolumeTitle"), path, kMessageSeconds, true);
  }
  m.platform.runLoop.detachThread(
      "unmountVolume", [tools = mMeans.tools, &loop = m.platform.runLoop, path, this,
                        alive = std::weak_ptr<int>(mAlive)] {
        if (!tools.ejectVolume(path)) {
          const std::string device = tools.getBSDNameForVolumePath(path);
          if (!device.empty()) tools.unmountPartition(device);
        }
        loop.performOnMain([this, alive] {
          if (!alive.expired()) waitUntilGone(kMostLooksForGone);
        });
      });
}

/// The system takes a volume away a moment after it said so.
void VolumeMounter::waitUntilGone(int looksLeft) {
  const auto mounts = m.platform.volumes.mounts();
  if (std::ranges::find(mounts, mUnmounting.front(), &Mount::target) == mounts.end()) {
    m.messages.takeBack(mUnmountMessage);
    endUnmount();
  } else if (looksLeft == 0) {
    endUnmount();
  } else {
    m.platform.runLoop.performAfter(kLook, [this, looksLeft] { waitUntilGone(looksLeft - 1); });
  }
}

void VolumeMounter::endUnmount() {
  mUnmounting.pop_front();
  // An open message holds the next launch back.
  if (mUnmountsForQueue) m.messages.takeBack(mUnmountMessage);
  if (!mUnmounting.empty()) return beginUnmount();
  mUnmountsForQueue = false;
}

}  // namespace corvana
