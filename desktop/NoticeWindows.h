#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/NoticeModels.h"

class QLabel;
class QPlainTextEdit;
class QProgressBar;
class QPushButton;

namespace corvana {

/// Tells of stray folders among the volumes; above other windows.
class StrayFoldersWindow final : public AgentWindow {
 public:
  explicit StrayFoldersWindow(const UserInterfaceSources& sources);
  void refresh() override;

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  StrayFoldersModel mModel;
  QPlainTextEdit* mNames;
  QLabel* mDate;
  QPushButton* mClean = nullptr;
};

/// Tells that the start-up disk is nearly full.
class LowSpaceWindow final : public AgentWindow {
 public:
  explicit LowSpaceWindow(const UserInterfaceSources& sources);
  void refresh() override;

 private:
  LowSpaceModel mModel;
  QLabel* mText;
  QProgressBar* mUsed;
};

}  // namespace corvana
