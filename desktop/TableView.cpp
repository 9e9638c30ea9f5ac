#include "desktop/TableView.h"

#include <QFocusEvent>
#include <QHeaderView>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>
#include <algorithm>
#include <unordered_set>

#include "desktop/TableDelegate.h"

namespace corvana {

namespace {

/// Rows that are measured to find the width of a column.
constexpr int kMeasuredRows = 50;

}  // namespace

TableView::TableView(WindowTable& table, const QString& name, QWidget* parent)
    : QTreeView(parent), mTable(table), mAdapter(new TableAdapter(table, this)) {
  setModel(mAdapter);
  setItemDelegate(new TableDelegate(this));
  setAccessibleName(name);
  setRootIsDecorated(false);
  setItemsExpandable(false);
  setUniformRowHeights(true);
  setAllColumnsShowFocus(true);
  setAlternatingRowColors(true);
  setSelectionMode(QAbstractItemView::ExtendedSelection);
  setTabKeyNavigation(false);
  const auto& columns = mAdapter->columns();
  const bool sorts = std::ranges::any_of(columns, &WindowTable::Column::sorts);
  header()->setSectionsClickable(sorts);
  header()->setStretchLastSection(false);
  header()->setResizeContentsPrecision(kMeasuredRows);
  for (std::size_t i = 0; i < columns.size(); ++i) {
    if (columns[i].isWide)
      header()->setSectionResizeMode(static_cast<int>(i), QHeaderView::Stretch);
  }
  connect(header(), &QHeaderView::sectionClicked, this, [this](int column) {
    if (!mAdapter->columns()[static_cast<std::size_t>(column)].sorts) return;
    const bool again =
        header()->isSortIndicatorShown() && header()->sortIndicatorSection() == column;
    const bool descends = again && header()->sortIndicatorOrder() == Qt::DescendingOrder;
    header()->setSortIndicatorShown(true);
    mAdapter->sort(column, descends ? Qt::DescendingOrder : Qt::AscendingOrder);
  });
  connect(selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
    if (mIsRefreshing) return;
    mSelectedIds.clear();
    for (const std::size_t row : selectedRows()) mSelectedIds.push_back(mTable.id(row));
    if (onChosen) onChosen();
    if (onSelection) onSelection();
  });
  fitColumns();
}

void TableView::setOnMove(std::function<void(std::size_t, std::size_t)> onMove) {
  mAdapter->onMove = std::move(onMove);
  setSelectionMode(QAbstractItemView::SingleSelection);
  setDragDropMode(QAbstractItemView::InternalMove);
  setDragDropOverwriteMode(false);
  setDropIndicatorShown(true);
}

void TableView::fitColumns() {
  const auto& columns = mAdapter->columns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const int column = static_cast<int>(i);
    if (columns[i].isWide) continue;
    resizeColumnToContents(column);
    setColumnWidth(column, columnWidth(column) + fontMetrics().averageCharWidth());
  }
}

void TableView::refresh() {
  mIsRefreshing = true;
  const int scrolled = verticalScrollBar()->value();
  const bool wasEmpty = mAdapter->rowCount() == 0;
  const int current = std::max(0, currentIndex().row());
  if (mAdapter->refresh()) {
    const std::unordered_set<std::int64_t> ids(mSelectedIds.begin(), mSelectedIds.end());
    QItemSelection selection;
    for (std::size_t row = 0; !ids.empty() && row < mTable.rowCount(); ++row) {
      if (!ids.contains(mTable.id(row))) continue;
      const QModelIndex index = mAdapter->index(static_cast<int>(row), 0);
      if (selection.empty()) setCurrentIndex(index);
      selection.select(index, index);
    }
    // What was worked on is gone: the next one takes its place.
    if (selection.empty() && !mSelectedIds.empty() && mTable.rowCount() > 0) {
      const int row = std::min(current, mAdapter->rowCount() - 1);
      setCurrentIndex(mAdapter->index(row, 0));
      selection.select(mAdapter->index(row, 0), mAdapter->index(row, 0));
      mSelectedIds = {mTable.id(static_cast<std::size_t>(row))};
    }
    selectionModel()->select(selection,
                             QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    verticalScrollBar()->setValue(scrolled);
  }
  mIsRefreshing = false;
  if (wasEmpty) fitColumns();
  if (onSelection) onSelection();
}

std::vector<std::size_t> TableView::selectedRows() const {
  std::vector<std::size_t> rows;
  for (const QModelIndex& index : selectionModel()->selectedRows())
    rows.push_back(static_cast<std::size_t>(index.row()));
  std::ranges::sort(rows);
  return rows;
}

std::optional<std::size_t> TableView::selectedRow() const {
  const auto rows = selectedRows();
  return rows.empty() || rows.front() >= mTable.rowCount() ? std::nullopt
                                                           : std::optional(rows.front());
}

void TableView::selectRow(std::size_t row) {
  setCurrentIndex(mAdapter->index(static_cast<int>(row), 0));
}

/// The keys are to have something to act on.
void TableView::focusInEvent(QFocusEvent* event) {
  QTreeView::focusInEvent(event);
  if (event->reason() != Qt::MouseFocusReason && mTable.rowCount() > 0 && !selectedRow())
    selectRow(0);
}

void TableView::activate() {
  const auto rows = selectedRows();
  if (onActivated && !rows.empty()) onActivated(rows);
}

/// Not by the desktop's word for activation, which may be a single click: that only selects here.
void TableView::mouseDoubleClickEvent(QMouseEvent* event) {
  QTreeView::mouseDoubleClickEvent(event);
  if (event->button() == Qt::LeftButton && indexAt(event->position().toPoint()).isValid())
    activate();
}

void TableView::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Return || event->key() == Qt::Key_Enter) {
    activate();
    return;
  }
  const bool deletes = event->key() == Qt::Key_Delete || event->key() == Qt::Key_Backspace;
  if (!deletes || !onDelete) {
    QTreeView::keyPressEvent(event);
    return;
  }
  const auto rows = selectedRows();
  if (!rows.empty()) onDelete(rows);
}

}  // namespace corvana
