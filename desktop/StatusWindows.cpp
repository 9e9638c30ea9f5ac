#include "desktop/AgentWindow.h"

#include "desktop/TableView.h"
#include "desktop/WindowParts.h"
#include "ui/StatusItem.h"
#include "ui/windows/StatusModels.h"

namespace corvana {

namespace {

constexpr std::size_t kMostFacts = 5;

QComboBox* makeChoice(const std::vector<std::string>& choices) {
  auto* box = new QComboBox;
  for (const std::string& choice : choices) box->addItem(qt(choice));
  return box;
}

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
  QWidget* mFailure;
  QLabel* mFailureText;
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

StatusWindow::StatusWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::status, sources),
      mModel(sources),
      mTitle(makeLabel()),
      mFailure(new QFrame),
      mFailureText(makeLabel()),
      mForm(new QFormLayout),
      mExecution(makeChoice(mModel.executionChoices())),
      mContext(makeChoice(mModel.contextChoices())),
      mProgress(new QProgressBar),
      mWhy(makeLabel()) {
  setWindowTitle(text("StatusTitle"));
  QFont large = mTitle->font();
  large.setPointSizeF(large.pointSizeF() * 1.25);
  mTitle->setFont(large);
  leaveToWheelOnlyWithFocus(mExecution);
  leaveToWheelOnlyWithFocus(mContext);
  connect(mExecution, &QComboBox::activated, this, [this](int item) { mModel.setExecution(item); });
  connect(mContext, &QComboBox::activated, this, [this](int item) { mModel.setContext(item); });

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mTitle);
  auto* failure = new QHBoxLayout(mFailure);
  failure->setContentsMargins(0, 0, 0, 0);
  QPalette alert = mFailureText->palette();
  alert.setColor(QPalette::WindowText, alertColour());
  mFailureText->setPalette(alert);
  failure->addWidget(mFailureText, 1);
  addButton(failure, text("ButtonShowErrors"), [this] { mModel.showFailures(); });
  addButton(failure, text("ButtonSeen"), [this] { mModel.markFailuresAsSeen(); });
  layout->addWidget(mFailure);
  mForm->addRow(text("StatusExecution"), mExecution);
  mForm->addRow(text("StatusContext"), mContext);
  for (std::size_t i = 0; i < kMostFacts; ++i) {
    mFacts.emplace_back(new QLabel, makeLabel());
    mForm->addRow(mFacts.back().first, mFacts.back().second);
  }
  layout->addLayout(mForm);
  QSizePolicy staying = mProgress->sizePolicy();
  staying.setRetainSizeWhenHidden(true);
  mProgress->setSizePolicy(staying);
  layout->addWidget(mProgress);
  mList = new TableView(mModel, text("StatusTitle"), this);
  mList->onSelection = [this] { showWhy(); };
  mList->onChosen = [this] { mAnswer.clear(); };
  mList->onActivated = [this](const auto&) { launch(); };
  layout->addWidget(mList, 1);
  layout->addWidget(mWhy);
  auto* row = new QHBoxLayout;
  mRun = addButton(row, text("ButtonRun"), [this] { launch(); });
  mPause = addButton(row, {}, [this] { mModel.pauseOrContinue(); });
  mStop = addButton(row, text("ButtonStop"), [this] { mModel.stop(); });
  row->addStretch();
  for (const auto& [key, window] : {std::pair{text("ButtonQueue"), Window::queue},
                                    std::pair{text("ButtonNext"), Window::nextActions},
                                    std::pair{text("ButtonPreferences"), Window::preferences}}) {
    addButton(row, key, [this, which = window] { this->sources().commands.showWindow(which); });
  }
  layout->addLayout(row);
  resizeByFont(this, 120, 38);
}

QWidget* StatusWindow::firstFocus() { return mList; }

void StatusWindow::refresh() {
  mModel.refresh();
  mList->refresh();
  showFacts();
}

void StatusWindow::showFacts() {
  mTitle->setText(qt(sources().statusItem.shownTitle()));
  mTitle->setVisible(!mTitle->text().isEmpty());
  const std::string failure = mModel.failureText();
  mFailure->setVisible(!failure.empty());
  mFailureText->setText(qt(failure));
  mExecution->setCurrentIndex(mModel.execution());
  mContext->setCurrentIndex(mModel.context());
  const auto facts = mModel.facts();
  for (std::size_t i = 0; i < mFacts.size(); ++i) {
    const bool shown = i < facts.size();
    mFacts[i].first->setVisible(shown);
    mFacts[i].second->setVisible(shown);
    if (!shown) continue;
    mFacts[i].first->setText(qt(facts[i].first));
    mFacts[i].second->setText(qt(facts[i].second));
  }
  const auto progress = mModel.progress();
  mProgress->setVisible(progress.has_value());
  mProgress->setValue(progress.value_or(0));
  mPause->setText(qt(mModel.pauseTitle()));
  mStop->setEnabled(mModel.isExecuting());
}

void StatusWindow::showWhy() {
  const auto selected = mList->selectedRow();
  mRun->setEnabled(selected.has_value());
  if (!mAnswer.isEmpty()) {
    mWhy->setText(mAnswer);
  } else {
    mWhy->setText(selected ? qt(mModel.why(*selected)) : QString());
  }
}

void StatusWindow::launch() {
  mAnswer = qt(mModel.launch(mList->selectedRows()));
  showWhy();
}

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

SurveyWindow::SurveyWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::executionSurvey, sources),
      mModel(sources),
      mLine(makeLabel()),
      mReply(makeLabel()),
      mMode(new QComboBox),
      mTimings(new QPlainTextEdit) {
  setWindowTitle(qt(mModel.title()));
  for (const std::string& mode : mModel.modes()) mMode->addItem(qt(mode));
  leaveToWheelOnlyWithFocus(mMode);
  connect(mMode, &QComboBox::activated, this, [this](int mode) { mModel.setMode(mode); });
  mPaths = new TableView(mModel, text("ColumnPath"), this);
  mTimings->setReadOnly(true);
  mTimings->setTabChangesFocus(true);
  mTimings->setLineWrapMode(QPlainTextEdit::NoWrap);
  mTimings->setAccessibleName(text("SurveyTimings"));

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mLine);
  auto* form = new QFormLayout;
  form->addRow(text("SurveyMode"), mMode);
  form->addRow(text("SurveyReply"), mReply);
  layout->addLayout(form);
  layout->addWidget(mPaths, 2);
  layout->addWidget(new QLabel(text("SurveyTimings")));
  layout->addWidget(mTimings, 1);
  resizeByFont(this, 110, 32);
}

void SurveyWindow::refresh() {
  mLine->setText(qt(mModel.line()));
  mLine->setVisible(!mLine->text().isEmpty());
  mReply->setText(qt(mModel.reply()));
  mMode->setCurrentIndex(mModel.mode());
  mPaths->refresh();
  QString timings;
  for (const std::string& line : mModel.timings()) timings += qt(line) + '\n';
  if (timings == mTimings->toPlainText()) return;
  const int scrolled = mTimings->verticalScrollBar()->value();
  mTimings->setPlainText(timings);
  mTimings->verticalScrollBar()->setValue(scrolled);
}

}  // namespace

std::unique_ptr<AgentWindow> makeStatusWindow(const UserInterfaceSources& sources) {
  return std::make_unique<StatusWindow>(sources);
}

std::unique_ptr<AgentWindow> makeSurveyWindow(const UserInterfaceSources& sources) {
  return std::make_unique<SurveyWindow>(sources);
}

}  // namespace corvana
