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

void MountVolumesModel::refresh() { mVolumes = m.machine.mounter.volumesToMountList(); }

std::vector<WindowTable::Column> MountVolumesModel::columns() const {
  return {{.title = m.records.texts.text("ColumnVolume"), .isWide = true},
          {.title = m.records.texts.text("ColumnKind")},
          {.title = m.records.texts.text("ColumnDevice")}};
}

std::string MountVolumesModel::text(std::size_t row, std::size_t column) const {
  const MountCandidate& volume = mVolumes[row];
  if (column == 0) return volume.volName;
  return column == 1 ? m.records.texts.text(volume.isAlias ? "Alias" : "UnmountedVolume")
                     : volume.bsdName;
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
  return m.machine.mounter.mountsSystemPartitions();
}

void MountVolumesModel::setOffersSystemPartitions(bool offers) {
  m.commands.setMountsSystemPartitions(offers);
}

std::string MountVolumesModel::summary() const {
  return mVolumes.empty() ? m.records.texts.text("MountNone")
                          : m.records.texts.text("MountCount", {mVolumes.size()});
}

int MountVolumesModel::windowHeight(std::size_t volumes) {
  return kRowHeight * static_cast<int>(std::max(volumes, kLeastRows)) + kFrameHeight;
}

std::string StrayFoldersModel::text() const { return m.records.texts.text("StrayFoldersText"); }

std::string StrayFoldersModel::dateText() const {
  return m.records.texts.text("StrayFoldersDate", {m.machine.folderSurvey.errorDate()});
}

std::string StrayFoldersModel::progressText() const {
  return m.machine.folderSurvey.progressText();
}

std::vector<WindowTable::Column> StrayFoldersModel::columns() const {
  return {{.title = m.records.texts.text("ColumnFolder"), .isWide = true},
          {.title = m.records.texts.text("ColumnInside")}};
}

std::size_t StrayFoldersModel::rowCount() const { return m.machine.folderSurvey.strays().size(); }

std::string StrayFoldersModel::text(std::size_t row, std::size_t column) const {
  const StrayContents::Stray& stray = m.machine.folderSurvey.strays()[row];
  if (column == 0) return VolumesFolder::nameOf(stray.path);
  const ZAN_StringTable& t = m.records.texts;
  if (!stray.contents) return t.text("StrayCounting");
  if (!*stray.contents) return t.text("StrayUnreadable");
  const Volumes::Contents& contents = **stray.contents;
  if (contents.files == 0) return t.text("StrayEmpty");
  return t.text("StrayInside",
                {m.records.strings.getShortSizeBytes(contents.bytes), contents.files});
}

std::int64_t StrayFoldersModel::id(std::size_t row) const {
  return static_cast<std::int64_t>(
      std::hash<std::string>()(m.machine.folderSurvey.strays()[row].path));
}

void StrayFoldersModel::show(std::size_t row) const {
  const std::string& path = m.machine.folderSurvey.strays()[row].path;
  if (const Outcome opened = m.records.platform.processes.open(path); !opened)
    m.records.platform.systemLog.write(opened.error().text);
}

int LowSpaceModel::freePercent() const { return m.machine.freeSpace.lowSpacePercent(); }

std::string LowSpaceModel::text() const {
  return m.records.texts.text("LowSpaceText", {freePercent()});
}

}  // namespace corvana
