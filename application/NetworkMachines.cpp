#include "application/NetworkMachines.h"

#include <QHBoxLayout>
#include <QInputDialog>
#include <QMenu>
#include <QMessageBox>
#include <QVBoxLayout>
#include <algorithm>
#include <iterator>
#include <utility>
#include <vector>

#include "application/BackupFacts.h"
#include "application/Household.h"
#include "application/Look.h"
#include "application/PairingDialog.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kInterval = 60'000;                // ms
constexpr int kAfterCommand = 3000;              // ms
constexpr int kAfterPairing[] = {4000, 12'000};  // ms
constexpr std::size_t kMostCards = 24;
constexpr std::ptrdiff_t kAskedAtOnce = 4;
constexpr std::int64_t kCopies = 2;  ///< kinds of backups as all machines know them
constexpr std::int64_t kSynchronises = 3;

/// What another machine says fits a card, however long it is.
std::string lineOf(const ZAN_Value& text) {
  constexpr qsizetype kMost = 100;
  return utf8(qt(ZAN_StringUtils::oneLine(text.stringView())).left(kMost));
}

/// The command says last why it could not; before that come strangers that did not answer.
std::string shortReason(const Household& household, const std::string& reason) {
  constexpr qsizetype kMost = 300;
  const QString last = household.said(reason).trimmed().section('\n', -1);
  return ZAN_StringUtils::oneLine(utf8(last.left(kMost)));
}

}  // namespace

/// One of them.
class MachineCard final : public Card {
 public:
  struct Hooks {
    std::function<void()> asked;  ///< it has answered, or not
    std::function<void()> pair;
  };

  MachineCard(Household& household, Hooks hooks)
      : mHousehold(household),
        mHooks(std::move(hooks)),
        mName(new TextLabel({}, Look::Size::strong)),
        mProtection(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
        mStanding(new TextLabel),
        mDetails(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
        mTold(new TextLabel({}, Look::Size::small)),
        mMore(new QPushButton),
        mMenu(new QMenu(this)) {
    auto* row = new QHBoxLayout;
    row->setSpacing(Look::space(4));
    for (QWidget* part :
         {makeColumn({mName, mProtection}), makeColumn({mStanding, mDetails, mTold})}) {
      part->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
      row->addWidget(part, 1);
    }
    row->addWidget(mMore);
    column()->addLayout(row);
    mMore->setFlat(true);
    mMore->setIcon(Look::icon(QStringLiteral("view-more")));
    mMore->setMenu(mMenu);
    // The columns of all cards stand below each other.
    QSizePolicy keeps = mMore->sizePolicy();
    keeps.setRetainSizeWhenHidden(true);
    mMore->setSizePolicy(keeps);
    mMore->setCursor(Qt::PointingHandCursor);
    mTold->hide();
    mLater.setSingleShot(true);
    mLater.setInterval(kAfterCommand);
    QObject::connect(&mLater, &QTimer::timeout, this, [this] { ask(); });
  }

  /// As the search has found it.
  void show(const ZAN_Value& machine) {
    mMachine = machine;
    if (!canBeAsked()) mState = {};
    fill();
  }
  bool isPairedHere() const {
    return mMachine["paired"].boolValue() && !mMachine["absent"].boolValue() &&
           !mMachine["locked"].boolValue();
  }
  bool canBeAsked() const {
    return isPairedHere() && mMachine["encrypted"].boolValue() && !mMachine.contains("trouble");
  }
  bool isAsking() const { return mStatus.runs(); }
  void ask() {
    if (!canBeAsked() || isAsking()) return;
    mStatus.run(words({}, {QStringLiteral("status")}), [this](const CommandChild::Ending& ending) {
      mState = ending.isDone() ? ending.answer : ZAN_Value();
      mTrouble = ending.reason;
      fill();
      mHooks.asked();
    });
    fill();
  }

 private:
  QStringList words(QStringList options, const QStringList& verb) const {
    return QStringList(QStringLiteral("peer")) + options + QStringList(QStringLiteral("--")) +
           QStringList(qt(mMachine.string("service"))) + verb;
  }
  /// As its user has called it here, which no other machine can do.
  std::string name() const {
    return lineOf(mMachine[mMachine.contains("pairedAs") ? "pairedAs" : "name"]);
  }

  void fill() {
    setAccessibleName(qt(name()));
    mName->setText(qt(name()));
    mMore->setAccessibleName(mHousehold.text("NetMore", {name()}));
    mMore->setToolTip(mMore->accessibleName());
    fillProtection();
    mDetails->clear();
    mStanding->setMeaning(Look::Meaning::muted);
    setMeaning(Look::Meaning::plain);
    if (mState.isDictionary())
      fillState();
    else
      mStanding->setText(standing());
    mDetails->setVisible(!mDetails->text().isEmpty());
    fillMenu();
  }

  void fillProtection() {
    const bool isPaired = mMachine["paired"].boolValue();
    const bool isProven = mMachine["proven"].boolValue();
    const bool isBad = !isPaired && !isProven && !mMachine["locked"].boolValue();
    mProtection->setMeaning(isBad ? Look::Meaning::caution : Look::Meaning::muted);
    mProtection->setText(mHousehold.text(protection()));
  }
  const char* protection() const {
    if (mMachine["absent"].boolValue()) return "NetKnown";
    if (mMachine["locked"].boolValue()) return "NetLocked";
    if (mState.isDictionary()) return "NetPaired";
    if (mMachine["paired"].boolValue()) return "NetPairedUnsure";
    return mMachine["proven"].boolValue() ? "NetPassword" : "NetUnproven";
  }

  /// Of one that has not said how it stands.
  QString standing() {
    if (mMachine["absent"].boolValue()) return mHousehold.text("NetAbsent");
    if (isAsking()) return mHousehold.text("NetAsking");
    if (isPairedHere() && !canBeAsked()) {
      mStanding->setMeaning(Look::Meaning::caution);
      const bool isHere = mMachine.contains("trouble");
      mDetails->setText(mHousehold.text(isHere ? "NetNoChannelHere" : "NetNoChannelThere"));
      return mHousehold.text("NetNoChannel");
    }
    if (canBeAsked()) {
      mStanding->setMeaning(Look::Meaning::caution);
      return qt(shortReason(mHousehold, mTrouble));
    }
    if (!mMachine["locked"].boolValue()) mDetails->setText(mHousehold.text("NetUnknown"));
    const bool isOn = mMachine["active"].boolValue();
    return mHousehold.text(isOn ? "NetOn" : "NetOff");
  }

  void fillState() {
    const ZAN_Value& attention = mState["attention"];
    const ZAN_Value& current = mState["current"];
    const auto say = [this](Look::Meaning meaning, const QString& text) {
      mStanding->setMeaning(meaning);
      mStanding->setText(text);
    };
    QStringList lines;
    if (attention.size() > 0) {
      const bool isBad = std::ranges::any_of(attention.elements(), [](const ZAN_Value& one) {
        return one.string("kind") != "overdue";
      });
      const Look::Meaning meaning = isBad ? Look::Meaning::bad : Look::Meaning::caution;
      setMeaning(meaning);
      say(meaning, mHousehold.text("NetNeeds", {static_cast<std::int64_t>(attention.size())}));
      constexpr std::size_t kMostLines = 3;
      for (std::size_t i = 0; i < std::min(kMostLines, attention.size()); ++i)
        lines << attentionLine(attention.elements()[i]);
    } else if (!mState["enabled"].boolValue()) {
      setMeaning(Look::Meaning::caution);
      say(Look::Meaning::caution, mHousehold.text("NetOff"));
    } else if (mState["paused"].boolValue()) {
      say(Look::Meaning::caution, mHousehold.text("CardPaused"));
    } else if (current.isDictionary()) {
      say(Look::Meaning::accent, mHousehold.text("NetRunning", {lineOf(current["title"])}));
    } else {
      say(Look::Meaning::good, mHousehold.text("NetWell"));
    }
    const ZAN_Value* last = nullptr;
    const ZAN_Value* next = nullptr;
    for (const ZAN_Value& one : mState["actions"].elements()) {
      if (one.contains("lastSuccess") &&
          (last == nullptr ||
           one["lastSuccess"].doubleValue() > (*last)["lastSuccess"].doubleValue()))
        last = &one;
      if (one.contains("next") &&
          (next == nullptr || one["next"].doubleValue() < (*next)["next"].doubleValue()))
        next = &one;
    }
    lines << (last == nullptr
                  ? mHousehold.text("CardNoSuccess")
                  : mHousehold.text("NetLast",
                                    {pastDateOf(mHousehold, (*last)["lastSuccess"].doubleValue()),
                                     lineOf((*last)["title"])}));
    if (next != nullptr)
      lines << mHousehold.text("CardNext",
                               {comingDateOf(mHousehold, (*next)["next"].doubleValue())});
    mDetails->setText(lines.join('\n'));
  }

  QString attentionLine(const ZAN_Value& one) {
    if (one.string("kind") == "failed") return mHousehold.text("NetFailed", {lineOf(one["title"])});
    if (one.string("kind") == "overdue")
      return mHousehold.text(
          "NetOverdue", {lineOf(one["title"]), pastDateOf(mHousehold, one["since"].doubleValue())});
    return qt(lineOf(one["text"]));
  }

  void fillMenu() {
    if (mMenu->isVisible()) return;
    mMenu->clear();
    const bool isAbsent = mMachine["absent"].boolValue() || mMachine["locked"].boolValue();
    mMore->setVisible(!isAbsent);
    if (isAbsent) return;
    const bool isPermitted =
        !mMachine["proven"].boolValue() ||
        qt(mMachine.string("permits")).split(',').contains(QStringLiteral("launch"));
    const bool hasState = mState.isDictionary();
    bool hasAny = false;
    for (const ZAN_Value& action : (hasState ? mState : mMachine)["actions"].elements()) {
      if (!isPermitted || (hasState && !action["launchable"].boolValue())) continue;
      hasAny = true;
      mMenu->addAction(mHousehold.text("NetRun", {lineOf(action["title"])}).replace('&', "&&"),
                       mMenu, [this, action] { consider(action); });
    }
    if (!hasAny)
      mMenu->addAction(mHousehold.text(isPermitted ? "NetNothing" : "NetMayNot"))
          ->setEnabled(false);
    if (mMachine["paired"].boolValue()) return;
    mMenu->addSeparator();
    mMenu->addAction(mHousehold.text("NetPair"), mMenu, [this] { mHooks.pair(); });
  }

  /// Asks first where something may be deleted, or nothing tells who will do it.
  void consider(const ZAN_Value& action) {
    const std::int64_t mode = action.integer("mode");
    const bool isPaired = mMachine["paired"].boolValue();
    QStringList warnings;
    if (mode == kSynchronises)
      warnings << mHousehold.text("NetRunDeletes");
    else if (mode != kCopies)
      warnings << mHousehold.text("NetRunOther");
    if (!isPaired && !mMachine["proven"].boolValue()) warnings << mHousehold.text("NetRunUnproven");
    const QString title = mHousehold.text("NetRunTitle", {lineOf(action["title"]), name()});
    if (!isPaired && mMachine["password"].boolValue()) {
      auto* question = new QInputDialog(this);
      question->setAttribute(Qt::WA_DeleteOnClose);
      question->setWindowTitle(title);
      warnings << mHousehold.text("NetPasswordOf", {name()});
      question->setLabelText(warnings.join(QStringLiteral("\n\n")));
      question->setTextEchoMode(QLineEdit::Password);
      question->setOkButtonText(mHousehold.text("NetRunButton"));
      question->setCancelButtonText(mHousehold.text("CancelButton"));
      QObject::connect(question, &QInputDialog::textValueSelected, this,
                       [this, action](const QString& password) { run(action, password); });
      return question->open();
    }
    if (warnings.isEmpty()) return run(action, {});
    auto* question =
        new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::NoButton, this);
    question->setTextFormat(Qt::PlainText);
    question->setInformativeText(warnings.join(QStringLiteral("\n\n")));
    question->setAttribute(Qt::WA_DeleteOnClose);
    const auto* yes = question->addButton(mHousehold.text("NetRunButton"), QMessageBox::AcceptRole);
    question->setDefaultButton(
        question->addButton(mHousehold.text("CancelButton"), QMessageBox::RejectRole));
    QObject::connect(yes, &QPushButton::clicked, this, [this, action] { run(action, {}); });
    question->open();
  }

  void run(const ZAN_Value& action, const QString& password) {
    QStringList options;
    if (!password.isEmpty())
      options << QStringLiteral("--password-file") << QStringLiteral("/dev/stdin");
    tell(Look::Meaning::muted, mHousehold.text("NetAsking"));
    mRun.run(
        words(options, {QStringLiteral("launch"), QString::number(action.integer("ref"))}),
        [this, title = lineOf(action["title"])](const CommandChild::Ending& ending) {
          if (!ending.isDone())
            return tell(Look::Meaning::bad, qt(shortReason(mHousehold, ending.reason)));
          tell(Look::Meaning::good, mHousehold.text("NetAsked", {title}));
          mLater.start();
        },
        {}, password.isEmpty() ? QByteArray() : password.toUtf8() + '\n');
  }

  void tell(Look::Meaning meaning, const QString& text) {
    mTold->setMeaning(meaning);
    mTold->setText(text);
    mTold->show();
  }

  Household& mHousehold;
  const Hooks mHooks;
  ZAN_Value mMachine;
  ZAN_Value mState;      ///< null before it has answered
  std::string mTrouble;  ///< why it did not
  CommandChild mStatus;
  CommandChild mRun;
  QTimer mLater;
  TextLabel* mName;
  TextLabel* mProtection;
  TextLabel* mStanding;
  TextLabel* mDetails;
  TextLabel* mTold;
  QPushButton* mMore;
  QMenu* mMenu;
};

NetworkMachines::NetworkMachines(Household& household)
    : mHousehold(household),
      mHead(new QWidget),
      mNote(new TextLabel({}, Look::Size::body, Look::Meaning::muted)),
      mLook(makeButton(household.text("NetAgain"), [this] { search(); })),
      mList(new QVBoxLayout) {
  auto* column = new QVBoxLayout(this);
  // With nothing in it there is still something that is painted when it is in sight.
  column->setContentsMargins(0, Look::space(4), 0, 0);
  column->setSpacing(Look::space(3));
  auto* head = new QHBoxLayout(mHead);
  head->setContentsMargins(0, 0, 0, 0);
  head->setSpacing(Look::space(2));
  head->addWidget(new TextLabel(household.text("NetTitle"), Look::Size::heading), 1);
  head->addWidget(mLook);
  head->addWidget(makeButton(household.text("NetPair"), [this] { pair(); }));
  column->addWidget(mHead);
  mList->setSpacing(Look::space(3));
  column->addLayout(mList);
  column->addWidget(mNote);
  note(household.text("NetSearching"), false);
  mAgain.setSingleShot(true);
  mAgain.setInterval(kInterval);
  QObject::connect(&mAgain, &QTimer::timeout, this, [this] {
    mIsOld = true;
    if (isVisible() && !window()->isMinimized() && !visibleRegion().isEmpty()) search();
  });
}

NetworkMachines::~NetworkMachines() = default;

/// What is not in sight is not painted.
void NetworkMachines::paintEvent(QPaintEvent* event) {
  QWidget::paintEvent(event);
  if (mIsOld && !mSearch.runs()) QTimer::singleShot(0, this, [this] { search(); });
}

void NetworkMachines::pair() {
  PairingDialog::open(mHousehold, window(), [this] {
    search();
    // The agents take the key up soon, and then offer the channel.
    for (const int later : kAfterPairing) QTimer::singleShot(later, this, [this] { search(); });
  });
}

void NetworkMachines::note(const QString& text, bool isTrouble) {
  mNote->setMeaning(isTrouble ? Look::Meaning::caution : Look::Meaning::muted);
  mNote->setText(text);
  showParts();
}

void NetworkMachines::setQuiet(bool isQuiet) {
  if (mIsQuiet == isQuiet) return;
  mIsQuiet = isQuiet;
  showParts();
}

void NetworkMachines::showParts() {
  const bool isAny = !mIsQuiet || !mCards.empty();
  mHead->setVisible(isAny);
  mNote->setVisible(isAny && !mNote->text().isEmpty());
}

void NetworkMachines::search() {
  if (mSearch.runs()) return;
  mIsOld = false;
  mLook->setEnabled(false);
  mLimit = 0;
  mSearch.run(
      {QStringLiteral("peers")}, [this](const CommandChild::Ending& ending) { found(ending); },
      [this](const ZAN_Value& news) { mLimit = news.integer("limit"); });
}

void NetworkMachines::found(const CommandChild::Ending& ending) {
  mAgain.start();
  mLook->setEnabled(true);
  if (!ending.isDone())
    return note(mHousehold.text("NetSearchFailed", {shortReason(mHousehold, ending.reason)}), true);
  std::vector<ZAN_Value> machines(ending.answer.elements().begin(), ending.answer.elements().end());
  std::erase_if(machines, [](const ZAN_Value& one) { return one["own"].boolValue(); });
  // Anybody can call himself anything: those that may be known come first.
  std::ranges::stable_sort(machines, std::ranges::greater{},
                           [](const ZAN_Value& one) { return one["paired"].boolValue(); });
  const std::size_t leftOut = machines.size() - std::min(machines.size(), kMostCards);
  machines.resize(machines.size() - leftOut);
  note(mLimit > 0         ? mHousehold.text("NetLimit", {mLimit})
       : leftOut > 0      ? mHousehold.text("NetMoreOfThem", {static_cast<std::int64_t>(leftOut)})
       : machines.empty() ? mHousehold.text("NetNone")
                          : QString(),
       mLimit > 0);
  auto before = std::exchange(mCards, {});
  while (QLayoutItem* item = mList->takeAt(0)) delete item;
  mToAsk.clear();
  for (const ZAN_Value& machine : machines) {
    std::string key = machine.string("identifier") + '/' + std::to_string(machine.integer("user")) +
                      '@' + machine.string("host");
    while (mCards.contains(key)) key += '+';
    const auto known = before.find(key);
    auto* card = known != before.end()
                     ? known->second
                     : new MachineCard(mHousehold, {[this] { askNext(); }, [this] { pair(); }});
    if (known != before.end()) before.erase(known);
    mCards.emplace(key, card);
    mList->addWidget(card);
    card->show(machine);
    card->setVisible(true);
    if (card->canBeAsked()) mToAsk.push_back(key);
  }
  for (const auto& [key, card] : before) card->deleteLater();
  showParts();
  askNext();
}

void NetworkMachines::askNext() {
  const auto asked = [this] {
    return std::ranges::count_if(mCards, [](const auto& one) { return one.second->isAsking(); });
  };
  while (!mToAsk.empty() && asked() < kAskedAtOnce) {
    const auto card = mCards.find(mToAsk.front());
    mToAsk.pop_front();
    if (card != mCards.end()) card->second->ask();
  }
}

}  // namespace corvana
