#include "desktop/AgentWindow.h"

#include "desktop/TableView.h"
#include "desktop/WeekView.h"
#include "desktop/WindowParts.h"
#include "ui/windows/ComingModels.h"
#include "ui/windows/WeekModel.h"

namespace corvana {

namespace {

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

QueueWindow::QueueWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::queue, sources), mModel(sources), mSummary(makeLabel()) {
  setWindowTitle(text("QueueTitle"));
  mList = new TableView(mModel, text("QueueTitle"), this);
  mList->setOnMove([this](std::size_t row, std::size_t before) { mModel.move(row, before); });
  mList->onActivated = [this](const auto& rows) { mModel.runNow(rows.front()); };
  mList->onDelete = [this](const auto& rows) { mModel.remove(rows); };
  mList->onSelection = [this] { showState(); };
  mList->setToolTip(text("QueueHint"));

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mList);
  layout->addWidget(mSummary);
  auto* row = new QHBoxLayout;
  mRunNow = addButton(row, text("ButtonRunNow"), [this] {
    if (const auto selected = mList->selectedRow()) mModel.runNow(*selected);
  });
  mUp = addButton(row, text("ButtonUp"), [this] { moveSelected(-1); });
  mDown = addButton(row, text("ButtonDown"), [this] { moveSelected(2); });
  mRemove = addButton(row, text("ButtonRemove"), [this] { mModel.remove(mList->selectedRows()); });
  row->addStretch();
  layout->addLayout(row);
  auto* running = new QHBoxLayout;
  mPause = addButton(running, {}, [this] { mModel.pauseOrContinue(); });
  mStop = addButton(running, text("ButtonStop"), [this] { mModel.stop(); });
  mSkip = addButton(running, text("ButtonSkip"), [this] { mModel.skip(); });
  mProgress = addButton(running, text("ButtonProgress"), [this] { mModel.showProgress(); });
  running->addStretch();
  layout->addLayout(running);
  resizeByFont(this, 90, 24);
}

QWidget* QueueWindow::firstFocus() { return mList; }

void QueueWindow::moveSelected(int by) {
  const auto selected = mList->selectedRow();
  if (!selected) return;
  const auto before = static_cast<std::ptrdiff_t>(*selected) + by;
  if (before >= 0) mModel.move(*selected, static_cast<std::size_t>(before));
}

void QueueWindow::refresh() {
  mList->refresh();
  showState();
}

void QueueWindow::showState() {
  mSummary->setText(qt(mModel.summary()));
  const auto selected = mList->selectedRow();
  const bool movable = selected && mModel.canMove(*selected);
  const std::size_t first = mModel.isExecuting() ? 1 : 0;
  mRunNow->setEnabled(movable);
  mRemove->setEnabled(movable);
  mUp->setEnabled(movable && *selected > first);
  mDown->setEnabled(movable && *selected + 1 < mModel.rowCount());
  mPause->setText(qt(mModel.pauseTitle()));
  for (QPushButton* button : {mStop, mSkip, mProgress}) button->setEnabled(mModel.isExecuting());
}

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
  ShownWeekModel mWeek;
  QLineEdit* mSearch;
  QTabWidget* mTabs;
  TableView* mList;
  WeekView* mWeekView;
  QLabel* mWords;
  QLabel* mSummary;
  QPushButton* mRun;
  QString mAnswer;  ///< of the latest command, until something else is chosen
};

NextActionsWindow::NextActionsWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::nextActions, sources),
      mModel(sources),
      mWeek(sources),
      mSearch(new QLineEdit),
      mTabs(new QTabWidget),
      mWords(makeLabel()),
      mSummary(makeLabel()) {
  setWindowTitle(text("NextTitle"));
  mSearch->setPlaceholderText(text("NextSearch"));
  mSearch->setAccessibleName(text("NextSearch"));
  mSearch->setClearButtonEnabled(true);
  mSearch->installEventFilter(this);
  connect(mSearch, &QLineEdit::textChanged, this, [this] { searched(); });

  mList = new TableView(mModel, text("NextTitle"), this);
  mList->onActivated = [this](const auto&) { launch(); };
  mList->onSelection = [this] { showState(); };
  mList->onChosen = [this] { mAnswer.clear(); };
  mWeekView = new WeekView(mWeek, text("NextTitle"), this);
  mWeekView->onChosen = [this](const QString& words) { mWords->setText(words); };
  mTabs->addTab(mList, text("NextListTab"));
  mTabs->addTab(mWeekView, text("NextWeekTab"));
  connect(mTabs, &QTabWidget::currentChanged, this, [this] { refresh(); });

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mSearch);
  layout->addWidget(mTabs, 1);
  layout->addWidget(mWords);
  auto* row = new QHBoxLayout;
  row->addWidget(mSummary, 1);
  mRun = addButton(row, text("ButtonRun"), [this] { launch(); });
  layout->addLayout(row);
  resizeByFont(this, 120, 36);
}

QWidget* NextActionsWindow::firstFocus() {
  mSearch->selectAll();
  return mSearch;
}

void NextActionsWindow::searched() {
  mAnswer.clear();
  mModel.search(utf8(mSearch->text()));
  mList->refresh();
  if (!mSearch->text().isEmpty() && mModel.rowCount() > 0 && !mList->selectedRow())
    mList->selectRow(0);
  showWeek();
  showState();
}

void NextActionsWindow::refresh() {
  mModel.refresh();
  mList->refresh();
  showWeek();
  showState();
}

void NextActionsWindow::showWeek() {
  if (mTabs->currentWidget() != mWeekView) return;
  if (mWeek.refresh(mModel)) mWeekView->refresh();
}

void NextActionsWindow::showState() {
  const bool week = mTabs->currentWidget() == mWeekView;
  mRun->setVisible(!week);
  if (week) {
    mSummary->setText(qt(mWeek.summary()));
    return;
  }
  mSummary->setText(mAnswer.isEmpty() ? qt(mModel.summary()) : mAnswer);
  const auto selected = mList->selectedRow();
  mRun->setEnabled(selected.has_value());
  mWords->setText(selected ? qt(mModel.why(*selected)) : QString());
}

void NextActionsWindow::launch() {
  mAnswer = qt(mModel.launch(mList->selectedRows()));
  mList->refresh();
}

bool NextActionsWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == mSearch && event->type() == QEvent::KeyPress && mTabs->currentWidget() == mList) {
    const auto* key = static_cast<QKeyEvent*>(event);
    if (key->key() == Qt::Key_Down) {
      mList->setFocus();
      if (!mList->selectedRow() && mModel.rowCount() > 0) mList->selectRow(0);
      return true;
    }
    if (key->key() == Qt::Key_Return || key->key() == Qt::Key_Enter) {
      launch();
      return true;
    }
  }
  return AgentWindow::eventFilter(watched, event);
}

}  // namespace

std::unique_ptr<AgentWindow> makeQueueWindow(const UserInterfaceSources& sources) {
  return std::make_unique<QueueWindow>(sources);
}

std::unique_ptr<AgentWindow> makeNextActionsWindow(const UserInterfaceSources& sources) {
  return std::make_unique<NextActionsWindow>(sources);
}

}  // namespace corvana
