#pragma once

#include <QAbstractTableModel>
#include <cstdint>
#include <functional>
#include <vector>

#include "ui/windows/WindowTable.h"

namespace corvana {

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

}  // namespace corvana
