#include "application/HistoryPage.h"

#include <QComboBox>
#include <QHeaderView>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "application/Look.h"
#include "core/record/SchedulerLog.h"
#include "desktop/Texts.h"
#include "desktop/WeekView.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

/// Older ones are in the file "Corvana 9 Actions.log".
constexpr std::size_t kMostRows = 1000;
constexpr qsizetype kMostNotices = 500;
constexpr int kTitleColumns = 30;  ///< characters; whole among the details
constexpr int kColumns = 8;
constexpr int kFirstNumber = 3;  ///< of the columns
enum Part { kPast, kWeek, kNotices };
constexpr int kRowRole = Qt::UserRole;

Look::Meaning meaningOf(const ZAN_Value& entry) {
  if (entry.integer("C") == LogCode::launched) return Look::Meaning::accent;
  if (entry.integer(RunKey::onlyLacks) != 0 || entry.integer("C") == LogCode::abortedByUser)
    return Look::Meaning::caution;
  return RunWords::isFailure(entry) ? Look::Meaning::bad : Look::Meaning::good;
}

}  // namespace

HistoryPage::HistoryPage(Household& household, Navigator& navigator)
    : Page(household, navigator),
      mWeek({.texts = household.texts(),
             .strings = household.strings(),
             .calendar = [&household]() -> const ZAN_DateUtils& { return household.calendar(); },
             .now = [&household] { return household.now(); }}) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  column->setSpacing(Look::space(4));
  auto* top = new QHBoxLayout;
  top->setSpacing(Look::space(2));
  top->addWidget(new TextLabel(household.text("MainHistory"), Look::Size::title), 1);
  for (const char* key : {"HistoryPast", "HistoryWeek", "HistoryNotices"}) {
    const int part = static_cast<int>(mParts.size());
    auto* button = makeButton(household.text(key), [this, part] { showPart(part); });
    mParts.push_back(button);
    top->addWidget(button);
  }
  column->addLayout(top);
  mStack = new QStackedWidget;
  mStack->addWidget(makeRuns());
  mStack->addWidget(makeWeek());
  mStack->addWidget(makeNotices());
  column->addWidget(mStack, 1);
  showPart(kPast);
}

QWidget* HistoryPage::makeRuns() {
  auto* part = new QWidget;
  auto* column = new QVBoxLayout(part);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(3));
  auto* row = new QHBoxLayout;
  mChooser = new QComboBox;
  mChooser->setAccessibleName(household().text("HistoryBackup"));
  mChooser->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  mChooser->setMinimumContentsLength(18);
  mFilter = new QComboBox;
  mFilter->setAccessibleName(household().text("HistoryResults"));
  mFilter->addItem(household().text("HistoryAllResults"));
  mFilter->addItem(household().text("HistoryOnlyFailures"));
  QObject::connect(mChooser, &QComboBox::activated, this, [this](int at) {
    mReference = mChooser->itemData(at).toLongLong();
    fillRuns();
  });
  QObject::connect(mFilter, &QComboBox::activated, this, [this](int at) {
    mOnlyFailures = at == 1;
    fillRuns();
  });
  row->addWidget(mChooser);
  row->addWidget(mFilter);
  row->addStretch(1);
  column->addLayout(row);
  mRuns = new QTreeWidget;
  mRuns->setAccessibleName(household().text("MainHistory"));
  mRuns->setRootIsDecorated(false);
  mRuns->setUniformRowHeights(true);
  QStringList titles;
  for (const char* key : {"ColumnStarted", "HistoryBackup", "ColumnResult", "HistoryFiles",
                          "HistorySize", "ColumnDuration", "HistorySpeed", "HistoryDeleted"})
    titles << household().text(key);
  mRuns->setHeaderLabels(titles);
  for (int column = kFirstNumber; column < kColumns; ++column)
    mRuns->headerItem()->setTextAlignment(column, Qt::AlignRight | Qt::AlignVCenter);
  mRuns->header()->setStretchLastSection(false);
  for (int index = 0; index < kColumns; ++index)
    mRuns->header()->setSectionResizeMode(
        index, index == 2 ? QHeaderView::Stretch : QHeaderView::ResizeToContents);
  mRuns->header()->setMinimumSectionSize(Look::space(8));
  QObject::connect(mRuns, &QTreeWidget::itemSelectionChanged, this, [this] { showChosen(); });
  column->addWidget(mRuns, 5);
  mNone = new TextLabel({}, Look::Size::heading, Look::Meaning::muted);
  mNone->setAlignment(Qt::AlignCenter);
  column->addWidget(mNone, 5);
  mDetailsCard = new Card;
  auto* scroll = new QScrollArea;
  scroll->setWidgetResizable(true);
  scroll->setFrameShape(QFrame::NoFrame);
  scroll->setAccessibleName(household().text("HistoryDetails"));
  auto* details = new QWidget;
  auto* words = new QVBoxLayout(details);
  words->setContentsMargins(0, 0, 0, 0);
  words->setSpacing(Look::space(1));
  mResult = new TextLabel({}, Look::Size::heading);
  mWhich = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  mWork = new TextLabel;
  mLists = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  for (TextLabel* label : {mResult, mWhich, mWork, mLists}) {
    label->setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    words->addWidget(label);
  }
  words->insertSpacing(2, Look::space(2));
  words->insertSpacing(4, Look::space(2));
  words->addStretch(1);
  scroll->setWidget(details);
  scroll->setStyleSheet(
      QStringLiteral("QScrollArea, QScrollArea > QWidget > QWidget "
                     "{ background: transparent; border: none; }"));
  mDetailsCard->column()->addWidget(scroll);
  column->addWidget(mDetailsCard, 2);
  return part;
}

QWidget* HistoryPage::makeWeek() {
  mWeekPart = new QWidget;
  auto* column = new QVBoxLayout(mWeekPart);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(3));
  mWeekSummary = new TextLabel({}, Look::Size::strong);
  column->addWidget(mWeekSummary);
  mWeekWords = new TextLabel({}, Look::Size::body, Look::Meaning::muted);
  column->addWidget(mWeekWords);
  column->addWidget(new TextLabel(household().text("HistoryWeekLegend"), Look::Size::small,
                                  Look::Meaning::muted));
  return mWeekPart;
}

QWidget* HistoryPage::makeNotices() {
  auto* part = new QWidget;
  auto* column = new QVBoxLayout(part);
  column->setContentsMargins(0, 0, 0, 0);
  mNotices = new QTreeWidget;
  mNotices->setAccessibleName(household().text("HistoryNotices"));
  mNotices->setRootIsDecorated(false);
  mNotices->setWordWrap(true);
  mNotices->setHeaderLabels(
      {household().text("HistoryNoticeDate"), household().text("HistoryNotice")});
  mNotices->header()->setSectionResizeMode(0, QHeaderView::ResizeToContents);
  column->addWidget(mNotices);
  mNoNotices = new TextLabel(household().text("HistoryNoNotices"), Look::Size::heading,
                             Look::Meaning::muted);
  mNoNotices->setAlignment(Qt::AlignCenter);
  column->addWidget(mNoNotices);
  return part;
}

/// What was said of no single run stands in the log under no reference.
void HistoryPage::fillNotices() {
  mNotices->clear();
  QList<QTreeWidgetItem*> rows;
  const ZAN_Value log = household().history().log().readLogList();
  for (std::size_t index = log.size(); index-- > 0 && rows.size() < kMostNotices;) {
    const ZAN_Value& entry = log.at(index);
    const std::int64_t code = entry.integer("C");
    const auto date = entry["M"].asDate();
    const bool isOfAgent = code == LogCode::agentStarted || code == LogCode::agentTerminates;
    if (entry.contains("R") || !date || isOfAgent || entry.string("N").empty()) continue;
    auto* row = new QTreeWidgetItem(
        {qt(household().strings().getMediumDateTime(*date)), qt(entry.string("N"))});
    row->setForeground(0, Look::colour(Look::Meaning::muted));
    row->setTextAlignment(0, Qt::AlignTop | Qt::AlignLeft);
    rows.append(row);
  }
  mNotices->addTopLevelItems(rows);
  mNotices->setVisible(!rows.isEmpty());
  mNoNotices->setVisible(rows.isEmpty());
  if (!rows.isEmpty())
    mNotices->setCurrentItem(rows[std::clamp<qsizetype>(mNotice, 0, rows.size() - 1)]);
}

/// What it was comes before how fast it was.
void HistoryPage::resizeEvent(QResizeEvent* event) {
  Page::resizeEvent(event);
  constexpr int kWide = 100;
  constexpr int kNarrow = 80;
  const int characters = width() / std::max(1, fontMetrics().averageCharWidth());
  for (const int column : {5, 6, 7}) mRuns->setColumnHidden(column, characters <= kWide);
  for (const int column : {3, 4}) mRuns->setColumnHidden(column, characters <= kNarrow);
}

void HistoryPage::showPart(int part) {
  for (int index = 0; index < static_cast<int>(mParts.size()); ++index)
    Look::set(mParts[static_cast<std::size_t>(index)], index == part ? "primary" : "");
  mStack->setCurrentIndex(part);
  if (part == kWeek) refreshWeek();
  if (part == kNotices) fillNotices();
}

void HistoryPage::choose(std::int64_t reference, bool onlyFailures) {
  mReference = reference;
  mOnlyFailures = onlyFailures;
  showPart(kPast);
}

void HistoryPage::showNotices(std::int64_t index) {
  mNotice = index;
  showPart(kNotices);
}

void HistoryPage::refresh(ChangeSet changed) {
  if (changed.has(Change::tree) || changed.has(Change::history) || changed.has(Change::execution)) {
    ++mRevision;
    fillChooser();
    fillRuns();
  }
  if (mStack->currentIndex() == kWeek) refreshWeek();
  if (mStack->currentIndex() == kNotices && changed.has(Change::messages)) fillNotices();
}

void HistoryPage::fillChooser() {
  const QSignalBlocker quiet(mChooser);
  mChooser->clear();
  mChooser->addItem(household().text("HistoryAllBackups"), 0);
  ProgrammedAction::Nodes actions;
  household().actions().getListOfAllProgrammedActions(actions);
  for (const ProgrammedAction* action : actions)
    mChooser->addItem(qt(action->getTitle()), static_cast<qlonglong>(action->getReference()));
  mChooser->setCurrentIndex(std::max(0, mChooser->findData(static_cast<qlonglong>(mReference))));
  mFilter->setCurrentIndex(mOnlyFailures ? 1 : 0);
}

void HistoryPage::fillRuns() {
  const QSignalBlocker quiet(mRuns);
  const QTreeWidgetItem* const before = mRuns->currentItem();
  const double chosen =
      before == nullptr
          ? 0
          : mEntries[before->data(0, kRowRole).toULongLong()]["Date"].asDate().value_or(0);
  const RunWords words(household().texts(), household().strings());
  const ZAN_StringUtils& strings = household().strings();
  History& history = household().history();
  history.reloadProgrammedHistoryList();
  mEntries.clear();
  QList<QTreeWidgetItem*> rows;
  QTreeWidgetItem* current = nullptr;
  for (auto index = static_cast<std::int64_t>(history.historyCount());
       index-- > 0 && mEntries.size() < kMostRows;) {
    ZAN_Value entry = history.historyEntryAtIndex(index);
    // One that began and has no end is over when something else came after it, or nothing runs.
    const bool mayRun = household().status()["current"].integer("ref") == entry.integer("Ref") &&
                        index + 1 == static_cast<std::int64_t>(history.historyCount());
    if (entry.integer("C") == LogCode::launched && !mayRun) entry.setValue("C", LogCode::crashed);
    if (mReference != 0 && entry.integer("Ref") != mReference) continue;
    if (mOnlyFailures && !RunWords::isFailure(entry)) continue;
    const auto start = entry["Date"].asDate();
    const auto end = entry["EndDate"].asDate();
    const auto speed = RunWords::bytesPerSecond(entry);
    const bool isCounted = entry.contains(RunKey::filesCopied);
    const auto number = [&](std::string_view key) {
      return isCounted && entry.contains(key)
                 ? qt(strings.getIntegerWithSeparators(entry.integer(key)))
                 : QString();
    };
    const QString title =
        mRuns->fontMetrics().elidedText(qt(titleOf(entry, household().texts())), Qt::ElideRight,
                                        kTitleColumns * mRuns->fontMetrics().averageCharWidth());
    auto* row = new QTreeWidgetItem(
        {qt(start ? strings.getShortTimeDate(*start) : std::string()), title,
         qt(words.result(entry)), number(RunKey::filesCopied),
         isCounted ? qt(strings.getShortSizeBytes(entry[RunKey::bytesCopied].unsignedValue()))
                   : QString(),
         start && end ? qt(ZAN_StringUtils::getDuration(static_cast<std::int64_t>(*end - *start)))
                      : QString(),
         speed ? household().text("HistoryPerSecond",
                                  {strings.getShortSizeBytes(static_cast<std::uint64_t>(*speed))})
               : QString(),
         entry.integer(RunKey::filesDeleted) > 0 ? number(RunKey::filesDeleted) : QString()});
    row->setData(0, kRowRole, static_cast<qulonglong>(mEntries.size()));
    row->setIcon(2, Look::dot(meaningOf(entry)));
    row->setForeground(2, Look::colour(meaningOf(entry)));
    for (int column = kFirstNumber; column < kColumns; ++column) {
      row->setTextAlignment(column, Qt::AlignRight | Qt::AlignVCenter);
      row->setForeground(column, Look::colour(Look::Meaning::muted));
    }
    row->setForeground(0, Look::colour(Look::Meaning::muted));
    if (start && *start == chosen) current = row;
    mEntries.push_back(entry);
    rows.append(row);
  }
  mRuns->clear();
  mRuns->addTopLevelItems(rows);
  const bool isAny = !rows.isEmpty();
  mRuns->setVisible(isAny);
  mDetailsCard->setVisible(isAny);
  mNone->setVisible(!isAny);
  mNone->setText(household().text(mOnlyFailures ? "HistoryNoFailures" : "HistoryNone"));
  if (isAny) mRuns->setCurrentItem(current != nullptr ? current : rows.front());
  showChosen();
}

void HistoryPage::showChosen() {
  const QTreeWidgetItem* const item = mRuns->currentItem();
  if (item == nullptr) return;
  const ZAN_Value& entry = mEntries[item->data(0, kRowRole).toULongLong()];
  const RunWords words(household().texts(), household().strings());
  mResult->setMeaning(meaningOf(entry));
  mResult->setText(qt(words.result(entry)));
  const auto start = entry["Date"].asDate();
  mWhich->setText(household().text("HistoryWhich",
                                   {titleOf(entry, household().texts()),
                                    start ? household().strings().getMediumDateTime(*start) : ""}));
  mWork->setText(qt(words.work(entry)));
  mLists->setText(qt(words.lists(RunWords::resultsOf(entry, household().history().results()))));
}

void HistoryPage::refreshWeek() {
  const bool isNew = mWeek.show(mRevision, household().circumstances(), [this] {
    return weekActions(household().actions(), household().history().getProgrammedHistoryList(),
                       nullptr);
  });
  mWeekSummary->setText(qt(mWeek.summary()));
  if (mWeekView == nullptr) {
    mWeekView = new WeekView(mWeek, household().text("HistoryWeek"), mWeekPart);
    mWeekView->onChosen = [this](const QString& words) { mWeekWords->setText(words); };
    mWeekView->setFrameShape(QFrame::NoFrame);
    auto* card = new Card;
    card->column()->addWidget(mWeekView);
    static_cast<QVBoxLayout*>(mWeekPart->layout())->insertWidget(1, card, 1);
  }
  // It lies on a card.
  QPalette colours = mWeekView->palette();
  colours.setColor(QPalette::Base, Look::cardColour());
  mWeekView->setPalette(colours);
  if (isNew) mWeekView->refresh();
}

}  // namespace corvana
