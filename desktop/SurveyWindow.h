#pragma once

#include "desktop/AgentWindow.h"
#include "ui/windows/SurveyModel.h"

class QComboBox;
class QLabel;
class QPlainTextEdit;

namespace corvana {

class TableView;

/// The execution survey.
class SurveyWindow final : public AgentWindow {
 public:
  explicit SurveyWindow(const UserInterfaceSources& sources);
  void refresh() override;

 private:
  SurveyModel mModel;
  QLabel* mLine;
  QLabel* mReply;
  QComboBox* mMode;
  TableView* mPaths;
  QPlainTextEdit* mTimings;
};

}  // namespace corvana
