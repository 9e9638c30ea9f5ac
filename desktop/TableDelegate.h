#pragma once

#include <QStyledItemDelegate>

namespace corvana {

/// Draws the cells of a list with room around their texts. Thread: main.
class TableDelegate final : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  void paint(QPainter* painter, const QStyleOptionViewItem& option,
             const QModelIndex& index) const override;
  QSize sizeHint(const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

}  // namespace corvana
