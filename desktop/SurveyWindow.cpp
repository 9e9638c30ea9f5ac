#include "desktop/SurveyWindow.h"

#include <QComboBox>
#include <QFormLayout>
#include <QPlainTextEdit>
#include <QScrollBar>

#include "desktop/TableView.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

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

}  // namespace corvana
