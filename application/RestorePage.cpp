#include "application/RestorePage.h"

#include <QDesktopServices>
#include <QUrl>
#include <QVBoxLayout>

#include "application/Look.h"
#include "desktop/Texts.h"

namespace corvana {

RestorePage::RestorePage(Household& household, Navigator& navigator)
    : Page(household, navigator), mColumn(new QVBoxLayout(this)) {
  mColumn->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  mColumn->setSpacing(Look::space(3));
}

void RestorePage::choose(std::int64_t reference) { mReference = reference; }

void RestorePage::refresh(ChangeSet changed) {
  if (!changed.has(Change::tree)) return;
  while (QLayoutItem* item = mColumn->takeAt(0)) {
    delete item->widget();
    delete item;
  }
  mColumn->addWidget(new TextLabel(household().text("MainRestore"), Look::Size::title));
  ProgrammedAction::Nodes actions;
  household().actions().getListOfAllProgrammedActions(actions);
  for (const ProgrammedAction* action : actions) {
    if (mReference != 0 && action->getReference() != mReference) continue;
    const QString folder = qt(ActionsTools::getDestinationForAction(action->getSettings()).path());
    auto* card = new Card;
    card->column()->addWidget(new TextLabel(qt(action->getTitle()), Look::Size::strong));
    card->column()->addWidget(new TextLabel(folder, Look::Size::small, Look::Meaning::muted));
    card->column()->addWidget(
        makeButton(household().text("RestoreShowFolder"),
                   [folder] { QDesktopServices::openUrl(QUrl::fromLocalFile(folder)); }),
        0, Qt::AlignLeft);
    mColumn->addWidget(card);
  }
  mColumn->addStretch(1);
}

}  // namespace corvana
