#include "desktop/LatestActionsWindow.h"

#include <QCheckBox>
#include <QPlainTextEdit>
#include <QSplitter>

#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

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

}  // namespace corvana
