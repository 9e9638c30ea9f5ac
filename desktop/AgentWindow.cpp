#include "desktop/AgentWindow.h"

#include <QCloseEvent>
#include <QKeyEvent>
#include <QKeySequence>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "core/record/SchedulerCommands.h"
#include "desktop/Texts.h"

namespace corvana {

AgentWindow::AgentWindow(Window which, const UserInterfaceSources& sources)
    : QWidget(nullptr, Qt::Window), mWhich(which), mSources(sources) {
  setAttribute(Qt::WA_QuitOnClose, false);
}

QString AgentWindow::text(std::string_view key) const { return qt(mSources.texts.text(key)); }

void AgentWindow::closeEvent(QCloseEvent* event) {
  event->ignore();
  mSources.commands.hideWindow(mWhich);
}

void AgentWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape || event->matches(QKeySequence::Close)) {
    close();
  } else {
    QWidget::keyPressEvent(event);
  }
}

}  // namespace corvana
