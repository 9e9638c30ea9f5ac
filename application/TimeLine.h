#pragma once

#include <QWidget>
#include <functional>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// The versions of a backup from the oldest to the newest: a bar stands where there are any, the
/// higher the more. One is chosen by a click or the arrow keys. Thread: main.
class TimeLine final : public QWidget {
 public:
  struct Words {
    std::function<QString(ReferenceTime date)> day;   ///< below the line
    std::function<QString(ReferenceTime date)> full;  ///< of the chosen one
    QString last;                                     ///< where the line ends
  };

  explicit TimeLine(Words words);

  /// Oldest first. The newest one is chosen.
  void setDates(std::vector<ReferenceTime> dates);
  const std::vector<ReferenceTime>& dates() const { return mDates; }
  /// Of `dates`; below 0 without any.
  int chosen() const { return mChosen; }
  void choose(int index);
  std::function<void()> onChosen;

  QSize sizeHint() const override;
  QSize minimumSizeHint() const override;

 protected:
  void paintEvent(QPaintEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  bool event(QEvent* event) override;

 private:
  int bins() const;
  int binOf(ReferenceTime date) const;
  int nearest(const QPointF& point) const;
  double barStep() const;
  QRectF line() const;

  Words mWords;
  std::vector<ReferenceTime> mDates;
  int mChosen = -1;
};

}  // namespace corvana
