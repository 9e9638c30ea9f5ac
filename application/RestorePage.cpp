#include "application/RestorePage.h"

#include <QComboBox>
#include <QDateTime>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QFrame>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLineEdit>
#include <QListWidget>
#include <QLocale>
#include <QProgressBar>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QTimer>
#include <QTreeWidget>
#include <QUrl>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>
#include <utility>

#include "application/Look.h"
#include "application/Preview.h"
#include "application/TimeLine.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kSearchDelay = 300;  // ms
constexpr int kLoadDelay = 500;
constexpr int kFromFolder = -1;  ///< of the chooser's data: another place is to be asked for
constexpr int kRowRole = Qt::UserRole;
constexpr int kLongestVersions = 200;

QString lastOf(const QString& name) { return name.section('/', -1); }

void showFolder(const QString& path) {
  if (!path.isEmpty()) QDesktopServices::openUrl(QUrl::fromLocalFile(path));
}

QPushButton* makeFlat(const QString& text, std::function<void()> pressed) {
  QPushButton* button = makeButton(text, std::move(pressed));
  button->setFlat(true);
  return button;
}

}  // namespace

RestorePage::RestorePage(Household& household, Navigator& navigator) : Page(household, navigator) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  column->setSpacing(Look::space(4));
  column->addWidget(makeHeader());
  auto* lineCard = new Card;
  lineCard->column()->setContentsMargins(Look::space(5), Look::space(3), Look::space(5),
                                         Look::space(3));
  mTimeLine = new TimeLine({.day =
                                [](ReferenceTime date) {
                                  return QLocale().toString(
                                      QDateTime::fromSecsSinceEpoch(
                                          static_cast<qint64>(date + kReferenceEpochInUnixTime)),
                                      QStringLiteral("d MMM"));
                                },
                            .full = [this](ReferenceTime date) { return timeText(date); },
                            .last = household.text("RestoreNow")});
  mTimeLine->setAccessibleName(household.text("RestoreTimeLine"));
  mTimeLine->onChosen = [this] {
    updateSentence();
    loadItems();
  };
  lineCard->column()->addWidget(mTimeLine);
  column->addWidget(lineCard);
  column->addWidget(makeStrip());
  mBody = new QStackedWidget;
  auto* both = new QWidget;
  auto* row = new QHBoxLayout(both);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(Look::space(4));
  row->addWidget(makeBrowser(), 7);
  row->addWidget(makeDetails(), 4);
  mBody->addWidget(both);
  mNothing = new QWidget;
  auto* nothing = new QVBoxLayout(mNothing);
  nothing->setSpacing(Look::space(3));
  nothing->addStretch(1);
  mNothingTitle = new TextLabel({}, Look::Size::heading);
  mNothingText = new TextLabel({}, Look::Size::body, Look::Meaning::muted);
  for (TextLabel* label : {mNothingTitle, mNothingText}) {
    label->setAlignment(Qt::AlignHCenter);
    nothing->addWidget(label);
  }
  mFirstButtons = new QWidget;
  auto* buttons = new QHBoxLayout(mFirstButtons);
  buttons->addStretch(1);
  buttons->addWidget(makeButton(
      household.text("RestoreFirstBackup"), [this] { this->navigator().createBackup(); }, true));
  buttons->addWidget(makeButton(household.text("RestoreFromFolder"), [this] { chooseFolder(); }));
  buttons->addStretch(1);
  nothing->addWidget(mFirstButtons);
  nothing->addStretch(2);
  mBody->addWidget(mNothing);
  column->addWidget(mBody, 1);
}

QWidget* RestorePage::makeHeader() {
  auto* header = new QWidget;
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(Look::space(3));
  auto* words = new QVBoxLayout;
  words->setSpacing(Look::space(1));
  words->addWidget(new TextLabel(household().text("MainRestore"), Look::Size::title));
  mSentence = new TextLabel({}, Look::Size::body, Look::Meaning::muted);
  words->addWidget(mSentence);
  row->addLayout(words, 1);
  auto* right = new QVBoxLayout;
  right->setSpacing(Look::space(2));
  mChooser = new QComboBox;
  mChooser->setAccessibleName(household().text("RestoreChooser"));
  mChooser->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  mChooser->setMinimumContentsLength(20);
  QObject::connect(mChooser, &QComboBox::activated, this, [this](int at) { chooseSource(at); });
  right->addWidget(mChooser);
  mSearch = new QLineEdit;
  mSearch->setPlaceholderText(household().text("RestoreSearch"));
  mSearch->setAccessibleName(household().text("RestoreSearch"));
  mSearch->setClearButtonEnabled(true);
  mSearchTimer = new QTimer(this);
  mSearchTimer->setSingleShot(true);
  mSearchTimer->setInterval(kSearchDelay);
  QObject::connect(mSearch, &QLineEdit::textChanged, mSearchTimer,
                   [this] { mSearchTimer->start(); });
  QObject::connect(mSearchTimer, &QTimer::timeout, this, [this] { loadItems(); });
  right->addWidget(mSearch);
  mLoadTimer = new QTimer(this);
  mLoadTimer->setSingleShot(true);
  mLoadTimer->setInterval(kLoadDelay);
  QObject::connect(mLoadTimer, &QTimer::timeout, this, [this] { loadVersions(); });
  row->addLayout(right);
  return header;
}

QWidget* RestorePage::makeBrowser() {
  auto* card = new Card;
  card->column()->setContentsMargins(Look::space(3), Look::space(3), Look::space(3),
                                     Look::space(3));
  auto* top = new QHBoxLayout;
  mCrumbs = new QWidget;
  auto* crumbs = new QHBoxLayout(mCrumbs);
  crumbs->setContentsMargins(0, 0, 0, 0);
  crumbs->setSpacing(0);
  top->addWidget(mCrumbs, 1);
  top->addWidget(
      makeFlat(household().text("RestoreShowFolder"), [this] { showFolder(folderOfCopies()); }));
  card->column()->addLayout(top);
  mList = new QTreeWidget;
  mList->setAccessibleName(household().text("RestoreList"));
  mList->setRootIsDecorated(false);
  mList->setUniformRowHeights(true);
  mList->setSelectionMode(QAbstractItemView::ExtendedSelection);
  mList->setFrameShape(QFrame::NoFrame);
  mList->setStyleSheet(QStringLiteral("QTreeView { border: none; }"));
  mList->setHeaderLabels(
      {household().text("RestoreColumnName"), household().text("RestoreColumnSince"),
       household().text("RestoreColumnSize"), household().text("RestoreColumnChanged")});
  mList->header()->setStretchLastSection(false);
  mList->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  for (int column = 1; column < mList->columnCount(); ++column)
    mList->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
  QObject::connect(mList, &QTreeWidget::itemSelectionChanged, this, [this] { showChosen(); });
  QObject::connect(mList, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* item) {
    if (const Item* const chosen = itemOf(item->data(0, kRowRole).toInt())) open(*chosen);
  });
  card->column()->addWidget(mList, 1);
  mListNote = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  card->column()->addWidget(mListNote);
  return card;
}

QWidget* RestorePage::makeDetails() {
  auto* card = new Card;
  auto* column = card->column();
  mName = new TextLabel({}, Look::Size::strong);
  mFacts = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  column->addWidget(mName);
  column->addWidget(mFacts);
  mPreview = new Preview(household().loop());
  column->addWidget(mPreview);
  mVersionsTitle = new TextLabel(household().text("RestoreVersions"), Look::Size::strong);
  column->addWidget(mVersionsTitle);
  mFileVersions = new QListWidget;
  mFileVersions->setAccessibleName(household().text("RestoreVersions"));
  mFileVersions->setFrameShape(QFrame::NoFrame);
  mFileVersions->setStyleSheet(QStringLiteral("QListView { border: none; }"));
  mFileVersions->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  mFileVersions->setMinimumHeight(Look::space(10));
  QObject::connect(mFileVersions, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
    mTimeLine->choose(item->data(kRowRole).toInt());
  });
  QObject::connect(mFileVersions, &QListWidget::itemClicked, this, [this](QListWidgetItem* item) {
    mTimeLine->choose(item->data(kRowRole).toInt());
  });
  column->addWidget(mFileVersions, 1);
  column->addStretch(0);
  mRestoreButton = makeButton(
      household().text("RestoreButton"), [this] { restore({}); }, true);
  mElsewhereButton =
      makeButton(household().text("RestoreElsewhereButton"), [this] { askWhereTo(); });
  column->addWidget(mRestoreButton);
  column->addWidget(mElsewhereButton);
  column->addWidget(
      new TextLabel(household().text("RestoreKeeps"), Look::Size::small, Look::Meaning::muted));
  return card;
}

QWidget* RestorePage::makeStrip() {
  mStrip = new QFrame;
  auto* column = new QVBoxLayout(mStrip);
  column->setContentsMargins(Look::space(4), Look::space(3), Look::space(4), Look::space(3));
  column->setSpacing(Look::space(1));
  auto* row = new QHBoxLayout;
  row->setSpacing(Look::space(3));
  auto* words = new QVBoxLayout;
  words->setSpacing(Look::space(1));
  mStripTitle = new TextLabel({}, Look::Size::strong);
  mStripText = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  words->addWidget(mStripTitle);
  words->addWidget(mStripText);
  row->addLayout(words, 1);
  mStop = makeButton(household().text("RestoreStop"), [this] { mRestoreChild.stop(); });
  mShowRestored = makeButton(household().text("RestoreShow"), [this] { showFolder(mRestoredTo); });
  mCloseStrip = makeFlat(household().text("CloseButton"), [this] { mStrip->hide(); });
  for (QPushButton* button : {mStop, mShowRestored, mCloseStrip}) row->addWidget(button);
  column->addLayout(row);
  mProgress = new QProgressBar;
  mProgress->setTextVisible(false);
  mProgress->setAccessibleName(household().text("RestoreProgress"));
  column->addWidget(mProgress);
  mStrip->hide();
  return mStrip;
}

QString RestorePage::timeText(ReferenceTime date) const {
  const QDateTime time =
      QDateTime::fromSecsSinceEpoch(static_cast<qint64>(date + kReferenceEpochInUnixTime));
  return household().text("RestoreMoment",
                          {utf8(QLocale().toString(time.date(), QLocale::LongFormat)),
                           household().strings().getShortTime(date)});
}

ReferenceTime RestorePage::date() const {
  const int chosen = mTimeLine->chosen();
  return chosen < 0 ? 0 : mTimeLine->dates()[static_cast<std::size_t>(chosen)];
}

/// To the second, as the command takes it.
QString RestorePage::dateWord() const {
  return qt(household().calendar().format(date(), "%Y-%m-%d %H:%M:%S"));
}

QString RestorePage::folderOfCopies() const {
  if (!mFrom.isEmpty()) return mFrom;
  const ProgrammedAction* const action = household().actions().actionForReference(mReference);
  return action == nullptr
             ? QString()
             : qt(ActionsTools::getDestinationForAction(action->getSettings()).path());
}

void RestorePage::choose(std::int64_t reference) {
  if (reference == 0 || (reference == mReference && mFrom.isEmpty())) return;
  mReference = reference;
  mFrom.clear();
  mFolder.clear();
  mTimeLine->setDates({});
}

void RestorePage::refresh(ChangeSet changed) {
  if (changed.has(Change::tree)) fillChooser();
  if (!changed.has(Change::tree) && !changed.has(Change::history)) return;
  // A burst of changes is looked at once.
  if (mTimeLine->dates().empty())
    loadVersions();
  else if (!mLoadTimer->isActive())
    mLoadTimer->start();
}

void RestorePage::fillChooser() {
  const QSignalBlocker quiet(mChooser);
  mChooser->clear();
  ProgrammedAction::Nodes actions;
  household().actions().getListOfAllProgrammedActions(actions);
  for (const ProgrammedAction* action : actions)
    mChooser->addItem(qt(action->getTitle()), static_cast<qlonglong>(action->getReference()));
  if (mFrom.isEmpty() && mChooser->findData(static_cast<qlonglong>(mReference)) < 0)
    mReference = actions.empty() ? 0 : actions.front()->getReference();
  if (!mFrom.isEmpty()) mChooser->addItem(mFrom, 0);
  mChooser->insertSeparator(mChooser->count());
  mChooser->addItem(household().text("RestoreFromFolder"), kFromFolder);
  mChooser->setCurrentIndex(
      mChooser->findData(mFrom.isEmpty() ? static_cast<qlonglong>(mReference) : 0));
}

void RestorePage::chooseSource(int row) {
  const qlonglong chosen = mChooser->itemData(row).toLongLong();
  if (chosen == kFromFolder) {
    fillChooser();
    return chooseFolder();
  }
  if (chosen > 0) {
    mReference = chosen;
    mFrom.clear();
  }
  mFolder.clear();
  mSearch->clear();
  mTimeLine->setDates({});
  loadVersions();
}

void RestorePage::chooseFolder() {
  auto* dialog = new QFileDialog(this, household().text("RestoreFromTitle"));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  QObject::connect(dialog, &QFileDialog::fileSelected, this, [this](const QString& folder) {
    mFrom = folder;
    mFolder.clear();
    mSearch->clear();
    mTimeLine->setDates({});
    fillChooser();
    loadVersions();
  });
  dialog->open();
}

void RestorePage::loadVersions() {
  if (mReference == 0 && mFrom.isEmpty()) {
    mTimeLine->setDates({});
    return showNothing(household().text("RestoreNoneTitle"), household().text("RestoreNoneText"));
  }
  QStringList words{QStringLiteral("versions")};
  if (mFrom.isEmpty())
    words << QString::number(mReference);
  else
    words << QStringLiteral("--from") << mFrom;
  mVersionsChild.run(words, [this](const CommandChild::Ending& ending) { takeVersions(ending); });
}

void RestorePage::takeVersions(const CommandChild::Ending& ending) {
  std::vector<ReferenceTime> dates;
  mSizes.clear();
  for (const ZAN_Value& version : ending.answer["versions"].elements()) {
    dates.push_back(version["date"].doubleValue());
    mSizes[dates.back()] = {version["files"].unsignedValue(), version["bytes"].unsignedValue()};
  }
  if (dates.empty()) {
    mTimeLine->setDates({});
    updateSentence();
    return showNothing(household().text("RestoreNoVersions"), qt(ending.reason));
  }
  std::ranges::sort(dates);
  mBody->setCurrentIndex(0);
  if (dates == mTimeLine->dates()) return;
  const ReferenceTime before = date();
  const bool wasNewest =
      mTimeLine->chosen() < 0 || mTimeLine->chosen() + 1 == std::ssize(mTimeLine->dates());
  mTimeLine->setDates(dates);
  if (const auto same = std::ranges::find(dates, before); !wasNewest && same != dates.end()) {
    mTimeLine->choose(static_cast<int>(same - dates.begin()));
    return;
  }
  updateSentence();
  loadItems();
}

void RestorePage::showNothing(const QString& title, const QString& text) {
  mNothingTitle->setText(title);
  mNothingText->setText(text);
  mFirstButtons->setVisible(mReference == 0 && mFrom.isEmpty());
  mBody->setCurrentWidget(mNothing);
}

void RestorePage::updateSentence() {
  const QString title = mFrom.isEmpty() ? qt(household().tree().titleOf(mReference)) : mFrom;
  mSentence->setText(
      mTimeLine->chosen() < 0
          ? title
          : household().text("RestoreSentence", {utf8(title), utf8(timeText(date()))}));
}

void RestorePage::loadItems() {
  if (mTimeLine->chosen() < 0) return;
  QStringList words{QStringLiteral("browse"), QStringLiteral("--at"), dateWord()};
  if (!mFrom.isEmpty()) words << QStringLiteral("--from") << mFrom;
  const QString find = mSearch->text().trimmed();
  if (!find.isEmpty()) words << QStringLiteral("--find=") + find;
  words << QStringLiteral("--");
  if (mFrom.isEmpty()) words << QString::number(mReference);
  if (!mFolder.isEmpty()) words << pathOf(mFolder);
  mListNote->setText(household().text("RestoreReading"));
  mItemsChild.run(words, [this](const CommandChild::Ending& ending) { takeItems(ending); });
}

void RestorePage::takeItems(const CommandChild::Ending& ending) {
  const QStringList before = chosenNames();
  const QSignalBlocker quiet(mList);
  mItems.clear();
  mList->clear();
  if (!ending.isDone()) {
    mListNote->setText(qt(ending.reason));
    showCrumbs();
    return showChosen();
  }
  const bool isFound = !mSearch->text().trimmed().isEmpty();
  const auto& found = ending.answer["items"];
  if (!isFound && mFolder.isEmpty()) {
    mTops.clear();
    for (const ZAN_Value& one : found.elements())
      mTops[qt(one.string("path"))] = qt(one.string("source"));
  }
  // One source is opened at once; there is nothing to choose.
  if (!isFound && mFolder.isEmpty() && found.size() == 1 &&
      found.at(0).string("kind") == "folder") {
    mFolder = qt(found.at(0).string("path"));
    return loadItems();
  }
  for (const ZAN_Value& one : found.elements()) {
    mItems.push_back({.name = qt(one.string("path")),
                      .isFolder = one.string("kind") == "folder",
                      .bytes = one["bytes"].unsignedValue(),
                      .changed = one["changed"].doubleValue(),
                      .since = qt(one.string("since")),
                      .path = qt(one.string("contents"))});
  }
  std::ranges::stable_sort(mItems, [](const Item& one, const Item& other) {
    if (one.isFolder != other.isFolder) return one.isFolder;
    return QString::localeAwareCompare(lastOf(one.name), lastOf(other.name)) < 0;
  });
  QList<QTreeWidgetItem*> rows;
  const QIcon folder = Look::icon(QStringLiteral("folder"), Look::Meaning::muted);
  for (int row = 0; row < static_cast<int>(mItems.size()); ++row) {
    const Item& one = mItems[static_cast<std::size_t>(row)];
    const QString since = one.since == QLatin1String("gone") ? household().text("RestoreGone")
                          : one.since == QLatin1String("changed")
                              ? household().text("RestoreChanged")
                              : QString();
    auto* item = new QTreeWidgetItem(
        {isFound ? one.name : lastOf(one.name), since,
         one.isFolder ? QString() : qt(household().strings().getShortSizeBytes(one.bytes)),
         one.isFolder ? QString() : qt(household().strings().getShortTimeDate(one.changed))});
    if (one.isFolder) item->setIcon(0, folder);
    item->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
    for (int column = 1; column < mList->columnCount(); ++column)
      item->setForeground(column, Look::colour(Look::Meaning::muted));
    if (one.since == QLatin1String("gone"))
      item->setForeground(1, Look::colour(Look::Meaning::bad));
    item->setData(0, kRowRole, row);
    item->setSelected(before.contains(one.name));
    rows.append(item);
  }
  mList->addTopLevelItems(rows);
  for (int row = 0; row < rows.size(); ++row)
    if (before.contains(mItems[static_cast<std::size_t>(row)].name)) rows[row]->setSelected(true);
  const std::int64_t more = ending.answer.integer("more");
  mListNote->setText(more > 0 ? household().text("RestoreMore", {more})
                     : rows.isEmpty()
                         ? household().text(isFound ? "RestoreNotFound" : "RestoreEmpty")
                         : QString());
  mListNote->setVisible(!mListNote->text().isEmpty());
  showCrumbs();
  showChosen();
}

void RestorePage::showCrumbs() {
  QLayout* const row = mCrumbs->layout();
  while (QLayoutItem* item = row->takeAt(0)) {
    if (item->widget() != nullptr) item->widget()->deleteLater();
    delete item;
  }
  QString path;
  const QStringList parts = mFolder.split('/', Qt::SkipEmptyParts);
  // What has but one source begins with that.
  if (mTops.size() != 1) {
    row->addWidget(
        makeFlat(mFrom.isEmpty() ? qt(household().tree().titleOf(mReference)) : lastOf(mFrom),
                 [this] { goTo({}); }));
  }
  for (const QString& part : parts) {
    path += (path.isEmpty() ? "" : "/") + part;
    if (row->count() > 0)
      row->addWidget(new TextLabel(QStringLiteral("›"), Look::Size::body, Look::Meaning::muted));
    row->addWidget(makeFlat(part, [this, path] { goTo(path); }));
  }
  static_cast<QHBoxLayout*>(row)->addStretch(1);
}

/// As it was called where it was copied from, which means one thing only.
QString RestorePage::pathOf(const QString& name) const {
  for (const auto& [top, source] : mTops)
    if (name == top || name.startsWith(top + '/')) return source + name.mid(top.size());
  return name;
}

void RestorePage::goTo(const QString& folder) {
  mFolder = folder;
  const QSignalBlocker quiet(mSearch);
  mSearch->clear();
  mSearchTimer->stop();
  loadItems();
}

void RestorePage::open(const Item& item) {
  if (item.isFolder) goTo(item.name);
}

const RestorePage::Item* RestorePage::itemOf(int row) const {
  return row >= 0 && row < static_cast<int>(mItems.size()) ? &mItems[static_cast<std::size_t>(row)]
                                                           : nullptr;
}

QStringList RestorePage::chosenNames() const {
  QStringList names;
  for (const QTreeWidgetItem* item : mList->selectedItems())
    if (const Item* const one = itemOf(item->data(0, kRowRole).toInt())) names << one->name;
  return names;
}

void RestorePage::showChosen() {
  const QStringList names = chosenNames();
  mFileChild.forget();
  mFileVersions->clear();
  mFileVersions->hide();
  mVersionsTitle->hide();
  mRestoreButton->setEnabled(!mRestoreChild.runs() && mFrom.isEmpty());
  mElsewhereButton->setEnabled(!mRestoreChild.runs());
  const Household& home = household();
  if (names.size() != 1) {
    mPreview->show({});
    const QString what = mFolder.isEmpty() ? home.text("RestoreEverything") : lastOf(mFolder);
    mName->setText(names.isEmpty() ? what : home.text("RestoreItems", {names.size()}));
    const auto size = mSizes.find(date());
    const bool isAll = names.isEmpty() && mFolder.count('/') == 0 && size != mSizes.end();
    mFacts->setText(
        isAll ? home.text("RestoreSizes", {size->second.first,
                                           home.strings().getShortSizeBytes(size->second.second)})
              : QString());
    return;
  }
  const auto chosen = std::ranges::find(mItems, names.front(), &Item::name);
  if (chosen == mItems.end()) return;
  mName->setText(lastOf(chosen->name));
  mFacts->setText(
      chosen->isFolder
          ? home.text("RestoreFolder")
          : home.text("RestoreFacts", {home.strings().getShortSizeBytes(chosen->bytes),
                                       home.strings().getMediumDateTime(chosen->changed)}));
  mPreview->show(chosen->isFolder ? QString() : chosen->path);
  if (chosen->isFolder) return;
  QStringList words{QStringLiteral("versions")};
  if (!mFrom.isEmpty()) words << QStringLiteral("--from") << mFrom;
  words << QStringLiteral("--");
  if (mFrom.isEmpty()) words << QString::number(mReference);
  words << pathOf(chosen->name);
  mFileChild.run(words, [this](const CommandChild::Ending& ending) { showFileVersions(ending); });
}

/// What did not change from one version to the next is one.
void RestorePage::showFileVersions(const CommandChild::Ending& ending) {
  const Household& home = household();
  struct Shown {
    int version;
    QString text;
  };
  std::vector<Shown> shown;
  ZAN_Value last;
  int index = -1;
  int current = -1;
  for (const ZAN_Value& version : ending.answer["versions"].elements()) {
    ++index;
    const bool isSame = last.isDictionary() &&
                        last["bytes"].doubleValue() == version["bytes"].doubleValue() &&
                        last["changed"].doubleValue() == version["changed"].doubleValue() &&
                        last.string("kind") == version.string("kind");
    last = version;
    if (!isSame && version.string("kind") == "none") {
      shown.push_back({index, QString()});
    } else if (!isSame) {
      shown.push_back(
          {index, home.text("RestoreVersion",
                            {home.strings().getShortTimeDate(version["date"].doubleValue()),
                             home.strings().getShortSizeBytes(version["bytes"].unsignedValue())})});
    }
    if (index <= mTimeLine->chosen() && !shown.empty()) current = shown.back().version;
  }
  mFileVersions->clear();
  for (auto one = shown.rbegin(); one != shown.rend() && mFileVersions->count() < kLongestVersions;
       ++one) {
    if (one->text.isEmpty()) continue;
    auto* item = new QListWidgetItem(one->text, mFileVersions);
    item->setData(kRowRole, one->version);
    if (one->version == current) mFileVersions->setCurrentItem(item);
  }
  const bool isAny = mFileVersions->count() > 0;
  mVersionsTitle->setVisible(isAny);
  mFileVersions->setVisible(isAny);
}

void RestorePage::askWhereTo() {
  auto* dialog = new QFileDialog(this, household().text("RestoreToTitle"));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  QObject::connect(dialog, &QFileDialog::fileSelected, this,
                   [this](const QString& folder) { restore(folder); });
  dialog->open();
}

/// What is chosen, else what is shown.
void RestorePage::restore(const QString& to) {
  if (mRestoreChild.runs() || mTimeLine->chosen() < 0) return;
  QStringList names = chosenNames();
  if (names.isEmpty() && !mFolder.isEmpty()) names << mFolder;
  QStringList paths;
  for (const QString& name : names) paths << pathOf(name);
  QStringList words{QStringLiteral("restore"), QStringLiteral("--progress"), QStringLiteral("--at"),
                    dateWord()};
  if (!to.isEmpty()) words << QStringLiteral("--to") << to;
  if (!mFrom.isEmpty()) words << QStringLiteral("--from") << mFrom;
  words << QStringLiteral("--");
  if (mFrom.isEmpty()) words << QString::number(mReference);
  words << paths;
  tell("well-accent",
       names.size() == 1 ? household().text("Restoring", {utf8(lastOf(names.front()))})
                         : household().text("RestoringAll"),
       {});
  mProgress->setRange(0, 0);
  mProgress->show();
  mStop->show();
  mCloseStrip->hide();
  mRestoreButton->setEnabled(false);
  mElsewhereButton->setEnabled(false);
  mRestoreChild.run(
      words, [this, to](const CommandChild::Ending& ending) { restoreEnded(ending, to); },
      [this](const ZAN_Value& news) { takeNews(news); });
}

void RestorePage::takeNews(const ZAN_Value& news) {
  if (news.contains("hold")) {
    mStripText->setText(qt(news.string("hold")));
    mStripText->setVisible(!mStripText->text().isEmpty());
    return;
  }
  const std::uint64_t all = news["filesInAll"].unsignedValue();
  if (all == 0) return;
  const std::uint64_t files = news["files"].unsignedValue();
  // Bytes and a little for each file, so that it moves with small ones, too.
  const auto work = [](std::uint64_t count, std::uint64_t bytes) {
    return static_cast<double>(bytes) + 4096.0 * static_cast<double>(count);
  };
  const double done =
      work(files, news["bytes"].unsignedValue()) / work(all, news["bytesInAll"].unsignedValue());
  constexpr int kParts = 1000;
  mProgress->setRange(0, kParts);
  mProgress->setValue(static_cast<int>(std::clamp(done, 0.0, 1.0) * kParts));
  mStripText->setText(
      household().text("RestoreOf", {files, all, lastOf(qt(news.string("path"))).toStdString()}));
  mStripText->show();
}

void RestorePage::restoreEnded(const CommandChild::Ending& ending, const QString& to) {
  const ZAN_Value& answer = ending.answer;
  const std::uint64_t files = answer["files"].unsignedValue();
  const auto& items = answer["items"];
  mRestoredTo = to;
  if (to.isEmpty() && !items.empty())
    mRestoredTo = QFileInfo(qt(items.at(0).stringView())).absolutePath();
  QStringList lines;
  if (!ending.isDone()) lines << qt(ending.reason);
  for (std::size_t index = 0; index < std::min<std::size_t>(answer["failed"].size(), 3); ++index)
    lines << qt(answer["failed"].at(index).stringView());
  if (const auto kept = answer["kept"].size(); kept > 0)
    lines << household().text("RestoreKept", {kept, answer["kept"].at(0).string()});
  if (const std::int64_t same = answer.integer("same"); same > 0)
    lines << household().text("RestoreSame", {same});
  tell(ending.isDone() ? "well-good" : "well-bad",
       ending.isDone()
           ? household().text("Restored", {files, household().strings().getShortSizeBytes(
                                                      answer["bytes"].unsignedValue())})
           : household().text("RestoreNotAll"),
       lines.join('\n'));
  mShowRestored->setVisible(!mRestoredTo.isEmpty());
  showChosen();
  loadItems();
}

void RestorePage::tell(const char* look, const QString& title, const QString& text) {
  Look::set(mStrip, look);
  mStripTitle->setText(title);
  mStripText->setText(text);
  mStripText->setVisible(!text.isEmpty());
  mProgress->hide();
  mStop->hide();
  mShowRestored->hide();
  mCloseStrip->show();
  mStrip->show();
}

}  // namespace corvana
