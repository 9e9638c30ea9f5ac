#include "application/RestorePage.h"

#include <QComboBox>
#include <QDateTime>
#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QLocale>
#include <QSignalBlocker>
#include <QStackedWidget>
#include <QTimer>
#include <QVBoxLayout>
#include <algorithm>

#include "application/ItemDetails.h"
#include "application/ProgressStrip.h"
#include "application/ServerPlace.h"
#include "application/TimeLine.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kSearchDelay = 300;  // ms
constexpr int kLoadDelay = 500;
// Of the chooser's data: another place is to be asked for.
constexpr int kFromFolder = -1;
constexpr int kFromServer = -2;

QTimer* delay(QWidget* page, int milliseconds, const std::function<void()>& then) {
  auto* timer = new QTimer(page);
  timer->setSingleShot(true);
  timer->setInterval(milliseconds);
  QObject::connect(timer, &QTimer::timeout, page, then);
  return timer;
}

void askForFolder(QWidget* page, const QString& title,
                  const std::function<void(const QString&)>& chosen) {
  auto* dialog = new QFileDialog(page, title);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::Directory);
  dialog->setOption(QFileDialog::ShowDirsOnly);
  QObject::connect(dialog, &QFileDialog::fileSelected, page, chosen);
  dialog->open();
}

}  // namespace

RestorePage::RestorePage(Household& household, Navigator& navigator)
    : Page(household, navigator),
      mChooser(new QComboBox),
      mSentence(new TextLabel({}, Look::Size::body, Look::Meaning::muted)),
      mSearch(new QLineEdit),
      mSearchTimer(delay(this, kSearchDelay, [this] { loadItems(); })),
      mLoadTimer(delay(this, kLoadDelay, [this] { loadVersions(); })),
      mStrip(new ProgressStrip(household)),
      mBody(new QStackedWidget),
      mNothingTitle(new TextLabel({}, Look::Size::heading)),
      mNothingText(new TextLabel({}, Look::Size::body, Look::Meaning::muted)),
      mFirstButtons(new QWidget),
      mBrowser(new VersionBrowser(household)),
      mDetails(new ItemDetails(household)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), Look::space(6));
  column->setSpacing(Look::space(4));
  column->addWidget(makeHeader());
  column->addWidget(makeTimeLine());
  column->addWidget(mStrip);
  auto* both = new QWidget;
  auto* row = new QHBoxLayout(both);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(Look::space(4));
  row->addWidget(mBrowser, 7);
  row->addWidget(mDetails, 4);
  mBody->addWidget(both);
  mBody->addWidget(makeNothing());
  column->addWidget(mBody, 1);

  mBrowser->onChosen = [this] { showChosen(); };
  mBrowser->onGone = [this] {
    const QSignalBlocker quiet(mSearch);
    mSearch->clear();
    mSearchTimer->stop();
    loadItems();
  };
  mBrowser->onShowFolder = [this] { showFolder(folderOfCopies()); };
  mDetails->onVersion = [this](int version) { mTimeLine->choose(version); };
  mDetails->onRestore = [this] { restore({}); };
  mDetails->onRestoreElsewhere = [this] { askWhereTo(); };
  mStrip->onStop = [this] { mRestoreChild.stop(); };
}

QWidget* RestorePage::makeHeader() {
  auto* header = new QWidget;
  auto* row = new QHBoxLayout(header);
  row->setContentsMargins(0, 0, 0, 0);
  row->setSpacing(Look::space(3));
  auto* words = new QVBoxLayout;
  words->setSpacing(Look::space(1));
  words->addWidget(new TextLabel(household().text("MainRestore"), Look::Size::title));
  words->addWidget(mSentence);
  row->addLayout(words, 1);
  auto* right = new QVBoxLayout;
  right->setSpacing(Look::space(2));
  mChooser->setAccessibleName(household().text("RestoreChooser"));
  mChooser->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
  mChooser->setMinimumContentsLength(20);
  QObject::connect(mChooser, &QComboBox::activated, this, [this](int at) { chooseSource(at); });
  right->addWidget(mChooser);
  mSearch->setPlaceholderText(household().text("RestoreSearch"));
  mSearch->setAccessibleName(household().text("RestoreSearch"));
  mSearch->setClearButtonEnabled(true);
  QObject::connect(mSearch, &QLineEdit::textChanged, mSearchTimer,
                   [this] { mSearchTimer->start(); });
  right->addWidget(mSearch);
  row->addLayout(right);
  return header;
}

QWidget* RestorePage::makeTimeLine() {
  auto* card = new Card;
  card->column()->setContentsMargins(Look::space(5), Look::space(3), Look::space(5),
                                     Look::space(3));
  mTimeLine = new TimeLine({.day =
                                [](ReferenceTime date) {
                                  return QLocale().toString(
                                      QDateTime::fromSecsSinceEpoch(
                                          static_cast<qint64>(date + kReferenceEpochInUnixTime)),
                                      QStringLiteral("d MMM"));
                                },
                            .full = [this](ReferenceTime date) { return timeText(date); },
                            .last = household().text("RestoreNow")});
  mTimeLine->setAccessibleName(household().text("RestoreTimeLine"));
  mTimeLine->onChosen = [this] {
    updateSentence();
    loadItems();
  };
  card->column()->addWidget(mTimeLine);
  return card;
}

QWidget* RestorePage::makeNothing() {
  auto* nothing = new QWidget;
  auto* column = new QVBoxLayout(nothing);
  column->setSpacing(Look::space(3));
  column->addStretch(1);
  auto* picture = new QLabel;
  picture->setPixmap(Look::picture(QStringLiteral("document-open-recent"), Look::space(16),
                                   Look::Meaning::accent));
  picture->setAlignment(Qt::AlignCenter);
  column->addWidget(picture);
  column->addSpacing(Look::space(2));
  for (TextLabel* label : {mNothingTitle, mNothingText}) {
    label->setAlignment(Qt::AlignHCenter);
    column->addWidget(label);
  }
  auto* buttons = new QVBoxLayout(mFirstButtons);
  buttons->setSpacing(Look::space(3));
  addInvitation(
      buttons, household().text("RestoreFirstBackup"), [this] { navigator().createBackup(); },
      true);
  addInvitation(buttons, household().text("RestoreFromFolder"), [this] { chooseFolder(); });
  addInvitation(buttons, household().text("RestoreFromServer"), [this] { askForServer({}); });
  column->addWidget(mFirstButtons);
  column->addStretch(2);
  return nothing;
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

/// Empty where they are in no folder of this machine.
QString RestorePage::folderOfCopies() const {
  if (!mSource.from.isEmpty()) return mSource.from.startsWith('/') ? mSource.from : QString();
  const ProgrammedAction* const action =
      household().actions().actionForReference(mSource.reference);
  return action == nullptr
             ? QString()
             : qt(ActionsTools::getDestinationForAction(action->getSettings()).path());
}

void RestorePage::choose(std::int64_t reference) {
  if (reference == 0 || (reference == mSource.reference && mSource.from.isEmpty())) return;
  setSource({.reference = reference});
}

void RestorePage::setSource(const CopiesSource& source) {
  mSource = source;
  mBrowser->setSource(source);
  const QSignalBlocker quiet(mSearch);
  mSearch->clear();
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
  const auto at = [this] { return mChooser->findData(static_cast<qlonglong>(mSource.reference)); };
  if (mSource.from.isEmpty() && (mSource.reference == 0 || at() < 0))
    setSource({.reference = actions.empty() ? 0 : actions.front()->getReference()});
  if (!mSource.from.isEmpty()) mChooser->addItem(mSource.from, 0);
  mChooser->insertSeparator(mChooser->count());
  mChooser->addItem(household().text("RestoreFromFolder"), kFromFolder);
  mChooser->addItem(household().text("RestoreFromServer"), kFromServer);
  mChooser->setCurrentIndex(at());
}

void RestorePage::chooseSource(int row) {
  const qlonglong chosen = mChooser->itemData(row).toLongLong();
  if (chosen == kFromFolder || chosen == kFromServer) {
    fillChooser();
    return chosen == kFromFolder ? chooseFolder() : askForServer({});
  }
  setSource(chosen > 0 ? CopiesSource{.reference = chosen} : mSource);
  loadVersions();
}

void RestorePage::chooseFolder() {
  askForFolder(this, household().text("RestoreFromTitle"), [this](const QString& folder) {
    // A repository wants its password.
    if (QFileInfo(folder + QStringLiteral("/config")).isFile() &&
        QFileInfo(folder + QStringLiteral("/snapshots")).isDir())
      return askForServer(folder);
    restoreFrom(folder);
  });
}

void RestorePage::askForServer(const QString& address) {
  auto* dialog = new RepositoryDialog(this, household(), address);
  dialog->onOpened = [this](const QString& place) { restoreFrom(place); };
  dialog->open();
}

void RestorePage::restoreFrom(const QString& place) {
  setSource({.from = place});
  fillChooser();
  loadVersions();
}

void RestorePage::loadVersions() {
  mBrowser->setShowsFolder(!folderOfCopies().isEmpty());
  if (mSource.isNone()) {
    mTimeLine->setDates({});
    updateSentence();
    return showNothing(household().text("RestoreNoneTitle"), household().text("RestoreNoneText"));
  }
  mVersionsChild.run(mSource.words({QStringLiteral("versions")}),
                     [this](const CommandChild::Ending& ending) { takeVersions(ending); });
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
    return showNothing(household().text("RestoreNoVersions"), household().said(ending.reason));
  }
  std::ranges::sort(dates);
  mChooser->show();
  showVersionParts(true);
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

/// Without versions there is nothing to look through.
void RestorePage::showVersionParts(bool isAny) {
  mBody->setCurrentIndex(isAny ? 0 : 1);
  mSearch->setVisible(isAny);
  mTimeLine->parentWidget()->setVisible(isAny);
}

void RestorePage::showNothing(const QString& title, const QString& text) {
  mNothingTitle->setText(title);
  mNothingText->setText(text);
  mFirstButtons->setVisible(mSource.isNone());
  mChooser->setVisible(!mSource.isNone());
  showVersionParts(false);
}

void RestorePage::updateSentence() {
  mSentence->setText(mTimeLine->chosen() < 0
                         ? QString()
                         : household().text("RestoreSentence", {utf8(timeText(date()))}));
}

void RestorePage::loadItems() {
  if (mTimeLine->chosen() < 0) return;
  mBrowser->load(dateWord(), mSearch->text().trimmed());
}

void RestorePage::showChosen() {
  const bool isFree = !mRestoreChild.runs();
  mDetails->setPossible(isFree && mSource.from.isEmpty(), isFree);
  const std::vector<CopiedItem> chosen = mBrowser->chosen();
  if (chosen.size() == 1)
    return mDetails->showItem(mSource, chosen.front(), mBrowser->pathOf(chosen.front().name),
                              {mTimeLine->chosen(), dateWord()});
  if (!chosen.empty())
    return mDetails->showSeveral(household().text("RestoreItems", {chosen.size()}), {});
  const auto size = mSizes.find(date());
  mDetails->showSeveral(
      mBrowser->folder().isEmpty() ? household().text("RestoreEverything")
                                   : CopiedItem::lastOf(mBrowser->folder()),
      mBrowser->isAll() && size != mSizes.end()
          ? household().text(
                "RestoreSizes",
                {size->second.first, household().strings().getShortSizeBytes(size->second.second)})
          : QString());
}

void RestorePage::askWhereTo() {
  askForFolder(this, household().text("RestoreToTitle"),
               [this](const QString& folder) { restore(folder); });
}

/// What is chosen, else what is shown.
void RestorePage::restore(const QString& to) {
  if (mRestoreChild.runs() || mTimeLine->chosen() < 0) return;
  QStringList names;
  for (const CopiedItem& item : mBrowser->chosen()) names << item.name;
  if (names.isEmpty() && !mBrowser->folder().isEmpty()) names << mBrowser->folder();
  QStringList paths;
  for (const QString& name : names) paths << mBrowser->pathOf(name);
  QStringList words{QStringLiteral("restore"), QStringLiteral("--progress"), QStringLiteral("--at"),
                    dateWord()};
  if (!to.isEmpty()) words << QStringLiteral("--to") << to;
  mStrip->begin(names.size() == 1
                    ? household().text("Restoring", {utf8(CopiedItem::lastOf(names.front()))})
                    : household().text("RestoringAll"));
  mDetails->setPossible(false, false);
  mRestoreChild.run(
      mSource.words(words, paths),
      [this, to](const CommandChild::Ending& ending) { restoreEnded(ending, to); },
      [this](const ZAN_Value& news) { takeNews(news); });
}

void RestorePage::takeNews(const ZAN_Value& news) {
  if (news.contains("hold")) return mStrip->wait(qt(news.string("hold")));
  const std::uint64_t all = news["filesInAll"].unsignedValue();
  if (all == 0) return;
  const std::uint64_t files = news["files"].unsignedValue();
  // Bytes and a little for each file, so that it moves with small ones, too.
  const auto work = [](std::uint64_t count, std::uint64_t bytes) {
    return static_cast<double>(bytes) + 4096.0 * static_cast<double>(count);
  };
  const double done =
      work(files, news["bytes"].unsignedValue()) / work(all, news["bytesInAll"].unsignedValue());
  mStrip->goOn(household().text("RestoreOf",
                                {files, all, utf8(CopiedItem::lastOf(qt(news.string("path"))))}),
               done);
}

void RestorePage::restoreEnded(const CommandChild::Ending& ending, const QString& to) {
  const ZAN_Value& answer = ending.answer;
  const std::uint64_t files = answer["files"].unsignedValue();
  const auto& items = answer["items"];
  const QString folder =
      !to.isEmpty() || items.empty() ? to : QFileInfo(qt(items.at(0).stringView())).absolutePath();
  QStringList lines;
  if (!ending.isDone()) lines << household().said(ending.reason);
  for (std::size_t index = 0; index < std::min<std::size_t>(answer["failed"].size(), 3); ++index)
    lines << qt(answer["failed"].at(index).stringView());
  if (const auto kept = answer["kept"].size(); kept > 0)
    lines << household().text("RestoreKept", {kept, answer["kept"].at(0).string()});
  if (const std::int64_t same = answer.integer("same"); same > 0)
    lines << household().text("RestoreSame", {same});
  mStrip->end(ending.isDone(),
              ending.isDone()
                  ? household().text("Restored", {files, household().strings().getShortSizeBytes(
                                                             answer["bytes"].unsignedValue())})
                  : household().text("RestoreNotAll"),
              lines.join('\n'), folder);
  showChosen();
  loadItems();
}

}  // namespace corvana
