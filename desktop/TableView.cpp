#include "desktop/TableView.h"

#include <algorithm>
#include <unordered_set>
#include <utility>

#include "desktop/WindowParts.h"
#include "ui/windows/WindowTable.h"

namespace corvana {

namespace {

/// What a dragged row carries: its id in decimal, since its number may change on the way.
constexpr const char* kRow = "application/x-corvana9-row";

constexpr int kBeside = 6;
constexpr int kAboveAndBelow = 3;

/// Rows that are measured to find the width of a column.
constexpr int kMeasuredRows = 50;

/// Draws the cells of a list with room around their texts. Thread: main.
class TableDelegate final : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

}  // namespace

/// Shows a table of a window's model to Qt, row by row as it is looked at. Thread: main.
class TableAdapter final : public QAbstractTableModel {
 public:
  explicit TableAdapter(WindowTable& table, QObject* parent = nullptr);

  /// Rows were dragged: the first one of them, and before which row it was dropped. Without it
  /// nothing can be dragged.
  std::function<void(std::size_t row, std::size_t before)> onMove;

  /// The table has changed. Whether rows came, went or moved, so that a selection is lost.
  bool refresh();

  int rowCount(const QModelIndex& parent = {}) const override;
  int columnCount(const QModelIndex& parent = {}) const override;
  QVariant data(const QModelIndex& index, int role) const override;
  QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
  void sort(int column, Qt::SortOrder order) override;
  Qt::ItemFlags flags(const QModelIndex& index) const override;
  Qt::DropActions supportedDropActions() const override { return Qt::MoveAction; }
  QStringList mimeTypes() const override;
  QMimeData* mimeData(const QModelIndexList& indexes) const override;
  bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                    const QModelIndex& parent) override;
  const std::vector<WindowTable::Column>& columns() const { return mColumns; }

 private:
  std::vector<std::int64_t> ids() const;
  /// Where a row is in the table by now; its end when it is gone.
  std::size_t rowOf(std::int64_t id) const;
  QVariant icon(std::size_t row) const;

  WindowTable& mTable;
  std::vector<WindowTable::Column> mColumns;
  std::vector<std::int64_t> mIds;
};

TableAdapter::TableAdapter(WindowTable& table, QObject* parent)
    : QAbstractTableModel(parent), mTable(table), mColumns(table.columns()), mIds(ids()) {}

std::vector<std::int64_t> TableAdapter::ids() const {
  std::vector<std::int64_t> ids(mTable.rowCount());
  for (std::size_t row = 0; row < ids.size(); ++row) ids[row] = mTable.id(row);
  return ids;
}

bool TableAdapter::refresh() {
  std::vector<std::int64_t> now = ids();
  if (now == mIds) {
    if (!mIds.empty())
      emit dataChanged(index(0, 0), index(rowCount() - 1, columnCount() - 1), {Qt::DisplayRole});
    return false;
  }
  beginResetModel();
  mIds = std::move(now);
  endResetModel();
  return true;
}

int TableAdapter::rowCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(mIds.size());
}

int TableAdapter::columnCount(const QModelIndex& parent) const {
  return parent.isValid() ? 0 : static_cast<int>(mColumns.size());
}

QVariant TableAdapter::data(const QModelIndex& index, int role) const {
  const auto row = static_cast<std::size_t>(index.row());
  const auto column = static_cast<std::size_t>(index.column());
  // Between a change and the refresh that tells of it there may be fewer rows.
  if (!index.isValid() || row >= mTable.rowCount()) return {};
  switch (role) {
    case Qt::DisplayRole:
      return qt(mTable.text(row, column));
    case Qt::ToolTipRole:
      return plainToolTip(qt(mTable.text(row, column)));
    case Qt::DecorationRole:
      return column == 0 ? icon(row) : QVariant();
    case Qt::TextAlignmentRole:
      return static_cast<int>((mColumns[column].isNumber ? Qt::AlignTrailing : Qt::AlignLeading) |
                              Qt::AlignVCenter);
    case Qt::ForegroundRole:
      if (mTable.tone(row) == WindowTable::Tone::alert) return alertColour();
      if (mTable.tone(row) == WindowTable::Tone::caution) return cautionColour();
      if (mTable.tone(row) == WindowTable::Tone::dimmed) return dimmedColour();
      return {};
    case Qt::FontRole:
      if (mTable.tone(row) == WindowTable::Tone::strong) {
        QFont font;
        font.setBold(true);
        return font;
      }
      return {};
    default:
      return {};
  }
}

QVariant TableAdapter::icon(std::size_t row) const {
  const std::string name = mTable.icon(row);
  return name.empty() ? QVariant() : QIcon::fromTheme(qt(name));
}

QVariant TableAdapter::headerData(int section, Qt::Orientation orientation, int role) const {
  if (orientation != Qt::Horizontal) return {};
  const WindowTable::Column& column = mColumns[static_cast<std::size_t>(section)];
  if (role == Qt::DisplayRole) return qt(column.title);
  if (role == Qt::TextAlignmentRole)
    return static_cast<int>((column.isNumber ? Qt::AlignTrailing : Qt::AlignLeading) |
                            Qt::AlignVCenter);
  return {};
}

void TableAdapter::sort(int column, Qt::SortOrder order) {
  if (column < 0 || !mColumns[static_cast<std::size_t>(column)].sorts) return;
  mTable.sortBy(static_cast<std::size_t>(column), order == Qt::DescendingOrder);
  refresh();
}

Qt::ItemFlags TableAdapter::flags(const QModelIndex& index) const {
  const Qt::ItemFlags flags = QAbstractTableModel::flags(index);
  if (!onMove) return flags;
  return index.isValid() ? flags | Qt::ItemIsDragEnabled : flags | Qt::ItemIsDropEnabled;
}

std::size_t TableAdapter::rowOf(std::int64_t id) const {
  std::size_t row = 0;
  while (row < mTable.rowCount() && mTable.id(row) != id) ++row;
  return row;
}

QStringList TableAdapter::mimeTypes() const { return {QString::fromLatin1(kRow)}; }

QMimeData* TableAdapter::mimeData(const QModelIndexList& indexes) const {
  if (indexes.isEmpty()) return nullptr;
  auto* data = new QMimeData;
  data->setData(kRow, QByteArray::number(static_cast<qlonglong>(
                          mIds[static_cast<std::size_t>(indexes.first().row())])));
  return data;
}

bool TableAdapter::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int,
                                const QModelIndex& parent) {
  if (!onMove || action != Qt::MoveAction || !data->hasFormat(kRow)) return false;
  const std::size_t from = rowOf(data->data(kRow).toLongLong());
  if (from == mTable.rowCount()) return false;
  if (row < 0) row = parent.isValid() ? parent.row() : rowCount();
  const auto before = static_cast<std::size_t>(row);
  onMove(from, before < mIds.size() ? rowOf(mIds[before]) : mTable.rowCount());
  // Saying no keeps the view from removing the row that has moved already.
  return false;
}

void TableDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option,
                          const QModelIndex& index) const {
  QStyleOptionViewItem cell = option;
  initStyleOption(&cell, index);
  const QWidget* widget = option.widget;
  const QStyle* style = widget != nullptr ? widget->style() : QApplication::style();
  const QString text = std::exchange(cell.text, {});
  style->drawControl(QStyle::CE_ItemViewItem, &cell, painter, widget);
  const QRect room = cell.rect.adjusted(kBeside, 0, -kBeside, 0);
  const auto group = !(cell.state & QStyle::State_Enabled)  ? QPalette::Disabled
                     : !(cell.state & QStyle::State_Active) ? QPalette::Inactive
                                                            : QPalette::Active;
  const bool selected = cell.state & QStyle::State_Selected;
  painter->save();
  painter->setFont(cell.font);
  painter->setPen(cell.palette.color(group, selected ? QPalette::HighlightedText : QPalette::Text));
  painter->drawText(
      room, int(QStyle::visualAlignment(cell.direction, cell.displayAlignment) | Qt::AlignAbsolute),
      cell.fontMetrics.elidedText(text, cell.textElideMode, room.width()));
  painter->restore();
}

QSize TableDelegate::sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const {
  return QStyledItemDelegate::sizeHint(option, index) + QSize(2 * kBeside, 2 * kAboveAndBelow);
}

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
  connect(header(), &QHeaderView::sectionResized, this, [this](int column) {
    const bool byUser = !mIsFitting && QGuiApplication::mouseButtons() != Qt::NoButton;
    if (byUser && !mAdapter->columns()[static_cast<std::size_t>(column)].isWide)
      mUserHasSized = true;
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
  const bool wasFitting = std::exchange(mIsFitting, true);
  const auto& columns = mAdapter->columns();
  for (std::size_t i = 0; i < columns.size(); ++i) {
    const int column = static_cast<int>(i);
    if (columns[i].isWide) continue;
    resizeColumnToContents(column);
    setColumnWidth(column, columnWidth(column) + fontMetrics().averageCharWidth());
  }
  mIsFitting = wasFitting;
}

void TableView::refresh() {
  mIsRefreshing = true;
  const int scrolled = verticalScrollBar()->value();
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
  if (!mUserHasSized) fitColumns();
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
