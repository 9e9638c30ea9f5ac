#include "application/CardList.h"

#include <QApplication>
#include <QGraphicsOpacityEffect>
#include <QKeyEvent>
#include <QLabel>
#include <QMouseEvent>
#include <QScrollArea>
#include <QScrollBar>
#include <algorithm>
#include <limits>
#include <utility>

namespace corvana {

namespace {

constexpr int kScrollInterval = 16;  // ms
constexpr int kLine = 3;
constexpr std::size_t kNowhere = std::numeric_limits<std::size_t>::max();  ///< a row
constexpr double kLeftBehind = 0.35;  ///< opacity of what is being dragged, in its old place

int gap() { return Look::space(3); }

}  // namespace

CardList::CardList(Household& household, const BackupCard::Hooks& hooks, QScrollArea& area)
    : mHousehold(household),
      mHooks(hooks),
      mArea(area),
      mUsualHeight(Look::space(18)),
      mPicture(new QLabel(this)),
      mLine(new QFrame(this)),
      mWords(new QLabel(this)) {
  mPicture->setAttribute(Qt::WA_TransparentForMouseEvents);
  mLine->setProperty("look", "drop-line");
  mWords->setProperty("look", "drop-words");
  for (QWidget* widget : std::initializer_list<QWidget*>{mPicture, mLine, mWords}) widget->hide();
  QObject::connect(area.verticalScrollBar(), &QScrollBar::valueChanged, this, [this] { place(); });
  area.viewport()->installEventFilter(this);
  mScrolls.setInterval(kScrollInterval);
  QObject::connect(&mScrolls, &QTimer::timeout, this, [this] { scrollAtEdge(); });
}

CardList::~CardList() {
  mArea.verticalScrollBar()->disconnect(this);
  mArea.viewport()->removeEventFilter(this);
}

void CardList::setRows(std::vector<std::int64_t> references) {
  if (references != mReferences) {
    if (mDrag && std::ranges::find(references, mDrag->reference) == references.end()) letGo(false);
    // A card stays with its backup: what is held, or has the keyboard, shows nothing else.
    for (Shown& shown : mShown) {
      const auto now = shown.row < mReferences.size()
                           ? std::ranges::find(references, mReferences[shown.row])
                           : references.end();
      shown.row =
          now == references.end() ? kNowhere : static_cast<std::size_t>(now - references.begin());
    }
    mReferences = std::move(references);
    mHeights.assign(mReferences.size(), mUsualHeight);
  }
  for (Shown& shown : mShown) shown.isFilled = false;
  place();
}

int CardList::topOf(std::size_t row) const {
  int top = 0;
  for (std::size_t above = 0; above < row; ++above) top += mHeights[above] + gap();
  return top;
}

/// What has the keyboard or the mouse keeps it.
bool CardList::mustStay(const Shown& shown) const {
  if (shown.row >= mReferences.size()) return false;
  const QWidget* const focus = QApplication::focusWidget();
  return (mDrag && mDrag->card == shown.card) ||
         (focus != nullptr && shown.card->isAncestorOf(focus));
}

/// The card of that row, else one that is of no use where it is, else a new one.
CardList::Shown& CardList::shownFor(std::size_t row, std::size_t first, std::size_t last) {
  const auto same = std::ranges::find(mShown, row, &Shown::row);
  if (same != mShown.end()) return *same;
  const auto free = std::ranges::find_if(mShown, [&](const Shown& shown) {
    return (shown.row < first || shown.row >= last) && !mustStay(shown);
  });
  if (free != mShown.end()) {
    *free = {free->card, row};
    return *free;
  }
  auto* const card = new BackupCard(mHousehold, mHooks);
  card->setParent(this);
  card->installEventFilter(this);
  return mShown.emplace_back(Shown{card, row});
}

void CardList::fill(Shown& shown) {
  if (shown.isFilled) return;
  shown.isFilled = true;
  onFill(*shown.card, shown.row);
  mHeights[shown.row] = mUsualHeight = shown.card->heightFor(width());
}

void CardList::place() {
  // How wide it is is known when it is shown.
  if (mPlaces || !isVisible()) return;
  mPlaces = true;
  if (width() != std::exchange(mWidth, width()))
    for (Shown& shown : mShown) shown.isFilled = false;
  QScrollBar& bar = *mArea.verticalScrollBar();
  const int page = mArea.viewport()->height();
  const int sight = bar.value() - mapTo(mArea.widget(), QPoint()).y();
  const std::size_t count = mReferences.size();
  std::size_t first = 0;
  int top = 0;
  while (first + 1 < count && top + mHeights[first] + gap() < sight - page)
    top += mHeights[first++] + gap();
  std::size_t last = first;
  for (int bottom = top; last < count && bottom < sight + 2 * page; ++last)
    bottom += mHeights[last] + gap();
  int shift = 0;
  for (std::size_t row = first; row < last; ++row) {
    Shown& shown = shownFor(row, first, last);
    const int before = mHeights[row];
    fill(shown);
    shown.card->setGeometry(0, top, width(), mHeights[row]);
    shown.card->setVisible(true);
    // What is in sight does not move by what is above it.
    if (top + before < sight) shift += mHeights[row] - before;
    top += mHeights[row] + gap();
  }
  for (const Shown& shown : mShown) {
    if (shown.row >= first && shown.row < last) continue;
    if (mustStay(shown))
      shown.card->move(0, topOf(shown.row));
    else
      shown.card->hide();
  }
  setFixedHeight(count == 0 ? 0 : topOf(count) - gap());
  if (shift != 0) bar.setValue(bar.value() + shift);
  orderTabs();
  mPlaces = false;
}

/// The keyboard goes from one to the next below it, whatever they showed before.
void CardList::orderTabs() {
  const auto isBefore = [](const Shown& one, const Shown& other) { return one.row < other.row; };
  if (std::ranges::is_sorted(mShown, isBefore)) return;
  std::ranges::sort(mShown, isBefore);
  for (std::size_t index = 1; index < mShown.size(); ++index)
    mShown[index].card->comeAfter(*mShown[index - 1].card);
}

void CardList::showEvent(QShowEvent* event) {
  QWidget::showEvent(event);
  place();
}

void CardList::resizeEvent(QResizeEvent* event) {
  QWidget::resizeEvent(event);
  if (event->oldSize().width() != width()) place();
}

bool CardList::eventFilter(QObject* watched, QEvent* event) {
  switch (event->type()) {
    case QEvent::Resize:
      if (watched == mArea.viewport()) place();
      break;
    case QEvent::MouseButtonPress:
    case QEvent::MouseMove:
    case QEvent::MouseButtonRelease:
      if (watched != mArea.viewport())
        return follow(static_cast<BackupCard&>(*watched), static_cast<QMouseEvent&>(*event));
      break;
    default:
      break;
  }
  return QWidget::eventFilter(watched, event);
}

bool CardList::follow(BackupCard& card, QMouseEvent& event) {
  const QPoint pointer = event.globalPosition().toPoint();
  if (event.type() == QEvent::MouseButtonPress) {
    if (event.button() != Qt::LeftButton || mDrag) return false;
    mDrag = Drag{&card, card.reference(), event.position().toPoint(), pointer};
    return true;
  }
  if (!mDrag || mDrag->card != &card) return false;
  if (event.type() == QEvent::MouseButtonRelease) {
    if (event.button() == Qt::LeftButton) letGo(true);
    return true;
  }
  if (!mDrag->isMoving) {
    if ((pointer - mDrag->pointer).manhattanLength() < QApplication::startDragDistance())
      return true;
    take();
  }
  mDrag->pointer = pointer;
  look();
  return true;
}

void CardList::take() {
  mDrag->isMoving = true;
  mPicture->setPixmap(mDrag->card->grab());
  mPicture->adjustSize();
  mPicture->raise();
  mPicture->show();
  auto* const pale = new QGraphicsOpacityEffect(mDrag->card);
  pale->setOpacity(kLeftBehind);
  mDrag->card->setGraphicsEffect(pale);
  mDrag->card->setCursor(Qt::ClosedHandCursor);
  grabKeyboard();
  mScrolls.start();
}

/// Moves what is dragged to the pointer, and says where it would come to there.
void CardList::look() {
  const QPoint pointer = mapFromGlobal(mDrag->pointer);
  mPicture->move(pointer - mDrag->grip);
  std::size_t row = 0;
  int top = 0;
  while (row + 1 < mReferences.size() && pointer.y() >= top + mHeights[row] + gap() / 2)
    top += mHeights[row++] + gap();
  const Place place{mReferences[row], pointer.y() > top + mHeights[row] / 2};
  const auto words = onLook(mDrag->reference, place);
  mDrag->place = words ? std::optional(place) : std::nullopt;
  mLine->setVisible(words.has_value());
  mWords->setVisible(words && !words->isEmpty());
  if (!words) return;
  const int middle = place.isBehind ? top + mHeights[row] + gap() / 2 : top - gap() / 2;
  mLine->setGeometry(0, std::clamp(middle - kLine / 2, 0, std::max(0, height() - kLine)), width(),
                     kLine);
  mLine->raise();
  mWords->setText(*words);
  mWords->adjustSize();
  mWords->move(Look::space(3), std::max(0, middle - mWords->height() / 2));
  mWords->raise();
}

void CardList::scrollAtEdge() {
  const QWidget& sight = *mArea.viewport();
  const int edge = sight.height() / 8;
  const int y = sight.mapFromGlobal(mDrag->pointer).y();
  const int beyond = y < edge ? y - edge : std::max(0, y - (sight.height() - edge));
  if (beyond == 0) return;
  QScrollBar& bar = *mArea.verticalScrollBar();
  bar.setValue(bar.value() + beyond / 3);
  look();
}

void CardList::letGo(bool isDropped) {
  const Drag drag = *std::exchange(mDrag, std::nullopt);
  if (!drag.isMoving) return;
  mScrolls.stop();
  releaseKeyboard();
  drag.card->unsetCursor();
  drag.card->setGraphicsEffect(nullptr);
  for (QWidget* widget : std::initializer_list<QWidget*>{mPicture, mLine, mWords}) widget->hide();
  mPicture->clear();
  place();
  if (isDropped && drag.place) onDrop(drag.reference, *drag.place);
}

void CardList::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape && mDrag) return letGo(false);
  QWidget::keyPressEvent(event);
}

}  // namespace corvana
