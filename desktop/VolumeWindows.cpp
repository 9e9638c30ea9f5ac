#include "desktop/AgentWindow.h"

#include <algorithm>

#include "core/record/Records.h"
#include "desktop/TableView.h"
#include "desktop/WindowParts.h"
#include "ui/windows/VolumeModels.h"

namespace corvana {

namespace {

/// Volumes that are known and can be mounted.
class MountVolumesWindow final : public AgentWindow {
 public:
  explicit MountVolumesWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override;

 private:
  MountVolumesModel mModel;
  TableView* mList;
  QLabel* mSummary;
  QCheckBox* mSystem;
  QPushButton* mMount;
};

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

/// The text of all disks and partitions.
class AllDisksWindow final : public AgentWindow {
 public:
  explicit AllDisksWindow(const UserInterfaceSources& sources);
  void setText(const std::string& text) override;
  QWidget* firstFocus() override;

 private:
  void saveProcesses();

  QPlainTextEdit* mText;
  QLabel* mAnswer;
};

AllDisksWindow::AllDisksWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::allDisks, sources), mText(new QPlainTextEdit), mAnswer(makeLabel()) {
  setWindowTitle(text("AllDisksTitle"));
  mText->setReadOnly(true);
  mText->setTabChangesFocus(true);
  mText->setLineWrapMode(QPlainTextEdit::NoWrap);
  mText->setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  mText->setAccessibleName(text("AllDisksTitle"));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mText);
  auto* row = new QHBoxLayout;
  row->addWidget(mAnswer, 1);
  addButton(row, text("ButtonSaveProcesses"), [this] { saveProcesses(); });
  addButton(row, text("ButtonCopy"),
            [this] { QGuiApplication::clipboard()->setText(mText->toPlainText()); });
  addButton(row, text("ButtonClose"), [this] { close(); });
  layout->addLayout(row);
  resizeByFont(this, 100, 34);
}

QWidget* AllDisksWindow::firstFocus() { return mText; }

void AllDisksWindow::saveProcesses() {
  const auto saved = sources().commands.saveListProcess();
  const ZAN_StringTable& texts = sources().records.texts;
  mAnswer->setText(qt(saved ? texts.text("ProcessesSaved", {*saved})
                            : texts.text("ProcessesNotSaved", {saved.error().text})));
}

void AllDisksWindow::setText(const std::string& text) { mText->setPlainText(qt(text)); }

/// Tells of stray folders among the volumes; above other windows.
class StrayFoldersWindow final : public AgentWindow {
 public:
  explicit StrayFoldersWindow(const UserInterfaceSources& sources);
  void refresh() override;
  QWidget* firstFocus() override { return mMove; }

 protected:
  void showEvent(QShowEvent* event) override;

 private:
  StrayFoldersModel mModel;
  TableView* mList;
  QLabel* mDate;
  QPushButton* mShow = nullptr;
  QPushButton* mDelete = nullptr;
  QPushButton* mMove = nullptr;
};

/// Tells that the start-up disk is nearly full.
class LowSpaceWindow final : public AgentWindow {
 public:
  explicit LowSpaceWindow(const UserInterfaceSources& sources);
  void refresh() override;

 private:
  LowSpaceModel mModel;
  QLabel* mText;
  QProgressBar* mUsed;
};

StrayFoldersWindow::StrayFoldersWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::volumesFolderError, sources),
      mModel(sources),
      mList(new TableView(mModel, text("StrayFoldersTitle"), this)),
      mDate(makeLabel()) {
  setWindowTitle(text("StrayFoldersTitle"));
  setWindowFlag(Qt::WindowStaysOnTopHint);
  mList->onActivated = [this](const auto& rows) { mModel.show(rows.front()); };
  mList->onSelection = [this] { mShow->setEnabled(mList->selectedRow().has_value()); };
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(makeLabel(qt(mModel.text())));
  layout->addWidget(mList, 1);
  layout->addWidget(mDate);
  auto* row = new QHBoxLayout;
  mShow = addButton(row, text("ButtonShow"), [this] {
    if (const auto selected = mList->selectedRow()) mModel.show(*selected);
  });
  mDelete = addButton(row, text("ButtonDelete"), [this] { mModel.deleteThem(); });
  row->addStretch();
  addButton(row, text("ButtonContinueAnyway"), [this] { mModel.continueAnyway(); });
  mMove = addButton(row, text("ButtonMoveAside"), [this] { mModel.moveAsideAndContinue(); });
  mMove->setDefault(true);
  layout->addLayout(row);
  resizeByFont(this, 90, 18);
}

void StrayFoldersWindow::refresh() {
  mList->refresh();
  if (!mList->selectedRow() && mModel.rowCount() > 0) mList->selectRow(0);
  const std::string progress = mModel.progressText();
  mDate->setText(qt(progress.empty() ? mModel.dateText() : progress));
  mMove->setEnabled(progress.empty());
  mDelete->setEnabled(progress.empty());
}

/// Half across the screen and four fifths up.
void StrayFoldersWindow::showEvent(QShowEvent* event) {
  AgentWindow::showEvent(event);
  if (event->spontaneous()) return;
  const QRect screen = this->screen()->availableGeometry();
  const QPoint middle(screen.left() + screen.width() / 2, screen.top() + screen.height() / 5);
  move(std::max(screen.left(), middle.x() - width() / 2),
       std::max(screen.top(), middle.y() - height() / 2));
}

LowSpaceWindow::LowSpaceWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::lowSpace, sources),
      mModel(sources),
      mText(makeLabel()),
      mUsed(new QProgressBar) {
  setWindowTitle(text("LowSpaceTitle"));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mText);
  layout->addWidget(mUsed);
  layout->addStretch();
  auto* row = new QHBoxLayout;
  row->addStretch();
  addButton(row, text("ButtonClose"), [this] { close(); })->setFocus();
  layout->addLayout(row);
  resizeByFont(this, 60, 8);
}

void LowSpaceWindow::refresh() {
  mText->setText(qt(mModel.text()));
  mUsed->setValue(100 - mModel.freePercent());
}

}  // namespace

std::unique_ptr<AgentWindow> makeMountVolumesWindow(const UserInterfaceSources& sources) {
  return std::make_unique<MountVolumesWindow>(sources);
}

std::unique_ptr<AgentWindow> makeAllDisksWindow(const UserInterfaceSources& sources) {
  return std::make_unique<AllDisksWindow>(sources);
}

std::unique_ptr<AgentWindow> makeStrayFoldersWindow(const UserInterfaceSources& sources) {
  return std::make_unique<StrayFoldersWindow>(sources);
}

std::unique_ptr<AgentWindow> makeLowSpaceWindow(const UserInterfaceSources& sources) {
  return std::make_unique<LowSpaceWindow>(sources);
}

}  // namespace corvana
