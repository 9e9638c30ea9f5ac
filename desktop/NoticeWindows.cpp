#include "desktop/NoticeWindows.h"

#include <QPlainTextEdit>
#include <QProgressBar>
#include <QScreen>
#include <algorithm>

#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

StrayFoldersWindow::StrayFoldersWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::volumesFolderError, sources),
      mModel(sources),
      mNames(new QPlainTextEdit),
      mDate(makeLabel()) {
  setWindowTitle(text("StrayFoldersTitle"));
  setWindowFlag(Qt::WindowStaysOnTopHint);
  mNames->setReadOnly(true);
  mNames->setTabChangesFocus(true);
  mNames->setAccessibleName(text("StrayFoldersTitle"));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(makeLabel(qt(mModel.text())));
  layout->addWidget(mNames, 1);
  layout->addWidget(mDate);
  auto* row = new QHBoxLayout;
  row->addStretch();
  mClean = addButton(row, text("ButtonClean"), [this] { mModel.repairAndContinue(); });
  addButton(row, text("ButtonContinueAnyway"), [this] { mModel.continueAnyway(); });
  layout->addLayout(row);
  resizeByFont(this, 75, 16);
}

void StrayFoldersWindow::refresh() {
  const QString names = qt(mModel.names());
  if (names != mNames->toPlainText()) mNames->setPlainText(names);
  const std::string progress = mModel.progressText();
  mDate->setText(qt(progress.empty() ? mModel.dateText() : progress));
  mClean->setEnabled(progress.empty());
  mDate->setVisible(!mDate->text().isEmpty());
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

}  // namespace corvana
