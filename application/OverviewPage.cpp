#include "application/OverviewPage.h"

#include <QLabel>
#include <QScrollArea>
#include <QVBoxLayout>

#include "application/Look.h"
#include "desktop/Texts.h"

namespace corvana {

OverviewPage::OverviewPage(Household& household, Navigator& navigator)
    : Page(household, navigator), mColumn(new QVBoxLayout(this)) {
  mColumn->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  mColumn->setSpacing(Look::space(3));
}

void OverviewPage::tell(const QString& sentence) { mTold = sentence; }

void OverviewPage::refresh(ChangeSet changed) {
  if (changed.hasAnyOf({Change::tree, Change::history, Change::execution})) build();
}

void OverviewPage::build() {
  while (QLayoutItem* item = mColumn->takeAt(0)) {
    delete item->widget();
    delete item;
  }
  ProgrammedAction::Nodes actions;
  household().actions().getListOfAllProgrammedActions(actions);
  mColumn->addWidget(new TextLabel(household().text("MainOverview"), Look::Size::title));
  if (!mTold.isEmpty()) mColumn->addWidget(new TextLabel(mTold));
  for (const ProgrammedAction* action : actions) {
    auto* card = new Card;
    card->column()->addWidget(new TextLabel(qt(action->getTitle()), Look::Size::strong));
    mColumn->addWidget(card);
  }
  mColumn->addStretch(1);
}

}  // namespace corvana
