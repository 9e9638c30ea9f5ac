#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/StatusModel.h"

class QComboBox;
class QFormLayout;
class QLabel;
class QProgressBar;
class QPushButton;

namespace corvana {

class TableView;

/// What the agent does now and what comes next, and every action with its last and next run.
class StatusWindow final : public AgentWindow {
 public:
  explicit StatusWindow(const UserInterfaceSources& sources);
  void refresh() override;
  void refreshState() override { showFacts(); }
  QWidget* firstFocus() override;

 private:
  void showFacts();
  void showWhy();
  void launch();

  StatusModel mModel;
  QLabel* mTitle;
  QFormLayout* mForm;
  QComboBox* mExecution;
  QComboBox* mContext;
  std::vector<std::pair<QLabel*, QLabel*>> mFacts;
  QProgressBar* mProgress;
  QPushButton* mPause;
  QPushButton* mStop;
  TableView* mList;
  QLabel* mWhy;
  QPushButton* mRun;
  QString mAnswer;  ///< of the latest command, until something else is chosen
};

}  // namespace corvana
