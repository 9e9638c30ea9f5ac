#pragma once

#include "core/machine/VolumeMounter.h"
#include "ui/UserInterfaceSources.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

/// The window of the volumes that can be mounted. Thread: main.
class MountVolumesModel final : public WindowTable {
 public:
  explicit MountVolumesModel(const UserInterfaceSources& sources) : m(sources) { refresh(); }

  void refresh();

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override { return mVolumes.size(); }
  std::string text(std::size_t row, std::size_t column) const override;
  std::int64_t id(std::size_t row) const override;

  void mount(const std::vector<std::size_t>& rows);
  bool offersSystemPartitions() const;
  void setOffersSystemPartitions(bool offers);
  std::string summary() const;
  /// In points: grows with the number of volumes, from two rows on.
  static int windowHeight(std::size_t volumes);

 private:
  const UserInterfaceSources& m;
  std::vector<MountCandidate> mVolumes;
};

/// The window that tells of stray folders among the volumes. Thread: main.
class StrayFoldersModel {
 public:
  explicit StrayFoldersModel(const UserInterfaceSources& sources) : m(sources) {}

  std::string text() const;
  std::string names() const;
  std::string dateText() const;
  /// Empty while nothing is being deleted.
  std::string progressText() const;
  void repairAndContinue() const;
  /// As it is.
  void continueAnyway() const;

 private:
  const UserInterfaceSources& m;
};

/// The window that tells that the start-up disk is nearly full. Thread: main.
class LowSpaceModel {
 public:
  explicit LowSpaceModel(const UserInterfaceSources& sources) : m(sources) {}

  int freePercent() const { return m.freePercent ? m.freePercent() : 0; }
  std::string text() const;

 private:
  const UserInterfaceSources& m;
};

}  // namespace corvana
