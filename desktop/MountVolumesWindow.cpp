#include "desktop/MountVolumesWindow.h"

#include <QCheckBox>
#include <algorithm>

#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

MountVolumesWindow::MountVolumesWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::mountVolumes, sources),
      mModel(sources),
      mSummary(makeLabel()),
      mSystem(new QCheckBox(text("MountSystem"))) {
  setWindowTitle(text("MountTitle"));
  mList = new TableView(mModel, text("MountTitle"), this);
  mList->onActivated = [this](const auto& rows) { mModel.mount(rows); };
  mList->onSelection = [this] { mMount->setEnabled(mList->selectedRow().has_value()); };
  connect(mSystem, &QCheckBox::clicked, this, [this](bool on) {
    mModel.setOffersSystemPartitions(on);
    refresh();
  });

  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mSummary);
  layout->addWidget(mList, 1);
  auto* row = new QHBoxLayout;
  row->addWidget(mSystem, 1);
  mMount = addButton(row, text("ButtonMount"), [this] { mModel.mount(mList->selectedRows()); });
  layout->addLayout(row);
  resizeByFont(this, 70, 10);
  resize(width(),
         std::max(minimumSizeHint().height(), MountVolumesModel::windowHeight(mModel.rowCount())));
}

QWidget* MountVolumesWindow::firstFocus() { return mList; }

void MountVolumesWindow::refresh() {
  mModel.refresh();
  mList->refresh();
  mSummary->setText(qt(mModel.summary()));
  mSystem->setChecked(mModel.offersSystemPartitions());
}

}  // namespace corvana
