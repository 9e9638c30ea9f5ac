#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/MountVolumesModel.h"

class QCheckBox;
class QLabel;
class QPushButton;

namespace corvana {

class TableView;

/// Volumes that are known and can be mounted.
class MountVolumesWindow final : public AgentWindow {
 public:
  explicit MountVolumesWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 private:
  MountVolumesModel mModel;
  TableView* mList;
  QLabel* mSummary;
  QCheckBox* mSystem;
  QPushButton* mMount;
};

}  // namespace corvana
