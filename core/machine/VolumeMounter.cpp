#include "core/machine/VolumeMounter.h"

#include <algorithm>
#include <array>
#include <memory>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "core/machine/AliasMounter.h"
#include "core/machine/VolumeWatch.h"
#include "core/record/Records.h"
#include "platform/Clock.h"
#include "platform/Input.h"
#include "platform/RunLoop.h"
#include "platform/Volumes.h"
#include "volumes/AliasFile.h"
#include "volumes/ZAN_ConnectedVolumes.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana {

namespace {

constexpr std::array<std::string_view, 3> kSystemPartitions = {"Boot OS X", "EFI", "Recovery HD"};
constexpr double kHoldWhileMounting = 5.0;
constexpr double kMessageSeconds = 45.0;
constexpr double kLook = 0.1;
constexpr int kMostLooks = 50;

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
          if (!alive.expired()) waitUntilGone(kMostLooks);
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
