#pragma once

#include <QTreeView>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

namespace corvana {

class TableAdapter;
class WindowTable;

/// A list of a window: only what is seen is asked for and drawn; Return or a double click acts on
/// the selected rows, Delete removes them. Thread: main.
class TableView final : public QTreeView {
 public:
  TableView(WindowTable& table, const QString& name, QWidget* parent);

  std::function<void(const std::vector<std::size_t>&)> onActivated;
  std::function<void(const std::vector<std::size_t>&)> onDelete;
  /// What is selected, or what is said of it, may be another.
  std::function<void()> onSelection;
  /// The user has selected something else; comes before `onSelection`.
  std::function<void()> onChosen;
  void setOnMove(std::function<void(std::size_t row, std::size_t before)> onMove);

  /// The table may have changed; what was selected stays selected as far as it is still there.
  void refresh();
  std::vector<std::size_t> selectedRows() const;
  /// The first one.
  std::optional<std::size_t> selectedRow() const;
  void selectRow(std::size_t row);

 protected:
  void keyPressEvent(QKeyEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;

 private:
  void activate();
  void fitColumns();

  WindowTable& mTable;
  TableAdapter* mAdapter;
  std::vector<std::int64_t> mSelectedIds;
  bool mIsRefreshing = false;
  bool mIsFitting = false;
  bool mUserHasSized = false;  ///< the columns, which stay as they are then
};

}  // namespace corvana
