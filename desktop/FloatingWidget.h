#pragma once

#include <QIcon>
#include <QStringList>
#include <QWidget>
#include <functional>
#include <optional>

class QContextMenuEvent;
class QMouseEvent;
class QPainter;

namespace corvana {

/// A borderless window above all others that never takes the keyboard. Where nothing on the screen
/// composes, it is cut to its shape instead of being transparent. Thread: main.
class FloatingWidget : public QWidget {
 public:
  FloatingWidget(bool composed, bool takesMouse);

  /// The user has dragged it to another place.
  std::function<void()> onMoved;
  std::function<void()> onDoubleClick;

  /// 0 to 1; without effect where nothing composes.
  void setOpacity(double opacity);

 protected:
  void setMovable() { mMovable = true; }
  /// A rounded ground in the colour, lighter at its top.
  void paintGround(QPainter& painter, const QColor& colour, double radius) const;
  void cutToShape(double radius);

  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;
  void mouseDoubleClickEvent(QMouseEvent* event) override;

 private:
  bool mComposed;
  bool mMovable = false;
  bool mMoved = false;
  std::optional<QPoint> mGrip;  ///< of the pointer in the window, while it is dragged
};

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
