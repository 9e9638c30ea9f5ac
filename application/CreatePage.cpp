#include "application/CreatePage.h"

#include <QHBoxLayout>
#include <QLineEdit>
#include <QProgressBar>
#include <QScrollArea>
#include <QScrollBar>
#include <QVBoxLayout>
#include <array>
#include <memory>
#include <utility>

#include "application/BackupFacts.h"
#include "application/Banner.h"
#include "application/DetailsStep.h"
#include "application/Look.h"
#include "application/WhatStep.h"
#include "application/WhenStep.h"
#include "application/WhereStep.h"
#include "core/record/SchedulerLog.h"
#include "desktop/Texts.h"
#include "ui/windows/WindowWords.h"

namespace corvana {

namespace {

constexpr int kWidest = 120;  ///< of the page, in characters
constexpr int kPerCent = 100;

}  // namespace

CreatePage::CreatePage(Household& household, Navigator& navigator)
    : Page(household, navigator),
      mScroll(new QScrollArea),
      mNumber(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mTitle(new TextLabel({}, Look::Size::title)),
      mTrouble(new Banner),
      mWhat(new WhatStep(household)),
      mWhere(new WhereStep(household)),
      mWhen(new WhenStep(household)),
      mDetails(new DetailsStep(household)),
      mNameRow(new QWidget),
      mName(new QLineEdit),
      mRun(new QWidget),
      mRunBanner(new Banner),
      mProgress(new QProgressBar),
      mProgressText(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mBack(makeButton(household.text("CreateBack"), [this] { goBack(); })),
      mSave(makeButton(household.text("CreateSave"), [this] { save(false); })),
      mNext(makeButton(
          {}, [this] { goOn(); }, true)) {
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  outer->setSpacing(0);
  mScroll->setAccessibleName(household.text("OverviewNew"));
  QVBoxLayout* const column = makeScrollingColumn(mScroll, kWidest);
  const int side = Look::space(8);
  column->setContentsMargins(side, Look::space(6), side, Look::space(4));
  column->setSpacing(Look::space(2));
  column->addWidget(mNumber);
  column->addWidget(mTitle);
  column->addSpacing(Look::space(3));
  column->addWidget(mTrouble);
  auto* name = new QHBoxLayout(mNameRow);
  name->setContentsMargins(0, 0, 0, 0);
  name->addWidget(new TextLabel(household.text("CreateName")));
  mName->setAccessibleName(household.text("CreateName"));
  name->addWidget(mName, 1);
  column->addWidget(mNameRow);
  const std::array<QWidget*, 4> steps{mWhat, mWhere, mWhen, mDetails};
  const std::array<QString, 4> heads{
      household.text("CreateWhatHead"), household.text("CreateWhereHead"),
      household.text("CreateWhenHead"), household.text("CreateDetailsHead")};
  for (std::size_t i = 0; i < steps.size(); ++i) {
    mHeads[i] = new TextLabel(heads[i], Look::Size::heading);
    mHeads[i]->setContentsMargins(0, Look::space(3), 0, 0);
    column->addWidget(mHeads[i]);
    column->addWidget(steps[i]);
  }
  auto* run = new QVBoxLayout(mRun);
  run->setContentsMargins(0, 0, 0, 0);
  run->setSpacing(Look::space(3));
  run->addWidget(mRunBanner);
  run->addWidget(mProgress);
  run->addWidget(mProgressText);
  mProgress->setTextVisible(false);
  mProgress->setAccessibleName(household.text("CardRunning"));
  column->addWidget(mRun);
  column->addStretch(1);
  outer->addWidget(mScroll, 1);
  auto* foot = new QWidget;
  auto* buttons = new QHBoxLayout(foot);
  buttons->setContentsMargins(side, Look::space(3), side, Look::space(5));
  buttons->setSpacing(Look::space(2));
  buttons->addWidget(mBack);
  buttons->addStretch(1);
  buttons->addWidget(mSave);
  buttons->addWidget(mNext);
  foot->setMaximumWidth(kWidest * fontMetrics().averageCharWidth());
  outer->addWidget(foot);

  mWhat->onChange = [this] {
    mWhere->refresh(mWhat->bytes());
    update();
  };
  mWhere->onChange = [this] {
    mWhen->setVolume(mWhere->volume());
    update();
  };
  mWhen->onChange = [this] { update(); };
}

void CreatePage::begin() {
  ++mSerial;
  mIsNew = true;
  mReference = 0;
  mIsSaving = false;
  mStarted.reset();
  mProposedName.clear();
  mName->clear();
  mWhat->begin();
  mWhere->begin();
  mWhen->begin();
  mWhen->setVolume(mWhere->volume());
  showStep(what);
}

bool CreatePage::change(std::int64_t reference) {
  const ProgrammedAction* action = household().actions().actionForReference(reference);
  if (action == nullptr) return false;
  ++mSerial;
  mIsNew = false;
  mReference = reference;
  mIsSaving = false;
  mStarted.reset();
  const ZAN_Value settings = action->getSettings();
  mName->setText(qt(action->getTitle()));
  mWhat->show(settings);
  mWhere->show(settings);
  mWhen->show(settings);
  mDetails->show(*action);
  mWhen->setVolume(mWhere->volume());
  showAll();
  return true;
}

void CreatePage::refresh(ChangeSet changed) {
  if (changed.has(Change::volumes) && !mStarted) {
    mWhere->refresh(mWhat->bytes());
    update();
  }
  if (mStarted && changed.hasAnyOf({Change::history, Change::messages, Change::progress,
                                    Change::queue, Change::execution}))
    showRun();
}

void CreatePage::showStep(int step) {
  mStep = step;
  mTrouble->hide();
  mSaysAway = false;
  for (TextLabel* head : mHeads) head->hide();
  mWhat->setVisible(step == what);
  mWhere->setVisible(step == where);
  mWhen->setVisible(step == when);
  mDetails->hide();
  mRun->setVisible(step == first);
  mNumber->setVisible(step != first);
  mNumber->setText(household().text("CreateStep", {step + 1}));
  if (step == when) {
    // One that was not typed follows what was chosen.
    if (mName->text().isEmpty() || mName->text() == mProposedName)
      mName->setText(mWhat->proposedTitle());
    mProposedName = mWhat->proposedTitle();
  }
  mNameRow->setVisible(step == when);
  mTitle->setText(household().text(step == what    ? "CreateWhat"
                                   : step == where ? "CreateWhere"
                                   : step == when  ? "CreateWhen"
                                                   : "CreateFirst"));
  mScroll->verticalScrollBar()->setValue(0);
  update();
}

void CreatePage::showAll() {
  mTrouble->hide();
  mSaysAway = false;
  for (TextLabel* head : mHeads) head->show();
  for (QWidget* one : std::initializer_list<QWidget*>{mWhat, mWhere, mWhen, mDetails, mNameRow})
    one->show();
  mRun->hide();
  mNumber->hide();
  mTitle->setText(household().text("CreateChange", {utf8(mName->text())}));
  mScroll->verticalScrollBar()->setValue(0);
  update();
}

void CreatePage::update() {
  const bool hasWhat = !mWhat->folders().empty();
  const bool hasWhere = mWhere->isComplete();
  mBack->setText(household().text(!mIsNew || mStep == what ? "CancelButton" : "CreateBack"));
  mBack->setVisible(!mIsNew || mStep != first);
  mSave->setVisible(mIsNew && mStep == when);
  mNext->setText(household().text(!mIsNew          ? "CreateSave"
                                  : mStep == when  ? "CardRun"
                                  : mStep == first ? "CreateDone"
                                                   : "CreateNext"));
  const bool isReady = !mIsNew          ? hasWhat && hasWhere
                       : mStep == what  ? hasWhat
                       : mStep == first ? true
                                        : hasWhat && hasWhere;
  mNext->setEnabled(isReady && !mIsSaving);
  mSave->setEnabled(isReady && !mIsSaving);
  if (const bool isAway = mWhere->isAway() && mWhere->isChanged(); isAway != mSaysAway) {
    mSaysAway = isAway;
    if (isAway) return complain(household().text("TroubleAway", {utf8(mWhere->volume())}));
    mTrouble->hide();
  }
}

void CreatePage::goOn() {
  if (!mIsNew) return save(false);
  if (mStep == first) return navigator().showOverview();
  if (mStep == when) return save(true);
  showStep(mStep + 1);
}

void CreatePage::goBack() {
  if (!mIsNew || mStep == what) return navigator().showOverview();
  showStep(mStep - 1);
}

void CreatePage::save(bool isRun) {
  if (mIsSaving) return;
  mIsSaving = true;
  mTrouble->hide();
  update();
  using Role = ActionFolders::Role;
  struct Wanted {
    std::vector<std::string> sources;
    std::string destination;  ///< empty: a server
    std::optional<RepositoryKeeping> keeping = {};
    std::string hiddenFolder = {};
    std::vector<std::string> disks = {};
    std::optional<Error> error = {};
    ActionFolders folders = {};
    std::optional<FolderTrouble> trouble = {};
  };
  auto wanted = std::make_shared<Wanted>();
  if (mIsNew || mWhat->isChanged()) wanted->sources = mWhat->folders();
  if (mIsNew || mWhere->isChanged()) wanted->destination = mWhere->folder();
  if (wanted->sources.empty() != wanted->destination.empty()) {
    // Each is looked at with the other.
    wanted->sources = mWhat->folders();
    wanted->destination = mWhere->folder();
  }
  if (mWhere->isEncrypted() &&
      (mIsNew || mWhere->isChanged() || !mWhere->keeping().password.empty()))
    wanted->keeping = mWhere->keeping();
  if (!mIsNew) wanted->disks = mDetails->newDisks();
  wanted->hiddenFolder = household().store().folder().hiddenFolderPath();
  const std::uint64_t serial = mSerial;
  // A disk that sleeps takes its time, and the window goes on.
  QtRunLoop& loop = household().loop();
  Machine& machine = household().machine();
  loop.detachThread("folders", [this, wanted, serial, isRun, &loop, &machine] {
    if (!wanted->sources.empty()) {
      const auto volumes = GvfsShares::volumesNow(machine, ActionFolders::kPatience);
      for (const std::string& source : wanted->sources)
        if (!wanted->trouble)
          wanted->trouble = wanted->folders.add(source, Role::source, false, *volumes);
      if (!wanted->trouble && !wanted->destination.empty())
        wanted->trouble =
            wanted->folders.add(wanted->destination, Role::destination, false, *volumes);
      if (!wanted->trouble) wanted->trouble = wanted->folders.checkOverlap();
    }
    if (!wanted->trouble && !wanted->disks.empty()) {
      const auto volumes = GvfsShares::volumesNow(machine, ActionFolders::kPatience);
      for (const std::string& disk : wanted->disks)
        if (!wanted->trouble)
          wanted->trouble = wanted->folders.add(disk, Role::rotation, false, *volumes);
    }
    if (!wanted->trouble && wanted->keeping) {
      if (const Outcome kept = wanted->keeping->keepIn(wanted->hiddenFolder); !kept)
        wanted->error = kept.error();
    }
    loop.performOnMain([this, wanted, serial, isRun] {
      if (serial != mSerial) return;
      mIsSaving = false;
      update();
      if (wanted->trouble) return complain(inWords(*wanted->trouble));
      if (wanted->error) return complain(household().said(wanted->error->text));
      store(wanted->folders, isRun);
    });
  });
}

void CreatePage::store(const ActionFolders& folders, bool isRun) {
  const std::string title =
      utf8(mName->text().trimmed().isEmpty() ? mWhat->proposedTitle() : mName->text().trimmed());
  const bool leavesOut = mIsNew && mWhat->isHome();
  std::int64_t reference = mReference;
  std::optional<FolderTrouble> dispute;
  const Outcome done = household().edit([&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* action = nullptr;
    if (!mIsNew) {
      action = root.actionForReference(reference);
      if (action == nullptr) return Error{ErrorKind::absent, utf8(household().text("CreateGone"))};
    }
    // As it is now, with what others have written into it meanwhile.
    ZAN_Value record =
        action != nullptr ? action->getSettings() : newActionRecord(title, household().now());
    record.setValue("Title", title);
    record.setValue("SaveEditDate", ZAN_Value::date(household().now()));
    folders.applyTo(record);
    mWhere->applyTo(record);
    mWhen->applyTo(record);
    if (leavesOut) {
      ZAN_Value patterns = ZAN_Value::array();
      for (const std::string& pattern : proposedExclusions(record)) patterns.append(pattern);
      record.setValue(CopyKey::exclusions, std::move(patterns));
    }
    dispute = checkCopies(root, record);
    if (dispute) return dispute->error();
    if (action != nullptr) {
      mDetails->applyTo(record, folders);
      action->changeSettings(record);
      mDetails->moveIn(root, *action);
      return {};
    }
    root.addActionsFromList(ZAN_Value::array({record}), false, std::nullopt);
    reference = root.childAtIndex(root.numberOfChildren() - 1).getReference();
    return {};
  });
  if (dispute) return complain(inWords(*dispute));
  if (!done) return complain(household().said(done.error().text));
  if (!isRun) return navigator().showOverview();
  mReference = reference;
  run();
}

void CreatePage::complain(const QString& reason) {
  mTrouble->say(Look::Meaning::bad, household().text("CreateTrouble"), reason);
  mTrouble->show();
  mScroll->verticalScrollBar()->setValue(0);
}

QString CreatePage::inWords(const FolderTrouble& trouble) const {
  using Kind = FolderTrouble::Kind;
  switch (trouble.kind) {
    case Kind::notAPlace:
      return household().text("TroubleNotAPlace", {trouble.path});
    case Kind::notThere:
      return trouble.isSource ? household().text("TroubleNotThere", {trouble.path})
                              : household().text("TroubleNoFolderAbove", {trouble.path});
    case Kind::notAFolder:
      return household().text("TroubleNotAFolder", {trouble.path});
    case Kind::notUnicode:
      return household().text("TroubleNotUnicode", {trouble.path});
    case Kind::noAnswer:
      return household().text("TroubleNoAnswer", {trouble.path});
    case Kind::noVolume:
      return household().text("TroubleNoVolume", {trouble.path});
    case Kind::inSource:
      return household().text("TroubleInSource", {trouble.path, trouble.other});
    case Kind::isItsOwnCopy:
      return household().text("TroubleItsOwnCopy", {trouble.path, trouble.other});
    case Kind::copiedByOther:
      break;
  }
  return household().text("TroubleCopiedByOther", {trouble.other, trouble.path});
}

void CreatePage::run() {
  mStarted = household().now();
  mRunBanner->say(Look::Meaning::accent, household().text("FirstRunStarts"), {});
  mProgress->setRange(0, 0);
  mProgress->show();
  mProgressText->clear();
  showStep(first);
  const std::uint64_t serial = mSerial;
  household().launch(mReference, [this, serial](const Result<ZAN_Value>& answer) {
    if (serial != mSerial) return;
    const QString reason = !answer ? household().said(answer.error().text)
                           : answer->stringView() != "queued"
                               ? household().said(answer->stringView())
                               : QString();
    household().askAgent();
    if (reason.isEmpty()) return;
    mRunBanner->say(Look::Meaning::caution, household().text("FirstRunNot"), reason);
    mProgress->hide();
  });
}

void CreatePage::showRun() {
  if (const ZAN_Value& current = household().status()["current"];
      current.integer("ref") == mReference) {
    const double progress = current["progress"].doubleValue();
    mProgress->setRange(0, progress > 0 ? kPerCent : 0);
    mProgress->setValue(static_cast<int>(progress));
    mProgress->show();
    mProgressText->setText(qt(current.string("progressText")));
    mRunBanner->say(Look::Meaning::accent, household().text("FirstRunRuns"),
                    household().text("FirstRunRunsText"));
    household().loop().performAfter(1, [this, serial = mSerial] {
      if (serial == mSerial && mStarted && isVisible()) household().askAgent();
    });
    return;
  }
  // What has become of it stands in the log when it has ended.
  const ZAN_Value log = household().history().log().readLogList();
  for (auto entry = log.elements().rbegin(); entry != log.elements().rend(); ++entry) {
    const ReferenceTime date = (*entry)["M"].asDate().value_or(0);
    if (date < *mStarted) return;
    const std::int64_t code = entry->integer("C");
    const RunKind kind = kindOfRun(code);
    const std::string result = resultInWords(code, household().texts());
    if (entry->integer("R") != mReference || kind == RunKind::running || result.empty()) continue;
    mProgress->hide();
    mProgressText->clear();
    const QString title = qt(entry->string("N"));
    if (kind == RunKind::completed) {
      const bool isReadBack = entry->integer(RunKey::isReadBack) != 0;
      mRunBanner->say(Look::Meaning::good, household().text("FirstRunDone"),
                      isReadBack ? household().text("FirstBackupDone", {utf8(title)})
                                 : household().text("FirstRunDoneText"),
                      household().text("FirstRunRestore"),
                      [this] { navigator().showRestore(mReference); });
    } else {
      mRunBanner->say(kind == RunKind::failed ? Look::Meaning::bad : Look::Meaning::caution,
                      qt(result), household().said(entry->string("F")),
                      household().text("BannerAgain"), [this] { run(); });
    }
    return;
  }
}

}  // namespace corvana
