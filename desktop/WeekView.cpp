#include "desktop/WeekView.h"

#include <algorithm>
#include <cmath>

#include "desktop/WindowParts.h"
#include "ui/windows/WeekModel.h"

namespace corvana {

namespace {

constexpr int kGap = 6;
constexpr int kHoursApart = 3;
constexpr double kThinnest = 4;
constexpr int kLeastLaneHeight = 14;

QColor withAlpha(QColor colour, int alpha) {
  colour.setAlpha(alpha);
  return colour;
}

/// Of every second day. What colour schemes have for it may be as strong as what is drawn on it.
QColor bandColour(const QPalette& palette) {
  return withAlpha(palette.color(QPalette::Text), isDark() ? 10 : 8);
}

/// Dark schemes mark what is chosen by a colour that is as dark as the page.
QColor runColour(const QPalette& palette) {
  constexpr int kLight = 160;
  const QColor colour = palette.color(QPalette::Highlight);
  if (!isDark() || colour.lightness() >= kLight) return colour;
  return QColor::fromHsl(std::max(0, colour.hslHue()), colour.hslSaturation(), kLight);
}

}  // namespace

WeekView::WeekView(const WeekModel& model, const QString& name, QWidget* parent)
    : QAbstractScrollArea(parent), mModel(model) {
  setAccessibleName(name);
  setFocusPolicy(Qt::StrongFocus);
  viewport()->setBackgroundRole(QPalette::Base);
}

QSize WeekView::sizeHint() const {
  const QFontMetrics metrics(font());
  return {metrics.averageCharWidth() * 90, metrics.lineSpacing() * 20};
}

void WeekView::refresh() {
  layOut();
  const int scrolled = verticalScrollBar()->value();
  choose(mChosen ? placeOfChosenRun() : std::nullopt);
  verticalScrollBar()->setValue(scrolled);
}

/// A band of many runs goes on when the first of them is over.
std::optional<WeekView::Place> WeekView::placeOfChosenRun() const {
  const auto& days = mModel.week().days();
  for (std::size_t day = 0; day < days.size(); ++day) {
    for (std::size_t bar = 0; bar < days[day].bars.size(); ++bar) {
      const WeekTimeline::Bar& one = days[day].bars[bar];
      const WeekTimeline::Run& run = mModel.week().runs()[one.run];
      if (run.ref != mChosenRef || run.start < mChosenStart) continue;
      if (run.start == mChosenStart || one.count > 1) return Place{day, bar};
      return std::nullopt;
    }
  }
  return std::nullopt;
}

std::optional<WeekView::Place> WeekView::firstPlace() const {
  const auto& days = mModel.week().days();
  const auto day = std::ranges::find_if(days, [](const auto& one) { return !one.bars.empty(); });
  if (day == days.end()) return std::nullopt;
  return Place{static_cast<std::size_t>(day - days.begin()), 0};
}

void WeekView::layOut() {
  const QFontMetrics metrics(font());
  mLaneHeight = std::max(kLeastLaneHeight, metrics.height() + 2);
  mHeaderHeight = metrics.height() + kGap;
  mTitleWidth = 0;
  mTops.assign(1, 0);
  const auto& days = mModel.week().days();
  for (std::size_t day = 0; day < days.size(); ++day) {
    mTitleWidth = std::max(mTitleWidth, metrics.horizontalAdvance(qt(mModel.dayTitle(day))));
    const int changes = days[day].change ? metrics.height() : 0;
    mTops.push_back(mTops.back() + days[day].lanes * mLaneHeight + changes + 2 * kGap);
  }
  mTitleWidth += 2 * kGap;
  const int visible = viewport()->height() - mHeaderHeight;
  // Where there is room, the days share it.
  const auto count = static_cast<int>(days.size());
  const int room = count == 0 ? 0 : std::max(0, visible - mTops.back()) / count;
  mPadding = kGap + std::min(room, 2 * mLaneHeight) / 2;
  for (int day = 0; day <= count; ++day) mTops[day] += day * 2 * (mPadding - kGap);
  verticalScrollBar()->setPageStep(visible);
  verticalScrollBar()->setSingleStep(mLaneHeight);
  verticalScrollBar()->setRange(0, std::max(0, mTops.back() - visible));
}

void WeekView::resizeEvent(QResizeEvent* event) {
  QAbstractScrollArea::resizeEvent(event);
  if (!mTops.empty()) layOut();
}

bool WeekView::event(QEvent* event) {
  const bool done = QAbstractScrollArea::event(event);
  if (event->type() == QEvent::FontChange && !mTops.empty()) layOut();
  return done;
}

double WeekView::xOf(double part) const {
  const double x = mTitleWidth + part * (viewport()->width() - mTitleWidth - kGap);
  return isRightToLeft() ? viewport()->width() - x : x;
}

QRectF WeekView::rectOf(const Place& place) const {
  const WeekTimeline::Bar& bar = mModel.week().days()[place.day].bars[place.bar];
  const double from = xOf(bar.from);
  const double to = xOf(bar.to);
  const double width = std::max(kThinnest, std::abs(to - from));
  const double y = mTops[place.day] + mHeaderHeight + mPadding + bar.lane * mLaneHeight -
                   verticalScrollBar()->value();
  return {isRightToLeft() ? from - width : from, y + 1, width, mLaneHeight - 2.0};
}

void WeekView::paintEvent(QPaintEvent*) {
  if (mTops.empty()) return;
  QPainter painter(viewport());
  painter.setRenderHint(QPainter::Antialiasing);
  painter.save();
  painter.setClipRect(0, mHeaderHeight, viewport()->width(), viewport()->height());
  for (std::size_t day = 0; day < mModel.week().days().size(); ++day) drawDay(painter, day);
  painter.restore();

  painter.setPen(dimmedColour());
  const QFontMetrics metrics(font());
  const double room = std::abs(xOf(kHoursApart / 24.0) - xOf(0));
  const int apart = metrics.horizontalAdvance(qt(mModel.hourTitle(12))) + kGap < room
                        ? kHoursApart
                        : 2 * kHoursApart;
  for (int hour = 0; hour < 24; hour += apart) {
    const QString title = qt(mModel.hourTitle(hour));
    const double x = xOf(hour / 24.0);
    const double width = metrics.horizontalAdvance(title);
    painter.drawText(QPointF(isRightToLeft() ? x - width : x, metrics.ascent() + 2), title);
  }
}

void WeekView::drawDay(QPainter& painter, std::size_t day) const {
  const WeekTimeline::Day& one = mModel.week().days()[day];
  const int top = mTops[day] + mHeaderHeight - verticalScrollBar()->value();
  const int bottom = mTops[day + 1] + mHeaderHeight - verticalScrollBar()->value();
  if (bottom < mHeaderHeight || top > viewport()->height()) return;
  const QColor text = palette().color(QPalette::Text);
  const auto band = [&](double from, double to) {
    return QRectF(QPointF(xOf(from), top), QPointF(xOf(to), bottom)).normalized();
  };
  if (day % 2 == 1)
    painter.fillRect(QRect(0, top, viewport()->width(), bottom - top), bandColour(palette()));
  for (int hour = 0; hour <= 24; hour += kHoursApart) {
    painter.setPen(withAlpha(text, 28));
    painter.drawLine(QPointF(xOf(hour / 24.0), top), QPointF(xOf(hour / 24.0), bottom));
  }
  if (one.change) {
    painter.fillRect(band(one.change->from, one.change->to), withAlpha(cautionColour(), 40));
    painter.fillRect(band(one.change->from, one.change->to),
                     QBrush(withAlpha(cautionColour(), 160),
                            one.change->forward ? Qt::BDiagPattern : Qt::FDiagPattern));
    painter.setPen(cautionColour());
    const QRectF line(std::min(xOf(0), xOf(1)), bottom - painter.fontMetrics().height() - 1,
                      std::abs(xOf(1) - xOf(0)), painter.fontMetrics().height());
    painter.drawText(line, Qt::AlignLeading | Qt::AlignVCenter, qt(mModel.changeText(day)));
  }
  painter.setPen(text);
  const QRectF title(isRightToLeft() ? viewport()->width() - mTitleWidth + kGap : kGap, top,
                     mTitleWidth - 2 * kGap, mLaneHeight + 2 * mPadding);
  painter.drawText(title, Qt::AlignLeading | Qt::AlignVCenter, qt(mModel.dayTitle(day)));
  for (std::size_t bar = 0; bar < one.bars.size(); ++bar) drawBar(painter, {day, bar});
  if (day == 0) {
    const double x = xOf(mModel.week().nowInDay());
    painter.setPen(QPen(alertColour(), 1.5));
    painter.drawLine(QPointF(x, top), QPointF(x, bottom));
  }
}

void WeekView::drawBar(QPainter& painter, const Place& place) const {
  const WeekTimeline::Bar& bar = mModel.week().days()[place.day].bars[place.bar];
  const QRectF rect = rectOf(place);
  const bool chosen = mChosen == place;
  const bool overlaps = mModel.week().runs()[bar.run].overlaps();
  const QColor colour = overlaps && bar.count == 1 ? cautionColour() : runColour(palette());
  // What is held up is only an outline.
  const bool held = mModel.isHeld(bar);
  painter.setPen(chosen ? QPen(palette().color(QPalette::Text), 2)
                        : QPen(colour, 1, held ? Qt::DashLine : Qt::SolidLine));
  painter.setBrush(withAlpha(colour, held ? 25 : bar.count > 1 ? 60 : chosen ? 220 : 150));
  painter.drawRoundedRect(rect, 2.5, 2.5);
  const QString title = qt(mModel.barTitle(bar));
  const QFontMetrics metrics(font());
  painter.setPen(palette().color(QPalette::Text));
  // Beside the bar, as far as the next one in its lane leaves room, when there is more of it there.
  const auto& bars = mModel.week().days()[place.day].bars;
  double limit = xOf(1);
  for (std::size_t next = place.bar + 1; next < bars.size(); ++next) {
    if (bars[next].lane != bar.lane) continue;
    limit = xOf(bars[next].from);
    break;
  }
  const QRectF inside = rect.adjusted(3, 0, -3, 0);
  const double besideWidth = isRightToLeft() ? rect.left() - limit - 6 : limit - rect.right() - 6;
  QRectF where = inside;
  if (metrics.horizontalAdvance(title) > inside.width() && besideWidth > inside.width()) {
    where = QRectF(isRightToLeft() ? limit + 3 : rect.right() + 3, rect.top(), besideWidth,
                   rect.height());
  }
  if (where.width() < 3 * metrics.averageCharWidth()) return;
  painter.drawText(where, Qt::AlignLeading | Qt::AlignVCenter,
                   metrics.elidedText(title, Qt::ElideRight, static_cast<int>(where.width())));
}

std::optional<WeekView::Place> WeekView::placeAt(const QPointF& point) const {
  if (mTops.empty() || point.y() < mHeaderHeight) return std::nullopt;
  const auto& days = mModel.week().days();
  for (std::size_t day = 0; day < days.size(); ++day) {
    for (std::size_t bar = days[day].bars.size(); bar-- > 0;)
      if (rectOf({day, bar}).adjusted(-2, -1, 2, 1).contains(point)) return Place{day, bar};
  }
  return std::nullopt;
}

QString WeekView::wordsOf(const Place& place) const {
  return qt(mModel.barText(mModel.week().days()[place.day].bars[place.bar]));
}

bool WeekView::viewportEvent(QEvent* event) {
  if (event->type() != QEvent::ToolTip) return QAbstractScrollArea::viewportEvent(event);
  const auto* help = static_cast<QHelpEvent*>(event);
  const auto place = placeAt(help->pos());
  QToolTip::showText(help->globalPos(), place ? plainToolTip(wordsOf(*place)) : QString(),
                     viewport());
  return true;
}

void WeekView::mousePressEvent(QMouseEvent* event) { choose(placeAt(event->position())); }

void WeekView::choose(std::optional<Place> place) {
  mChosen = place;
  if (place) {
    const auto& run = mModel.week().runs()[mModel.week().days()[place->day].bars[place->bar].run];
    mChosenRef = run.ref;
    mChosenStart = run.start;
    const int top = mTops[place->day];
    const int bottom = mTops[place->day + 1];
    QScrollBar* bar = verticalScrollBar();
    if (top < bar->value()) bar->setValue(top);
    if (bottom > bar->value() + bar->pageStep()) bar->setValue(bottom - bar->pageStep());
  }
  const QString words = place ? wordsOf(*place) : QString();
  setAccessibleDescription(words);
  viewport()->update();
  if (onChosen) onChosen(words);
}

void WeekView::step(int by) {
  if (!mChosen) return choose(firstPlace());
  const auto& days = mModel.week().days();
  Place place = *mChosen;
  bool found = false;
  while (!found) {
    if (by > 0 ? place.bar + 1 < days[place.day].bars.size() : place.bar > 0) {
      place.bar = by > 0 ? place.bar + 1 : place.bar - 1;
      found = true;
    } else if (by > 0 ? place.day + 1 < days.size() : place.day > 0) {
      place.day = by > 0 ? place.day + 1 : place.day - 1;
      const std::size_t count = days[place.day].bars.size();
      place.bar = by > 0 || count == 0 ? 0 : count - 1;
      found = count > 0;
    } else {
      return;
    }
  }
  choose(place);
}

void WeekView::stepDay(int by) {
  if (!mChosen) return choose(firstPlace());
  const auto& days = mModel.week().days();
  auto day = static_cast<int>(mChosen->day);
  for (day += by; day >= 0 && day < static_cast<int>(days.size()); day += by) {
    if (days[static_cast<std::size_t>(day)].bars.empty()) continue;
    choose(Place{static_cast<std::size_t>(day), 0});
    return;
  }
}

void WeekView::keyPressEvent(QKeyEvent* event) {
  const int forward = isRightToLeft() ? -1 : 1;
  switch (event->key()) {
    case Qt::Key_Right:
      return step(forward);
    case Qt::Key_Left:
      return step(-forward);
    case Qt::Key_Down:
      return stepDay(1);
    case Qt::Key_Up:
      return stepDay(-1);
    default:
      QAbstractScrollArea::keyPressEvent(event);
  }
}

void WeekView::focusInEvent(QFocusEvent* event) {
  QAbstractScrollArea::focusInEvent(event);
  if (!mChosen && !mTops.empty() && event->reason() != Qt::MouseFocusReason) step(1);
}

}  // namespace corvana
