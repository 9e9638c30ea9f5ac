#include "desktop/AllDisksWindow.h"

#include <QClipboard>
#include <QFontDatabase>
#include <QGuiApplication>
#include <QPlainTextEdit>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "core/record/SchedulerCommands.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

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
  const ZAN_StringTable& texts = sources().texts;
  mAnswer->setText(qt(saved ? texts.text("ProcessesSaved", {*saved})
                            : texts.text("ProcessesNotSaved", {saved.error().text})));
}

void AllDisksWindow::setText(const std::string& text) { mText->setPlainText(qt(text)); }

}  // namespace corvana
