#include "desktop/TableDelegate.h"

#include <QApplication>
#include <QPainter>
#include <utility>

namespace corvana {

namespace {

constexpr int kBeside = 6;
constexpr int kAboveAndBelow = 3;

}  // namespace

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

}  // namespace corvana
