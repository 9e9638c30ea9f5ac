#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/NextActionsModel.h"
#include "ui/windows/WeekModel.h"

class QLabel;
class QLineEdit;
class QPushButton;
class QTabWidget;

namespace corvana {

class TableView;
class WeekView;

/// All actions by their next date, found as one types, and the coming week as a picture.
class NextActionsWindow final : public AgentWindow {
 public:
  explicit NextActionsWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void searched();
  void showWeek();
  void showState();
  void launch();

  NextActionsModel mModel;
  WeekModel mWeek;
  QLineEdit* mSearch;
  QTabWidget* mTabs;
  TableView* mList;
  WeekView* mWeekView;
  QLabel* mWords;
  QLabel* mSummary;
  QPushButton* mRun;
  QString mAnswer;  ///< of the latest command, until something else is chosen
};

}  // namespace corvana
