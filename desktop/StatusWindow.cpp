#include "desktop/StatusWindow.h"

#include <QLabel>
#include <QVBoxLayout>

#include "desktop/Texts.h"
#include "ui/StatusItem.h"

namespace corvana {

StatusWindow::StatusWindow(const UserInterfaceSources& sources)
    : AgentWindow(Window::status, sources), mTitle(new QLabel(this)) {
  setWindowTitle(text("IconToolTip"));
  auto* layout = new QVBoxLayout(this);
  layout->addWidget(mTitle);
}

void StatusWindow::refresh() { mTitle->setText(qt(sources().statusItem.shownTitle())); }

}  // namespace corvana
