#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/LatestActionsModel.h"

class QLabel;
class QPlainTextEdit;
class QPushButton;

namespace corvana {

class TableView;

/// What was executed, how it ended and with which errors.
class LatestActionsWindow final : public AgentWindow {
 public:
  explicit LatestActionsWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 private:
  void showDetails();

  LatestActionsModel mModel;
  TableView* mList;
  QPlainTextEdit* mDetails;
  QLabel* mSummary;
  QPushButton* mAgain;
};

}  // namespace corvana
