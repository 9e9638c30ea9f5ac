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
  void showSummary();

  LatestActionsModel mModel;
  TableView* mList;
  QPlainTextEdit* mDetails;
  QLabel* mSummary;
  QPushButton* mAgain;
  QString mAnswer;  ///< of the latest command, until something else is chosen
};

}  // namespace corvana
