#pragma once

#include "core/machine/VolumeMounter.h"
#include "core/record/SchedulerCommands.h"
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

/// The window that tells of stray folders among the volumes: each with how much is in it, so that
/// nobody decides about what they do not know. Thread: main.
class StrayFoldersModel final : public WindowTable {
 public:
  explicit StrayFoldersModel(const UserInterfaceSources& sources) : m(sources) {}

  std::string text() const;
  std::string dateText() const;
  /// Empty while nothing is being taken away.
  std::string progressText() const;

  std::vector<Column> columns() const override;
  std::size_t rowCount() const override;
  std::string text(std::size_t row, std::size_t column) const override;
  std::string icon(std::size_t /*row*/) const override { return "folder"; }
  std::int64_t id(std::size_t row) const override;

  /// Opens it in the desktop's file manager.
  void show(std::size_t row) const;
  void moveAsideAndContinue() const { m.commands.repairAndContinueExecution(); }
  /// Asks first.
  void deleteThem() const { m.commands.deleteStrayFolders(); }
  /// As it is.
  void continueAnyway() const { m.commands.continueExecution(); }

 private:
  const UserInterfaceSources& m;
};

/// The window that tells that the start-up disk is nearly full. Thread: main.
class LowSpaceModel {
 public:
  explicit LowSpaceModel(const UserInterfaceSources& sources) : m(sources) {}

  int freePercent() const;
  std::string text() const;

 private:
  const UserInterfaceSources& m;
};

}  // namespace corvana
