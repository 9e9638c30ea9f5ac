#include "desktop/ErrorSummaryWindow.h"

#include <QCheckBox>

#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

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
  addButton(row, text("ButtonLatest"), [this] { mModel.showLatestActions(); });
  row->addStretch();
  addButton(row, text("ButtonClose"), [this] { close(); });
  layout->addLayout(row);
  resizeByFont(this, 100, 22);
}

QWidget* ErrorSummaryWindow::firstFocus() { return mList; }

void ErrorSummaryWindow::refresh() {
  mModel.refresh();
  mList->refresh();
  showSummary();
  mShown->setChecked(mModel.isShownOnErrors());
}

void ErrorSummaryWindow::showSummary() {
  mSummary->setText(mAnswer.isEmpty() ? qt(mModel.summary()) : mAnswer);
}

void ErrorSummaryWindow::showDetails() {
  const auto selected = mList->selectedRow();
  mAgain->setEnabled(selected.has_value());
  mDetails->setText(selected ? qt(mModel.details(*selected)) : QString());
}

}  // namespace corvana
