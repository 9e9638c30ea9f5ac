#include "application/BackupCard.h"

#include <QDesktopServices>
#include <QGridLayout>
#include <QMenu>
#include <QPainter>
#include <QProgressBar>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "application/Household.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kNarrow = 116;      ///< characters; below that two rows
constexpr int kSideColumns = 34;  ///< of the last column
constexpr int kPerCent = 100;
constexpr double kMinute = 60;

Look::Meaning meaningOf(RunKind kind) {
  switch (kind) {
    case RunKind::completed:
      return Look::Meaning::good;
    case RunKind::withErrors:
      return Look::Meaning::caution;
    case RunKind::failed:
      return Look::Meaning::bad;
    default:
      return Look::Meaning::muted;
  }
}

/// A surface of its own: softer than text of that colour.
QColor markColour(RunKind kind) {
  QColor colour = Look::colour(meaningOf(kind));
  colour.setAlpha(kind == RunKind::completed ? 190 : 230);
  return colour;
}

}  // namespace

RunBar::RunBar(Household& household) : mHousehold(household) {
  setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  readAs(this, QAccessible::Graphic);
}

QSize RunBar::sizeHint() const { return {Look::space(40), Look::space(4)}; }

void RunBar::setRuns(const std::vector<RunKind>& runs) {
  if (mRuns != runs) {
    mRuns = runs;
    update();
  }
  const auto count = [&](RunKind kind) { return std::ranges::count(mRuns, kind); };
  const QString words =
      mRuns.empty()
          ? mHousehold.text("CardNeverRan")
          : mHousehold.text("CardRuns", {count(RunKind::completed), count(RunKind::withErrors),
                                         count(RunKind::failed), mRuns.size()});
  setAccessibleName(words);
  setToolTip(words);
}

void RunBar::paintEvent(QPaintEvent* /*event*/) {
  QPainter painter(this);
  painter.setRenderHint(QPainter::Antialiasing);
  painter.setPen(Qt::NoPen);
  constexpr auto kMarks = static_cast<double>(BackupFacts::kRuns);
  const double step = width() / kMarks;
  const double mark = std::max(2.0, step * 0.62);
  for (std::size_t i = 0; i < BackupFacts::kRuns; ++i) {
    const std::size_t missing = BackupFacts::kRuns - mRuns.size();
    painter.setBrush(i < missing ? Look::surface(Look::Meaning::muted)
                                 : markColour(mRuns[i - missing]));
    const double place =
        isRightToLeft() ? kMarks - 1 - static_cast<double>(i) : static_cast<double>(i);
    painter.drawRoundedRect(QRectF(place * step, 0, mark, height()), mark / 3, mark / 3);
  }
}

BackupCard::BackupCard(Household& household, const Hooks& hooks)
    : mHousehold(household),
      mHooks(hooks),
      mGrid(new QGridLayout),
      mTitle(new TextLabel({}, Look::Size::strong)),
      mWay(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mLast(new TextLabel),
      mResult(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mTrouble(new TextLabel({}, Look::Size::small, Look::Meaning::bad)),
      mRuns(new RunBar(household)),
      mProgress(new QProgressBar),
      mNext(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mRoom(new QProgressBar),
      mFree(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mPause(makeButton({}, [this] { mHooks.pause(!mIsPaused); })),
      mStop(makeButton(household.text("CardStop"), [this] { mHooks.stop(); })),
      mMore(new QPushButton),
      mMenu(new QMenu(this)) {
  mGrid->setHorizontalSpacing(Look::space(5));
  mGrid->setVerticalSpacing(Look::space(2));
  column()->addLayout(mGrid);
  // A reason has the whole width.
  column()->addWidget(mTrouble);
  mProgress->setTextVisible(false);
  mRoom->setTextVisible(false);
  auto* buttons = new QHBoxLayout;
  buttons->setSpacing(Look::space(1));
  buttons->addStretch(1);
  for (QPushButton* button : {mPause, mStop, mMore}) buttons->addWidget(button);
  auto* side = new QWidget;
  auto* sideColumn = new QHBoxLayout(side);
  sideColumn->setContentsMargins(0, 0, 0, 0);
  sideColumn->setSpacing(Look::space(3));
  sideColumn->addWidget(makeColumn({mRoom, mFree}), 1);
  sideColumn->addLayout(buttons);
  mParts[0] = makeColumn({mTitle, mWay});
  mParts[1] = makeColumn({mLast, mResult});
  mParts[2] = makeColumn({mRuns, mProgress, mNext});
  mParts[3] = side;
  // The columns of all cards stand below each other, whatever is in them.
  for (QWidget* part : {mParts[0], mParts[1], mParts[2]})
    part->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
  side->setMinimumWidth(kSideColumns * fontMetrics().averageCharWidth());
  mMore->setFlat(true);
  mMore->setMenu(mMenu);
  mMore->setIcon(Look::icon(QStringLiteral("view-more")));
  mMore->setCursor(Qt::PointingHandCursor);
  arrange();
}

void BackupCard::arrange() {
  while (QLayoutItem* item = mGrid->takeAt(0)) delete item;
  for (int column = 0; column < 4; ++column) mGrid->setColumnStretch(column, 0);
  if (mIsNarrow) {
    mGrid->addWidget(mParts[0], 0, 0);
    mGrid->addWidget(mParts[3], 0, 1);
    mGrid->addWidget(mParts[1], 1, 0);
    mGrid->addWidget(mParts[2], 1, 1);
    mGrid->setColumnStretch(0, 1);
    mGrid->setColumnStretch(1, 1);
    return;
  }
  constexpr int kStretches[] = {27, 24, 27, 0};
  for (int column = 0; column < 4; ++column) {
    mGrid->addWidget(mParts[column], 0, column);
    mGrid->setColumnStretch(column, kStretches[column]);
  }
}

void BackupCard::resizeEvent(QResizeEvent* event) {
  Card::resizeEvent(event);
  fit(width());
}

int BackupCard::heightFor(int width) {
  fit(width);
  return heightForWidth(width);
}

void BackupCard::fit(int width) {
  const bool isNarrow = width < kNarrow * fontMetrics().averageCharWidth();
  if (isNarrow == mIsNarrow) return;
  mIsNarrow = isNarrow;
  arrange();
}

void BackupCard::show(const BackupFacts& facts, const ZAN_Value& current, bool isQueued,
                      bool isPaused) {
  const bool isRunning = !current.isNull();
  const bool isOther = mReference != facts.reference;
  mReference = facts.reference;
  mIsPaused = isPaused;
  setMeaning(isRunning           ? Look::Meaning::plain
             : facts.isBad()     ? Look::Meaning::bad
             : facts.needsCare() ? Look::Meaning::caution
                                 : Look::Meaning::plain);
  setAccessibleName(qt(facts.title));
  mTitle->setText(qt(facts.title));
  mWay->setText(facts.isComplete ? mHousehold.text(facts.isAway() ? "CardWayAway" : "CardWay",
                                                   {facts.sources, facts.destination})
                                 : mHousehold.text("CardIncomplete"));
  mProgress->setVisible(isRunning);
  mRuns->setVisible(!isRunning);
  mPause->setVisible(isRunning);
  mStop->setVisible(isRunning);
  mRuns->setRuns(facts.runs);
  const ZAN_StringUtils& strings = mHousehold.strings();
  if (isRunning) {
    mLast->setMeaning(Look::Meaning::accent);
    const double left = current["SecondsLeft"].doubleValue();
    const bool isStopping = current.contains("stopping");
    mLast->setText(isStopping                         ? mHousehold.text("CardStopping")
                   : isPaused                         ? mHousehold.text("CardPaused")
                   : !current.contains("SecondsLeft") ? mHousehold.text("CardRunning")
                   : left < kMinute
                       ? mHousehold.text("CardRunningSoon")
                       : mHousehold.text("CardRunningLeft",
                                         {static_cast<std::int64_t>(std::ceil(left / kMinute))}));
    mResult->setText(qt(current.string("progressText")));
    const double progress = current["progress"].doubleValue();
    mProgress->setRange(0, progress > 0 ? kPerCent : 0);
    mProgress->setValue(static_cast<int>(progress));
    mNext->setText({});
    mPause->setText(mHousehold.text(isPaused ? "CardContinue" : "CardPause"));
    mStop->setEnabled(!isStopping);
    mTrouble->setText(qt(current.string("stuck")));
  } else {
    mLast->setMeaning(Look::Meaning::plain);
    mLast->setText(facts.lastSuccess ? withCapital(pastDateOf(mHousehold, *facts.lastSuccess))
                                     : mHousehold.text("CardNoSuccess"));
    mResult->setText(
        !facts.files ? QString()
        : *facts.files == 0
            ? mHousehold.text("CardNothingNew")
            : mHousehold.text("CardCopied", {strings.getShortSizeBytes(facts.bytes.value_or(0)),
                                             static_cast<std::int64_t>(*facts.files)}));
    mNext->setText(isQueued                   ? mHousehold.text("CardQueued")
                   : facts.hold != Hold::none ? mHousehold.text("CardHeld")
                   : facts.next
                       ? mHousehold.text("CardNext", {comingDateOf(mHousehold, facts.next->date)})
                       : qt(facts.schedule));
    if (facts.failure && (!facts.isFailureSeen || facts.isUnmended())) {
      mTrouble->setText(facts.onlyLacks  ? mHousehold.text("ResultOnlyLacks")
                        : facts.isAway() ? mHousehold.text("CardNotConnected", {facts.destination})
                                         : qt(facts.shortReason()));
      mTrouble->setToolTip(qt(facts.reason));
    } else if (facts.overdueSince) {
      const auto days = (mHousehold.now() - *facts.overdueSince) / 86400;
      mTrouble->setText(mHousehold.text("CardOverdue", {static_cast<std::int64_t>(days)}));
    } else {
      mTrouble->setText({});
    }
  }
  mTrouble->setMeaning(facts.isBad() ? Look::Meaning::bad : Look::Meaning::caution);
  mTrouble->setVisible(!mTrouble->text().isEmpty());
  mResult->setVisible(!mResult->text().isEmpty());
  mNext->setVisible(!mNext->text().isEmpty());
  const bool hasRoom = facts.free && facts.size.value_or(0) > 0 && !isRunning;
  mRoom->setVisible(hasRoom);
  mFree->setVisible(hasRoom);
  if (hasRoom) {
    mRoom->setRange(0, kPerCent);
    mRoom->setValue(static_cast<int>(kPerCent - kPerCent * (static_cast<double>(*facts.free) /
                                                            static_cast<double>(*facts.size))));
    mFree->setText(mHousehold.text("CardFree", {strings.getShortSizeBytes(*facts.free)}));
    mRoom->setAccessibleName(mFree->text());
  }
  mMore->setAccessibleName(mHousehold.text("CardMore", {facts.title}));
  mMore->setToolTip(mMore->accessibleName());
  if (isOther || !mMenu->isVisible()) fillMenu(facts, isRunning);
}

void BackupCard::comeAfter(const BackupCard& other) {
  setTabOrder(other.mMore, mPause);
  setTabOrder(mPause, mStop);
  setTabOrder(mStop, mMore);
}

void BackupCard::fillMenu(const BackupFacts& facts, bool isRunning) {
  mMenu->clear();
  const auto add = [this](const QString& text, const std::function<void(std::int64_t)>& hook) {
    mMenu->addAction(text, mMenu, [this, &hook] { hook(mReference); });
  };
  if (!isRunning) add(mHousehold.text("CardRun"), mHooks.run);
  if (!isRunning) add(mHousehold.text("CardWhy"), mHooks.why);
  add(mHousehold.text("CardRestore"), mHooks.restore);
  if (!facts.folder.empty()) {
    mMenu->addAction(mHousehold.text("RestoreShowFolder"), mMenu, [folder = qt(facts.folder)] {
      QDesktopServices::openUrl(QUrl::fromLocalFile(folder));
    });
  }
  mMenu->addSeparator();
  if (facts.failure && !facts.isFailureSeen)
    mMenu->addAction(mHousehold.text("CardSeen"), mMenu, [this] { mHooks.seen(); });
  if (facts.onlyLacks && !facts.isFailureSeen)
    add(mHousehold.text("CardLeaveOut"), mHooks.leaveOut);
  if (facts.mayTakeOver) add(mHousehold.text("CardTakeOver"), mHooks.takeOver);
  if (facts.deletionsToConfirm > 0)
    add(mHousehold.text("CardConfirm", {facts.deletionsToConfirm}), mHooks.confirmDeletions);
  add(mHousehold.text("CardHistory"), mHooks.history);
  add(mHousehold.text("CardChange"), mHooks.change);
  add(mHousehold.text("CardDuplicate"), mHooks.duplicate);
  mMenu->addAction(mHousehold.text("CardUp"), mMenu, [this] { mHooks.move(mReference, -1); });
  mMenu->addAction(mHousehold.text("CardDown"), mMenu, [this] { mHooks.move(mReference, 1); });
  mMenu->addSeparator();
  add(mHousehold.text("CardRemove"), mHooks.remove);
}

}  // namespace corvana
