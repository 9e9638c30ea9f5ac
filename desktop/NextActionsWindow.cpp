#include "desktop/NextActionsWindow.h"

#include <QKeyEvent>
#include <QLineEdit>
#include <QTabWidget>

#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WeekView.h"
#include "desktop/WindowParts.h"

namespace corvana {

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

}  // namespace corvana
