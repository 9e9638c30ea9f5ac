#include "ui/windows/VolumeModels.h"

#include <algorithm>
#include <functional>

#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr int kRowHeight = 17;
constexpr int kFrameHeight = 113;
constexpr std::size_t kLeastRows = 2;

}  // namespace

void MountVolumesModel::refresh() { mVolumes = m.mounter.volumesToMountList(); }

std::vector<WindowTable::Column> MountVolumesModel::columns() const {
  return {{.title = m.texts.text("ColumnVolume"), .isWide = true},
          {.title = m.texts.text("ColumnKind")},
          {.title = m.texts.text("ColumnDevice")}};
}

std::string MountVolumesModel::text(std::size_t row, std::size_t column) const {
  const MountCandidate& volume = mVolumes[row];
  if (column == 0) return volume.volName;
  return column == 1 ? m.texts.text(volume.isAlias ? "Alias" : "UnmountedVolume") : volume.bsdName;
}

std::int64_t MountVolumesModel::id(std::size_t row) const {
  const MountCandidate& volume = mVolumes[row];
  return static_cast<std::int64_t>(
      std::hash<std::string>()(volume.volName + '\n' + volume.bsdName));
}

void MountVolumesModel::mount(const std::vector<std::size_t>& rows) {
  if (!rows.empty()) m.commands.mountSelectedVolumes(rows);
}

bool MountVolumesModel::offersSystemPartitions() const {
  return m.mounter.mountsSystemPartitions();
}

void MountVolumesModel::setOffersSystemPartitions(bool offers) {
  m.commands.setMountsSystemPartitions(offers);
}

std::string MountVolumesModel::summary() const {
  return mVolumes.empty() ? m.texts.text("MountNone")
                          : m.texts.text("MountCount", {mVolumes.size()});
}

int MountVolumesModel::windowHeight(std::size_t volumes) {
  return kRowHeight * static_cast<int>(std::max(volumes, kLeastRows)) + kFrameHeight;
}

std::string StrayFoldersModel::text() const { return m.texts.text("StrayFoldersText"); }

std::string StrayFoldersModel::names() const {
  return m.strayFolders ? m.strayFolders() : std::string();
}

std::string StrayFoldersModel::dateText() const {
  return m.strayFoldersDate ? m.texts.text("StrayFoldersDate", {m.strayFoldersDate()})
                            : std::string();
}

std::string StrayFoldersModel::progressText() const {
  return m.strayFoldersProgress ? m.strayFoldersProgress() : std::string();
}

void StrayFoldersModel::repairAndContinue() const {
  if (m.repairAndContinue) m.repairAndContinue();
}

void StrayFoldersModel::continueAnyway() const { m.commands.continueExecution(); }

std::string LowSpaceModel::text() const { return m.texts.text("LowSpaceText", {freePercent()}); }

}  // namespace corvana
