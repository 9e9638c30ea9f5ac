#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/ErrorSummaryModel.h"

class QCheckBox;
class QLabel;
class QPushButton;

namespace corvana {

class TableView;

/// What failed in the last days.
class ErrorSummaryWindow final : public AgentWindow {
 public:
  explicit ErrorSummaryWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 private:
  void showDetails();
  void showSummary();

  ErrorSummaryModel mModel;
  TableView* mList;
  QLabel* mDetails;
  QLabel* mSummary;
  QCheckBox* mShown;
  QPushButton* mAgain;
  QString mAnswer;  ///< of the latest command, until something else is chosen
};

}  // namespace corvana
