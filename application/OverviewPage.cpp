#include "application/OverviewPage.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "application/Banner.h"
#include "application/Look.h"
#include "application/NetworkMachines.h"
#include "command/ActionDraft.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kLater = 60;       // ms
constexpr int kProgress = 1000;  // ms
constexpr std::size_t kManyBackups = 8;
constexpr int kWidest = 190;  ///< of the cards, in characters

}  // namespace

OverviewPage::OverviewPage(Household& household, Navigator& navigator)
    : Page(household, navigator),
      mStack(new QStackedWidget),
      mScroll(new QScrollArea),
      mBanner(new Banner),
      mTold(new Banner),
      mSearch(new QLineEdit),
      mHooks(hooks()),
      mList(new CardList(household, mHooks, *mScroll)),
      mNetwork(new NetworkMachines(household)) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->addWidget(mStack);
  mStack->addWidget(listPage());
  mStack->addWidget(emptyPage());
  mLater.setSingleShot(true);
  mLater.setInterval(kLater);
  QObject::connect(&mLater, &QTimer::timeout, this, [this] { read(); });
  mProgress.setInterval(kProgress);
  QObject::connect(&mProgress, &QTimer::timeout, this, [this] {
    if (isVisible()) this->household().askAgent();
  });
}

QWidget* OverviewPage::emptyPage() {
  auto* page = new QScrollArea;
  page->setFocusPolicy(Qt::NoFocus);
  page->setAlignment(Qt::AlignHCenter);
  auto* column = makeScrollingColumn(page, kWidest);
  mEmptyColumn = column;
  column->setSpacing(Look::space(3));
  column->setContentsMargins(Look::space(8), Look::space(4), Look::space(8), Look::space(8));
  auto* picture = new QLabel;
  picture->setPixmap(
      Look::picture(QStringLiteral("chronometer-large"), Look::space(22), Look::Meaning::accent));
  picture->setAlignment(Qt::AlignCenter);
  auto* title = new TextLabel(household().text("FirstTitle"), Look::Size::title);
  title->setAlignment(Qt::AlignCenter);
  auto* text = new TextLabel(household().text("FirstText"), Look::Size::body, Look::Meaning::muted);
  text->setAlignment(Qt::AlignCenter);
  text->setFixedWidth(64 * fontMetrics().averageCharWidth());
  // Centred, it would be given the height of the lines that it has when it is as wide as it likes.
  text->setMinimumHeight(text->heightForWidth(text->width()));
  column->addStretch(2);
  column->addWidget(picture);
  column->addSpacing(Look::space(3));
  column->addWidget(title);
  column->addWidget(text, 0, Qt::AlignHCenter);
  column->addSpacing(Look::space(3));
  addInvitation(
      column, household().text("FirstCreate"), [this] { navigator().createBackup(); }, true);
  addInvitation(column, household().text("FirstRestore"), [this] { navigator().showRestore(0); });
  column->addStretch(3);
  return page;
}

QWidget* OverviewPage::listPage() {
  QVBoxLayout* const column = makeScrollingColumn(mScroll, kWidest);
  mScroll->setAccessibleName(household().text("OverviewBackups"));
  const int side = Look::space(7);
  column->setContentsMargins(side, Look::space(6), side, Look::space(6));
  column->setSpacing(Look::space(3));
  column->addWidget(mTold);
  mTold->hide();
  column->addWidget(mBanner);
  column->addSpacing(Look::space(2));
  auto* head = new QHBoxLayout;
  head->setSpacing(Look::space(2));
  head->addWidget(new TextLabel(household().text("OverviewBackups"), Look::Size::heading), 1);
  mSearch->setPlaceholderText(household().text("OverviewSearch"));
  mSearch->setAccessibleName(household().text("OverviewSearch"));
  mSearch->setClearButtonEnabled(true);
  QObject::connect(mSearch, &QLineEdit::textChanged, this, [this] { showCards(); });
  head->addWidget(mSearch);
  head->addWidget(makeButton(
      household().text("OverviewNew"), [this] { navigator().createBackup(); }, true));
  column->addLayout(head);
  column->addWidget(mList);
  mListColumn = column;
  column->addWidget(mNetwork);
  column->addStretch(1);
  mList->onFill = [this](BackupCard& card, std::size_t row) { fillCard(card, mFacts[mRows[row]]); };
  mList->onLook = [this](std::int64_t reference, const CardList::Place& place) {
    return lookAt(reference, place);
  };
  mList->onDrop = [this](std::int64_t reference, const CardList::Place& place) {
    moveTo(reference, place);
  };
  return mScroll;
}

void OverviewPage::tell(const QString& sentence) {
  mTold->setVisible(!sentence.isEmpty());
  mTold->say(Look::Meaning::accent, sentence, {}, household().text("CloseButton"),
             [this] { mTold->hide(); });
}

void OverviewPage::refresh(ChangeSet changed) {
  if (changed.hasAnyOf({Change::tree, Change::history, Change::volumes, Change::preferences,
                        Change::messages})) {
    if (mFacts.empty()) return read();
    if (!mLater.isActive()) mLater.start();
    return;
  }
  if (changed.hasAnyOf({Change::execution, Change::progress, Change::queue})) show();
}

void OverviewPage::read() {
  mRows.clear();
  mFacts = factsOf(household());
  show();
}

void OverviewPage::show() {
  const bool isLost = areBackupsLost();
  mStack->setCurrentIndex(mFacts.empty() && !isLost ? 1 : 0);
  placeNetwork();
  const bool isRunning = !household().status()["current"].isNull();
  if (isRunning != mProgress.isActive()) isRunning ? mProgress.start() : mProgress.stop();
  if (isLost)
    mBanner->say(Look::Meaning::bad, household().text("BannerLost"),
                 household().text("BannerLostText"), household().text("MainSettings"),
                 [this] { navigator().showSettings(); });
  if (mFacts.empty() && !isLost) return;
  if (!isLost) showBanner();
  showCards();
}

/// None is shown, and that is not because there is none.
bool OverviewPage::areBackupsLost() const {
  ActionStore& store = household().store();
  return mFacts.empty() &&
         store.files().troubles().contains(store.folder().pathOf(DataFolder::kActions));
}

/// Who has no backup here may yet want to see how those of other machines stand.
void OverviewPage::placeNetwork() {
  QVBoxLayout* const column = mFacts.empty() ? mEmptyColumn : mListColumn;
  mNetwork->setQuiet(mFacts.empty());
  if (column->indexOf(mNetwork) >= 0) return;
  // Above the last stretch; adding takes it from the other page.
  column->insertWidget(column->count() - 1, mNetwork);
}

void OverviewPage::showBanner() {
  const auto say = [this](Look::Meaning meaning, const QString& title, const QString& text,
                          const QString& button = {}, std::function<void()> mend = {}) {
    mBanner->say(meaning, title, text, button, std::move(mend));
  };
  const ZAN_Value& status = household().status();
  switch (household().agent()) {
    case Household::Agent::absent:
      return say(Look::Meaning::bad, household().text("BannerNoAgent"),
                 household().text("BannerNoAgentText"), household().text("BannerStartAgent"),
                 [this] { household().startAgent(); });
    case Household::Agent::silent:
      return say(Look::Meaning::caution, household().text("BannerSilentAgent"),
                 household().text("BannerSilentAgentText"));
    case Household::Agent::elsewhere:
      return say(Look::Meaning::caution, household().text("BannerOtherAgent"),
                 household().text("BannerOtherAgentText"));
    case Household::Agent::unknown:
    case Household::Agent::answers:
      break;
  }
  if (status["otherStartupDisk"].boolValue())
    return say(Look::Meaning::caution, household().text("BannerOtherDisk"),
               household().text("BannerOtherDiskText"), household().text("BannerOtherDiskButton"),
               [this] { household().tellAgent("ConfirmStartupDisk"); });
  const Circumstances circumstances = household().circumstances();
  if (circumstances.disabled)
    return say(
        Look::Meaning::caution, household().text("BannerDisabled"),
        household().text("BannerDisabledText"), household().text("BannerEnable"), [this] {
          household().tellAgent("ActivateExecution", ZAN_Value::dictionary({{"Activate", true}}));
        });
  const auto needsCare = std::ranges::count_if(mFacts, &BackupFacts::needsCare);
  if (needsCare > 0) {
    // The gravest first.
    const auto worst = std::ranges::max_element(mFacts, {}, [](const BackupFacts& facts) {
      return facts.isBad() ? 3 : facts.needsCare() ? 2 : 0;
    });
    const BackupFacts& facts = *worst;
    const std::int64_t reference = facts.reference;
    const Look::Meaning meaning = facts.isBad() ? Look::Meaning::bad : Look::Meaning::caution;
    const QString title = needsCare == 1 ? household().text("BannerOneNeedsCare")
                                         : household().text("BannerNeedCare", {needsCare});
    if (facts.deletionsToConfirm > 0 && !facts.isBad())
      return say(meaning, title,
                 household().text("BannerDeletions", {facts.title, facts.deletionsToConfirm}),
                 household().text("BannerLook"),
                 [this, reference, count = facts.deletionsToConfirm] {
                   confirmDeletions(reference, count);
                 });
    if (!facts.isComplete)
      return say(meaning, title, household().text("BannerIncomplete", {facts.title}),
                 household().text("BannerChange"),
                 [this, reference] { navigator().changeBackup(reference); });
    if (facts.onlyLacks && !facts.isFailureSeen && !facts.overdueSince)
      return say(meaning, title, household().text("BannerLacking", {facts.title}),
                 household().text("BannerLeaveOut"), [this, reference] { leaveOut(reference); });
    if (facts.isAway() || (facts.failure && !facts.isFailureSeen))
      return sayWhatFailed(meaning, title, facts);
    return say(meaning, title,
               household().text("BannerOverdue", {facts.title, lastSuccessOf(facts)}),
               household().text("BannerRun"), [this, reference] { run(reference); });
  }
  if (status["storage"].size() > 0)
    return say(Look::Meaning::bad, household().text("BannerStorage"),
               qt(status["storage"].elements().front().string()));
  if (circumstances.paused)
    return say(Look::Meaning::caution, household().text("BannerPaused"),
               household().text("BannerPausedText"), household().text("CardContinue"),
               [this] { pause(false); });
  const auto last = std::ranges::max_element(
      mFacts, {}, [](const BackupFacts& facts) { return facts.lastSuccess.value_or(0); });
  if (const ZAN_Value& current = status["current"]; !current.isNull())
    return say(Look::Meaning::accent, household().text("BannerRunning"),
               household().text("BannerRunningText", {current.string("title")}));
  if (const auto unmended = std::ranges::find_if(mFacts, &BackupFacts::isUnmended);
      unmended != mFacts.end())
    return sayWhatFailed(Look::Meaning::caution, household().text("BannerUnmended"), *unmended);
  if (!last->lastSuccess)
    return say(Look::Meaning::accent, household().text("BannerFresh"),
               household().text("BannerFreshText"), household().text("BannerRun"),
               [this, reference = last->reference] { run(reference); });
  say(Look::Meaning::good, household().text("BannerWell"),
      household().text("BannerWellText",
                       {last->title, pastDateOf(household(), *last->lastSuccess)}));
}

std::string OverviewPage::lastSuccessOf(const BackupFacts& facts) const {
  return facts.lastSuccess ? pastDateOf(household(), *facts.lastSuccess)
                           : utf8(household().text("BannerNever"));
}

/// With the button that mends it.
void OverviewPage::sayWhatFailed(Look::Meaning meaning, const QString& title,
                                 const BackupFacts& facts) {
  const std::int64_t reference = facts.reference;
  const std::string since = lastSuccessOf(facts);
  if (facts.isAway())
    return mBanner->say(
        meaning, title,
        household().text("BannerNotConnected", {facts.title, facts.destination, since}),
        household().text("BannerWhy"), [this, reference] { explain(reference); });
  mBanner->say(meaning, title,
               household().text("BannerFailed", {facts.title, facts.shortReason(), since}),
               household().text(facts.mayTakeOver ? "BannerLook" : "BannerAgain"),
               [this, reference, takesOver = facts.mayTakeOver] {
                 takesOver ? takeOver(reference) : run(reference);
               });
}

BackupCard::Hooks OverviewPage::hooks() {
  BackupCard::Hooks hooks;
  hooks.run = [this](std::int64_t reference) { run(reference); };
  hooks.why = [this](std::int64_t reference) { explain(reference); };
  hooks.restore = [this](std::int64_t reference) { navigator().showRestore(reference); };
  hooks.change = [this](std::int64_t reference) { navigator().changeBackup(reference); };
  hooks.history = [this](std::int64_t reference) { navigator().showHistory(reference, false); };
  hooks.duplicate = [this](std::int64_t reference) { duplicate(reference); };
  hooks.move = [this](std::int64_t reference, int places) { move(reference, places); };
  hooks.remove = [this](std::int64_t reference) { remove(reference); };
  hooks.seen = [this] { markAsSeen(); };
  hooks.confirmDeletions = [this](std::int64_t reference) {
    if (const BackupFacts* facts = factsFor(reference))
      confirmDeletions(reference, facts->deletionsToConfirm);
  };
  hooks.leaveOut = [this](std::int64_t reference) { leaveOut(reference); };
  hooks.takeOver = [this](std::int64_t reference) { takeOver(reference); };
  hooks.pause = [this](bool isPaused) { pause(isPaused); };
  hooks.stop = [this] { household().tellAgent("StopExecution"); };
  return hooks;
}

const BackupFacts* OverviewPage::factsFor(std::int64_t reference) const {
  const auto found = std::ranges::find(mFacts, reference, &BackupFacts::reference);
  return found == mFacts.end() ? nullptr : &*found;
}

void OverviewPage::showCards() {
  mSearch->setVisible(mFacts.size() > kManyBackups);
  mQueued.clear();
  for (const ZAN_Value& record : household().queue().elements())
    if (!record["running"].boolValue()) mQueued.insert(record.integer("ref"));
  const QString wanted = mSearch->text().trimmed();
  mRows.clear();
  std::vector<std::int64_t> references;
  for (std::size_t index = 0; index < mFacts.size(); ++index) {
    const BackupFacts& facts = mFacts[index];
    if (wanted.isEmpty() ||
        qt(facts.title + '\n' + facts.group + '\n' + facts.sources + '\n' + facts.destination)
            .contains(wanted, Qt::CaseInsensitive)) {
      mRows.push_back(index);
      references.push_back(facts.reference);
    }
  }
  mList->setRows(std::move(references));
}

void OverviewPage::fillCard(BackupCard& card, const BackupFacts& facts) {
  const ZAN_Value& status = household().status();
  const ZAN_Value& current = status["current"];
  card.show(facts, current.integer("ref") == facts.reference ? current : ZAN_Value(),
            mQueued.contains(facts.reference), status["paused"].boolValue());
}

void OverviewPage::run(std::int64_t reference) {
  household().launch(reference, [this](const Result<ZAN_Value>& answer) {
    if (!answer) return complain(answer.error());
    household().askAgent();
  });
}

void OverviewPage::explain(std::int64_t reference) {
  const std::string title = household().tree().titleOf(reference);
  mWhyChild.run(
      {QStringLiteral("why"), QStringLiteral("--"), QString::number(reference)},
      [this, title](const CommandChild::Ending& ending) {
        if (!ending.isDone())
          return complain(Error{ErrorKind::unavailable, utf8(household().said(ending.reason))});
        QStringList lines;
        for (const ZAN_Value& reason : ending.answer["reasons"].elements())
          lines << QStringLiteral("•  ") + qt(reason.string("text"));
        const bool agentRuns = ending.answer["agent"].boolValue();
        if (lines.isEmpty()) lines << household().text(agentRuns ? "WhyDueSoon" : "WhyDue");
        mTold->say(Look::Meaning::caution, household().text("OverviewWhy", {title}),
                   lines.join('\n'), household().text("CloseButton"), [this] { mTold->hide(); });
        mTold->show();
        mScroll->verticalScrollBar()->setValue(0);
      });
}

void OverviewPage::pause(bool isPaused) {
  const ZAN_Value details = ZAN_Value::dictionary({{"Pause", isPaused}});
  household().tellAgent("ActionPause", details);
  household().tellExecution("ActionPause", details);
}

void OverviewPage::markAsSeen() { household().tellAgent("ErrorsWereSeen"); }

void OverviewPage::confirmDeletions(std::int64_t reference, std::int64_t count) {
  ask(household().text("ConfirmTitle"), household().text("ConfirmText", {count}),
      household().text("ConfirmButton", {count}), [this, reference, count] {
        complain(household().edit([&](ProgrammedAction& root) -> Outcome {
          const auto confirmed = corvana::confirmDeletions(root, reference, count);
          return confirmed ? Outcome() : confirmed.error();
        }));
      });
}

void OverviewPage::runChanged(std::int64_t reference, void (*change)(ZAN_Value& record)) {
  const Outcome changed = household().edit([&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* action = root.actionForReference(reference);
    if (action == nullptr) return {};
    ZAN_Value record = action->getSettings();
    change(record);
    action->changeSettings(record);
    return {};
  });
  complain(changed);
  if (changed) run(reference);
}

void OverviewPage::leaveOut(std::int64_t reference) {
  runChanged(reference, [](ZAN_Value& record) { ActionsTools::leaveOutMissing(record); });
}

void OverviewPage::takeOver(std::int64_t reference) {
  const BackupFacts* const facts = factsFor(reference);
  if (facts == nullptr) return;
  ask(household().text("TakeOverTitle", {facts->destination}), household().text("TakeOverText"),
      household().text("TakeOverButton"), [this, reference] {
        runChanged(reference, [](ZAN_Value& record) { record.setValue(CopyKey::takesOver, 1); });
      });
}

void OverviewPage::duplicate(std::int64_t reference) {
  complain(household().edit([&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* action = root.actionForReference(reference);
    if (action != nullptr) action->createActionCopy();
    return {};
  }));
}

void OverviewPage::move(std::int64_t reference, int places) {
  complain(household().edit([&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* const action = root.actionForReference(reference);
    if (action == nullptr || action->parent() == nullptr) return {};
    ProgrammedAction& group = *action->parent();
    const auto at = static_cast<std::int64_t>(group.indexOfChild(*action).value_or(0));
    // Its place is counted before it leaves the old one.
    const std::int64_t wanted = at + places + (places > 0 ? 1 : 0);
    if (wanted >= 0)
      action->moveActionTo(group, static_cast<std::size_t>(wanted), SortMode::manual);
    return {};
  }));
}

std::optional<QString> OverviewPage::lookAt(std::int64_t reference,
                                            const CardList::Place& place) const {
  const BackupFacts* const moved = factsFor(reference);
  const BackupFacts* const other = factsFor(place.other);
  if (moved == nullptr || other == nullptr || moved == other) return {};
  const bool isSameGroup = moved->groupReference == other->groupReference;
  if (isSameGroup && (place.isBehind ? other + 1 == moved : moved + 1 == other)) return {};
  return isSameGroup            ? QString()
         : other->group.empty() ? household().text("DropOutOfGroup")
                                : household().text("DropIntoGroup", {other->group});
}

void OverviewPage::moveTo(std::int64_t reference, const CardList::Place& place) {
  complain(household().edit([&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* const action = root.actionForReference(reference);
    ProgrammedAction* const other = root.actionForReference(place.other);
    if (action == nullptr || other == nullptr || other->parent() == nullptr)
      return Error{ErrorKind::absent, utf8(household().text("DropGone"))};
    ProgrammedAction& group = *other->parent();
    const std::size_t at = group.indexOfChild(*other).value_or(0) + (place.isBehind ? 1 : 0);
    action->moveActionTo(group, at, SortMode::manual);
    return {};
  }));
}

void OverviewPage::remove(std::int64_t reference) {
  ask(household().text("RemoveTitle", {household().tree().titleOf(reference)}),
      household().text("RemoveText"), household().text("RemoveButton"), [this, reference] {
        complain(household().edit([&](ProgrammedAction& root) -> Outcome {
          if (ProgrammedAction* action = root.actionForReference(reference))
            action->removeFromList();
          return {};
        }));
      });
}

void OverviewPage::ask(const QString& title, const QString& text, const QString& button,
                       std::function<void()> then) {
  auto* question = new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::NoButton, this);
  question->setInformativeText(text);
  question->setAttribute(Qt::WA_DeleteOnClose);
  QPushButton* yes = question->addButton(button, QMessageBox::AcceptRole);
  question->setDefaultButton(
      question->addButton(household().text("CancelButton"), QMessageBox::RejectRole));
  QObject::connect(yes, &QPushButton::clicked, this, [then = std::move(then)] { then(); });
  question->open();
}

void OverviewPage::complain(const Outcome& outcome) {
  if (outcome) return;
  tell(household().text("OverviewCouldNot", {utf8(household().said(outcome.error().text))}));
}

}  // namespace corvana
