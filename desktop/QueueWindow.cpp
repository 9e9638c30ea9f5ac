#include "desktop/QueueWindow.h"

#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

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

}  // namespace corvana
