#pragma once

#include <QIcon>
#include <QStringList>

#include "desktop/FloatingWidget.h"

class QContextMenuEvent;

namespace corvana {

/// The small icon that floats above other windows, with a few lines beside it and a ring that shows
/// how far the running action is. Thread: main.
class FloatingIconView final : public FloatingWidget {
 public:
  FloatingIconView(bool composed, const QIcon& icon);

  std::function<void(const QPoint&)> onMenu;

  void setLines(const QStringList& lines);
  /// Percent of the running action, negative for none, and whether it has met errors.
  void setProgress(int percent, bool errors);

 protected:
  void paintEvent(QPaintEvent* event) override;
  void contextMenuEvent(QContextMenuEvent* event) override;

 private:
  QIcon mIcon;
  QStringList mLines;
  int mPercent = -1;
  bool mErrors = false;
};

}  // namespace corvana
