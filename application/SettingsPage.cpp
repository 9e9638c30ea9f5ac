#include "application/SettingsPage.h"

#include <QVBoxLayout>

#include "application/Look.h"

namespace corvana {

SettingsPage::SettingsPage(Household& household, Navigator& navigator)
    : Page(household, navigator) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  column->setSpacing(Look::space(3));
  column->addWidget(new TextLabel(household.text("MainSettings"), Look::Size::title));
  column->addWidget(makeButton(household.text("SettingsOfAgent"),
                               [this] { this->household().tellAgent("OpenPreferences"); }),
                    0, Qt::AlignLeft);
  column->addStretch(1);
}

void SettingsPage::refresh(ChangeSet /*changed*/) {}

}  // namespace corvana
