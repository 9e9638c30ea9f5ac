#include "application/HistoryPage.h"

#include <QTreeWidget>
#include <QVBoxLayout>

#include "application/Look.h"
#include "desktop/Texts.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

HistoryPage::HistoryPage(Household& household, Navigator& navigator)
    : Page(household, navigator), mRuns(new QTreeWidget) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  column->setSpacing(Look::space(3));
  column->addWidget(new TextLabel(household.text("MainHistory"), Look::Size::title));
  column->addWidget(mRuns, 1);
  mRuns->setAccessibleName(household.text("MainHistory"));
  mRuns->setRootIsDecorated(false);
  mRuns->setUniformRowHeights(true);
  mRuns->setHeaderLabels({household.text("ColumnStarted"), household.text("ColumnAction"),
                          household.text("ColumnResult")});
}

void HistoryPage::choose(std::int64_t reference, bool onlyFailures) {
  mReference = reference;
  mOnlyFailures = onlyFailures;
}

void HistoryPage::showNotices(std::int64_t /*index*/) { choose(0, false); }

void HistoryPage::refresh(ChangeSet changed) {
  if (!changed.has(Change::history)) return;
  History& history = household().history();
  history.reloadProgrammedHistoryList();
  QList<QTreeWidgetItem*> rows;
  for (auto index = static_cast<std::int64_t>(history.historyCount()); index-- > 0;) {
    const ZAN_Value entry = history.historyEntryAtIndex(index);
    if (mReference != 0 && entry.integer("Ref") != mReference) continue;
    if (mOnlyFailures && entry.integer("ActionErrors") == 0) continue;
    const auto date = entry["Date"].asDate();
    rows.append(new QTreeWidgetItem(
        {qt(date ? household().strings().getShortTimeDate(*date) : std::string()),
         qt(entry.string("Title")), qt(resultInWords(entry.integer("C"), household().texts()))}));
  }
  mRuns->clear();
  mRuns->addTopLevelItems(rows);
  for (int column = 0; column < mRuns->columnCount(); ++column)
    mRuns->resizeColumnToContents(column);
}

}  // namespace corvana
