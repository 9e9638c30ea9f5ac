#include <QPointer>

#include "desktop/AgentWindow.h"
#include "desktop/TableView.h"
#include "desktop/WindowParts.h"
#include "ui/windows/HistoryModels.h"

namespace corvana {

namespace {

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

LatestActionsWindow::LatestActionsWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::latestActions, sources),
      mModel(sources),
      mDetails(new QPlainTextEdit),
      mSummary(makeLabel()) {
  setWindowTitle(text("LatestTitle"));
  auto* onlyFailures = new QCheckBox(text("LatestOnlyFailures"));
  connect(onlyFailures, &QCheckBox::toggled, this, [this](bool only) {
    mAnswer.clear();
    mModel.setOnlyFailures(only);
    refresh();
  });
  mList = new TableView(mModel, text("LatestTitle"), this);
  mList->onSelection = [this] { showDetails(); };
  mList->onChosen = [this] {
    mAnswer.clear();
    showSummary();
  };
  mDetails->setReadOnly(true);
  mDetails->setTabChangesFocus(true);
  mDetails->setAccessibleName(text("ColumnResult"));

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(onlyFailures);
  auto* splitter = new QSplitter(Qt::Vertical);
  splitter->addWidget(mList);
  splitter->addWidget(mDetails);
  splitter->setStretchFactor(0, 3);
  splitter->setStretchFactor(1, 1);
  layout->addWidget(splitter);
  auto* row = new QHBoxLayout;
  row->addWidget(mSummary, 1);
  mAgain = addButton(row, text("ButtonRunAgain"), [this] {
    if (const auto selected = mList->selectedRow()) mAnswer = qt(mModel.launchAgain(*selected));
    showSummary();
  });
  layout->addLayout(row);
  resizeByFont(this, 120, 32);
}

QWidget* LatestActionsWindow::firstFocus() { return mList; }

void LatestActionsWindow::refresh() {
  mModel.refresh();
  mList->refresh();
  showSummary();
}

void LatestActionsWindow::showSummary() {
  mSummary->setText(mAnswer.isEmpty() ? qt(mModel.summary()) : mAnswer);
}

void LatestActionsWindow::showDetails() {
  const auto selected = mList->selectedRow();
  mAgain->setEnabled(selected.has_value());
  const QString details = selected ? qt(mModel.details(*selected)) : QString();
  if (details != mDetails->toPlainText()) mDetails->setPlainText(details);
}

/// What failed in the last days. Whoever moves the pointer on it or uses a key in it has it before
/// their eyes; that it is open somewhere below other windows says nothing.
class ErrorSummaryWindow final : public AgentWindow {
 public:
  explicit ErrorSummaryWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 protected:
  void showEvent(QShowEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void showDetails();
  void showSummary();

  ErrorSummaryModel mModel;
  TableView* mList;
  QLabel* mDetails;
  QLabel* mSummary;
  QCheckBox* mShown;
  QPushButton* mAgain;
  QPushButton* mConfirm;
  QPushButton* mLeaveOut;
  QPushButton* mSeen;
  QString mAnswer;  ///< of the latest command, until something else is chosen
};

ErrorSummaryWindow::ErrorSummaryWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::errorSummary, sources),
      mModel(sources),
      mDetails(makeLabel()),
      mSummary(makeLabel()),
      mShown(new QCheckBox(text("ErrorsShow"))) {
  setWindowTitle(text("ErrorsTitle"));
  mList = new TableView(mModel, text("ErrorsTitle"), this);
  mList->onSelection = [this] { showDetails(); };
  mList->onChosen = [this] {
    mAnswer.clear();
    showSummary();
  };
  connect(mShown, &QCheckBox::clicked, this, [this](bool on) { mModel.setShownOnErrors(on); });

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mSummary);
  layout->addWidget(mList);
  layout->addWidget(mDetails);
  layout->addWidget(mShown);
  auto* row = new QHBoxLayout;
  mAgain = addButton(row, text("ButtonRunAgain"), [this] {
    if (const auto selected = mList->selectedRow()) mAnswer = qt(mModel.launchAgain(*selected));
    showSummary();
  });
  mConfirm = addButton(row, text("ButtonConfirmDeletion"), [this] {
    if (const auto selected = mList->selectedRow()) {
      mModel.confirmDeletion(*selected, [self = QPointer<ErrorSummaryWindow>(this)](auto said) {
        if (self == nullptr) return;
        self->mAnswer = qt(said);
        self->refresh();
      });
    }
  });
  mLeaveOut = addButton(row, text("ButtonLeaveOut"), [this] {
    if (const auto selected = mList->selectedRow()) mAnswer = qt(mModel.leaveOutMissing(*selected));
    refresh();
  });
  mLeaveOut->setToolTip(text("ButtonLeaveOutTip"));
  addButton(row, text("ButtonLatest"), [this] { mModel.showLatestActions(); });
  row->addStretch();
  mSeen = addButton(row, text("ButtonSeen"), [this] {
    mModel.markAsSeen();
    close();
  });
  addButton(row, text("ButtonClose"), [this] { close(); });
  layout->addLayout(row);
  resizeByFont(this, 100, 22);
}

void ErrorSummaryWindow::showEvent(QShowEvent* event) {
  AgentWindow::showEvent(event);
  if (windowHandle() != nullptr) windowHandle()->installEventFilter(this);
}

bool ErrorSummaryWindow::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::MouseMove:
    case QEvent::MouseButtonPress:
    case QEvent::TouchBegin:
    case QEvent::Wheel:
    case QEvent::KeyPress:
      mModel.markAsSeen();
      break;
    default:
      break;
  }
  return AgentWindow::eventFilter(watched, event);
}

QWidget* ErrorSummaryWindow::firstFocus() { return mList; }

void ErrorSummaryWindow::refresh() {
  mModel.refresh();
  mList->refresh();
  showSummary();
  mShown->setChecked(mModel.isShownOnErrors());
  mSeen->setEnabled(mModel.hasUnseen());
}

void ErrorSummaryWindow::showSummary() {
  mSummary->setText(mAnswer.isEmpty() ? qt(mModel.summary()) : mAnswer);
}

void ErrorSummaryWindow::showDetails() {
  const auto selected = mList->selectedRow();
  mAgain->setEnabled(selected.has_value());
  mConfirm->setVisible(selected && mModel.asksToDelete(*selected));
  mLeaveOut->setVisible(selected && mModel.lacksSomething(*selected));
  mDetails->setText(selected ? qt(mModel.details(*selected)) : QString());
}

}  // namespace

std::unique_ptr<AgentWindow> makeLatestActionsWindow(const UserInterfaceSources& sources) {
  return std::make_unique<LatestActionsWindow>(sources);
}

std::unique_ptr<AgentWindow> makeErrorSummaryWindow(const UserInterfaceSources& sources) {
  return std::make_unique<ErrorSummaryWindow>(sources);
}

}  // namespace corvana
