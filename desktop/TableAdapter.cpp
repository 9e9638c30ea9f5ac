#include "desktop/TableAdapter.h"

#include <QFont>
#include <QIcon>
#include <QMimeData>

#include "desktop/Colours.h"
#include "desktop/Texts.h"
#include "desktop/WindowParts.h"

namespace corvana {

namespace {

/// What a dragged row carries: its id in decimal, since its number may change on the way.
constexpr const char* kRow = "application/x-corvana9-row";

}  // namespace

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

}  // namespace corvana
