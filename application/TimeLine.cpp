#include "application/TimeLine.h"

#include <QHelpEvent>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>
#include <QToolTip>
#include <algorithm>
#include <cmath>
#include <utility>

#include "application/Look.h"

namespace corvana {

namespace {

constexpr int kMostTicks = 5;

}  // namespace

TimeLine::TimeLine(Words words) : mWords(std::move(words)) {
  setFocusPolicy(Qt::StrongFocus);
  readAs(this, QAccessible::Slider);
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  setCursor(Qt::PointingHandCursor);
}

void TimeLine::setDates(std::vector<ReferenceTime> dates) {
  mDates = std::move(dates);
  mChosen = static_cast<int>(mDates.size()) - 1;
  setAccessibleDescription(mChosen < 0 ? QString() : mWords.full(mDates.back()));
  update();
}

void TimeLine::choose(int index) {
  if (mDates.empty()) return;
  index = std::clamp(index, 0, static_cast<int>(mDates.size()) - 1);
  if (index == mChosen) return;
  mChosen = index;
  setAccessibleDescription(mWords.full(mDates[static_cast<std::size_t>(index)]));
  update();
  if (onChosen) onChosen();
}

QSize TimeLine::sizeHint() const { return {Look::space(90), Look::space(17)}; }
QSize TimeLine::minimumSizeHint() const { return {Look::space(40), Look::space(17)}; }

QRectF TimeLine::line() const { return QRectF(rect()).adjusted(2, 2, -2, -Look::space(5)); }

double TimeLine::barStep() const { return Look::space(3) * 0.85; }

int TimeLine::bins() const { return std::max(2, static_cast<int>(line().width() / barStep())); }

int TimeLine::binOf(ReferenceTime date) const {
  const double span = mDates.back() - mDates.front();
  if (span <= 0) return bins() - 1;
  return std::min(bins() - 1, static_cast<int>((date - mDates.front()) / span * bins()));
}

void TimeLine::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  const QRectF room = line();
  if (mDates.empty()) return;
  std::vector<int> counts(static_cast<std::size_t>(bins()));
  for (const ReferenceTime date : mDates) ++counts[static_cast<std::size_t>(binOf(date))];
  const int most = std::max(1, *std::ranges::max_element(counts));
  const double step = room.width() / bins();
  const double width = std::max(2.0, step * 0.72);
  const int chosen = mChosen < 0 ? -1 : binOf(mDates[static_cast<std::size_t>(mChosen)]);
  const QColor bar = isEnabled() ? Look::colour(Look::Meaning::muted) : Look::lineColour();
  for (int bin = 0; bin < bins(); ++bin) {
    const int count = counts[static_cast<std::size_t>(bin)];
    const double least = Look::space(4);
    const double part = most == 1 ? 0.6 : std::log1p(count) / std::log1p(most);
    const double height = count == 0 ? 2 : least + (room.height() - least) * part;
    const QRectF shape(room.left() + bin * step + (step - width) / 2, room.bottom() - height, width,
                       height);
    QColor colour = count == 0 ? Look::lineColour() : bar;
    if (count > 0 && bin != chosen) colour.setAlphaF(0.45F);
    if (bin == chosen) colour = Look::colour(Look::Meaning::accent);
    painter.setPen(Qt::NoPen);
    painter.setBrush(colour);
    painter.drawRoundedRect(shape, 2, 2);
  }
  painter.setFont(Look::font(Look::Size::small));
  painter.setPen(Look::colour(Look::Meaning::muted));
  const QFontMetrics metrics(painter.font());
  const double below = room.bottom() + Look::space(1);
  QString last;
  const auto write = [&](const QString& text, double centre, double& from) {
    if (text == last) return;
    const double wide = metrics.horizontalAdvance(text);
    const double left = std::clamp(centre - wide / 2, room.left(), room.right() - wide);
    if (left < from) return;
    painter.drawText(QRectF(left, below, wide + 1, metrics.height()), Qt::AlignLeft, text);
    from = left + wide + Look::space(6);
    last = text;
  };
  double from = room.left();
  write(mWords.day(mDates.front()), room.left(), from);
  const double end = room.right() - metrics.horizontalAdvance(mWords.last) - Look::space(6);
  const double span = mDates.back() - mDates.front();
  for (int tick = 1; tick < kMostTicks && span > 0; ++tick) {
    const double part = static_cast<double>(tick) / kMostTicks;
    const QString text = mWords.day(mDates.front() + part * span);
    if (room.left() + part * room.width() + metrics.horizontalAdvance(text) / 2.0 < end)
      write(text, room.left() + part * room.width(), from);
  }
  if (mDates.size() > 1) write(mWords.last, room.right(), from);
  if (hasFocus()) {
    painter.setPen(QPen(Look::colour(Look::Meaning::accent), 2));
    painter.setBrush(Qt::NoBrush);
    painter.drawRoundedRect(QRectF(rect()).adjusted(1, 1, -1, -1), 4, 4);
  }
}

int TimeLine::nearest(const QPointF& point) const {
  if (mDates.empty()) return -1;
  const int bin =
      static_cast<int>((point.x() - line().left()) / (line().width() / std::max(1, bins())));
  int best = 0;
  for (int index = 0; index < static_cast<int>(mDates.size()); ++index) {
    const int distance = std::abs(binOf(mDates[static_cast<std::size_t>(index)]) - bin);
    if (distance <= std::abs(binOf(mDates[static_cast<std::size_t>(best)]) - bin)) best = index;
  }
  return best;
}

void TimeLine::mousePressEvent(QMouseEvent* event) {
  const int index = nearest(event->position());
  if (index < 0) return;
  // Where several stand in one bar, another click goes on to the one before.
  const bool isSame = mChosen >= 0 && binOf(mDates[static_cast<std::size_t>(index)]) ==
                                          binOf(mDates[static_cast<std::size_t>(mChosen)]);
  if (!isSame) return choose(index);
  const bool hasMore = mChosen > 0 && binOf(mDates[static_cast<std::size_t>(mChosen - 1)]) ==
                                          binOf(mDates[static_cast<std::size_t>(mChosen)]);
  choose(hasMore ? mChosen - 1 : index);
}

void TimeLine::mouseMoveEvent(QMouseEvent* event) {
  if (event->buttons() != Qt::NoButton) choose(nearest(event->position()));
}

void TimeLine::keyPressEvent(QKeyEvent* event) {
  switch (event->key()) {
    case Qt::Key_Left:
      return choose(mChosen - 1);
    case Qt::Key_Right:
      return choose(mChosen + 1);
    case Qt::Key_Home:
      return choose(0);
    case Qt::Key_End:
      return choose(static_cast<int>(mDates.size()) - 1);
    default:
      QWidget::keyPressEvent(event);
  }
}

bool TimeLine::event(QEvent* event) {
  if (event->type() == QEvent::ToolTip) {
    const auto* const help = static_cast<QHelpEvent*>(event);
    const int index = nearest(help->pos());
    if (index >= 0)
      QToolTip::showText(help->globalPos(), mWords.full(mDates[static_cast<std::size_t>(index)]),
                         this);
    return true;
  }
  return QWidget::event(event);
}

}  // namespace corvana
