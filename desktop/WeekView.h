#pragma once

#include <QAbstractScrollArea>
#include <functional>
#include <optional>
#include <vector>

class QPainter;

namespace corvana {

class WeekModel;

/// Draws the coming week. A bar is chosen by a click or the arrow keys. Thread: main.
class WeekView final : public QAbstractScrollArea {
 public:
  WeekView(const WeekModel& model, const QString& name, QWidget* parent);

  /// Another bar was chosen, or none: its words are empty then.
  std::function<void(const QString& words)> onChosen;

  /// The week was computed anew; the chosen run stays chosen as long as it is there.
  void refresh();
  QSize sizeHint() const override;

 protected:
  bool event(QEvent* event) override;
  bool viewportEvent(QEvent* event) override;
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void focusInEvent(QFocusEvent* event) override;

 private:
  struct Place {
    std::size_t day = 0;
    std::size_t bar = 0;
    bool operator==(const Place&) const = default;
  };
  void layOut();
  void drawDay(QPainter& painter, std::size_t day) const;
  void drawBar(QPainter& painter, const Place& place) const;
  void choose(std::optional<Place> place);
  std::optional<Place> placeOfChosenRun() const;
  /// Where the arrow keys begin: at the first run that comes.
  std::optional<Place> firstPlace() const;
  void step(int by);
  void stepDay(int by);
  double xOf(double part) const;
  QRectF rectOf(const Place& place) const;
  std::optional<Place> placeAt(const QPointF& point) const;
  QString wordsOf(const Place& place) const;

  const WeekModel& mModel;
  std::vector<int> mTops;  ///< of each day, and the bottom of the last; before scrolling
  int mTitleWidth = 0;
  int mLaneHeight = 0;
  int mPadding = 0;  ///< above and below the lanes of a day
  int mHeaderHeight = 0;
  std::optional<Place> mChosen;
  std::int64_t mChosenRef = 0;  ///< of its run, and when that begins
  double mChosenStart = 0;
};

}  // namespace corvana
