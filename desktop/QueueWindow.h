#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/QueueModel.h"

class QLabel;
class QPushButton;

namespace corvana {

class TableView;

/// What waits for execution, to be reordered, removed and run.
class QueueWindow final : public AgentWindow {
 public:
  explicit QueueWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 private:
  void showState();
  void moveSelected(int by);

  QueueModel mModel;
  TableView* mList;
  QLabel* mSummary;
  QPushButton* mRunNow;
  QPushButton* mUp;
  QPushButton* mDown;
  QPushButton* mRemove;
  QPushButton* mPause;
  QPushButton* mStop;
  QPushButton* mSkip;
  QPushButton* mProgress;
};

}  // namespace corvana
