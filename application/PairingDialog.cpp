#include "application/PairingDialog.h"

#include <QHBoxLayout>
#include <QInputDialog>
#include <QMessageBox>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>
#include <utility>

#include "application/Household.h"
#include "core/record/Preferences.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kLookAgain = 1500;  // ms
constexpr int kColumns = 60;      ///< of the dialog, in characters
constexpr qsizetype kMostShown = 12;
constexpr double kDigitsSize = 2.6;  ///< times the usual type

QString lineOf(const ZAN_Value& text) { return qt(ZAN_StringUtils::oneLine(text.stringView())); }

QVBoxLayout* columnIn(QWidget* page) {
  auto* column = new QVBoxLayout(page);
  column->setSpacing(Look::space(3));
  column->setContentsMargins(Look::space(6), Look::space(5), Look::space(6), Look::space(5));
  return column;
}

}  // namespace

void PairingDialog::open(Household& household, QWidget* parent, std::function<void()> paired) {
  auto* dialog = new PairingDialog(household, parent, std::move(paired));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->QDialog::open();
}

PairingDialog::PairingDialog(Household& household, QWidget* parent, std::function<void()> paired)
    : QDialog(parent),
      mHousehold(household),
      mPaired(std::move(paired)),
      mStack(new QStackedWidget) {
  setWindowTitle(household.text("PairTitle"));
  setProperty("look", "page");
  setAttribute(Qt::WA_StyledBackground);
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->addWidget(mStack);
  for (QWidget* page : {beginPage(), waitPage(), digitsPage(), endPage()}) mStack->addWidget(page);
  setFixedWidth(kColumns * fontMetrics().averageCharWidth() + 2 * Look::space(6));
  mLookAgain.setSingleShot(true);
  mLookAgain.setInterval(kLookAgain);
  QObject::connect(&mLookAgain, &QTimer::timeout, this, [this] { look(); });
  begin();
}

QWidget* PairingDialog::beginPage() {
  auto* page = new QWidget;
  QVBoxLayout* const column = columnIn(page);
  column->addWidget(new TextLabel(mHousehold.text("PairTitle"), Look::Size::heading));
  column->addWidget(
      new TextLabel(mHousehold.text("PairText"), Look::Size::body, Look::Meaning::muted));
  column->addWidget(makeButton(
                        mHousehold.text("PairHere"),
                        [this] {
                          pair({QStringLiteral("pair"), QStringLiteral("--accept")},
                               mHousehold.text("PairBegins"));
                        },
                        true),
                    0, Qt::AlignLeft);
  column->addSpacing(Look::space(2));
  column->addWidget(new TextLabel(mHousehold.text("PairThere"), Look::Size::strong));
  mNobody = new TextLabel({}, Look::Size::body, Look::Meaning::muted);
  column->addWidget(mNobody);
  mWaiting = new QVBoxLayout;
  mWaiting->setSpacing(Look::space(2));
  column->addLayout(mWaiting);
  column->addStretch(1);
  column->addWidget(makeButton(mHousehold.text("CancelButton"), [this] { reject(); }), 0,
                    Qt::AlignRight);
  return page;
}

QWidget* PairingDialog::waitPage() {
  auto* page = new QWidget;
  QVBoxLayout* const column = columnIn(page);
  column->addStretch(1);
  mWaitText = new TextLabel({}, Look::Size::heading);
  column->addWidget(mWaitText);
  column->addStretch(1);
  column->addWidget(makeButton(mHousehold.text("CancelButton"),
                               [this] {
                                 mPairChild.forget();
                                 begin();
                               }),
                    0, Qt::AlignRight);
  return page;
}

QWidget* PairingDialog::digitsPage() {
  auto* page = new QWidget;
  QVBoxLayout* const column = columnIn(page);
  mQuestion = new TextLabel({}, Look::Size::heading);
  column->addWidget(mQuestion);
  column->addStretch(1);
  mDigits = new QLabel;
  mDigits->setTextFormat(Qt::PlainText);
  mDigits->setAlignment(Qt::AlignCenter);
  QFont large = Look::font(Look::Size::title);
  large.setPointSizeF(large.pointSizeF() * kDigitsSize / 2);
  large.setStyleHint(QFont::Monospace);
  mDigits->setFont(large);
  mDigits->setTextInteractionFlags(Qt::TextSelectableByKeyboard);
  column->addWidget(mDigits);
  column->addStretch(1);
  mWhich = new TextLabel({}, Look::Size::small, Look::Meaning::muted);
  column->addWidget(mWhich);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  mDiffer = makeButton(mHousehold.text("PairDiffer"), [this] { answer(false); });
  mDiffer->setAutoDefault(true);
  buttons->addWidget(mDiffer);
  // An Enter that was meant for something else says no.
  QPushButton* same = makeButton(
      mHousehold.text("PairSame"), [this] { answer(true); }, true);
  same->setAutoDefault(false);
  buttons->addWidget(same);
  column->addLayout(buttons);
  return page;
}

QWidget* PairingDialog::endPage() {
  auto* page = new QWidget;
  QVBoxLayout* const column = columnIn(page);
  mEndTitle = new TextLabel({}, Look::Size::heading);
  column->addWidget(mEndTitle);
  mEndText = new TextLabel({}, Look::Size::body, Look::Meaning::muted);
  column->addWidget(mEndText);
  column->addStretch(1);
  auto* buttons = new QHBoxLayout;
  buttons->addStretch(1);
  mRetry = makeButton(mHousehold.text("PairAgain"), [this] { begin(); });
  buttons->addWidget(mRetry);
  buttons->addWidget(makeButton(
      mHousehold.text("CloseButton"), [this] { accept(); }, true));
  column->addLayout(buttons);
  return page;
}

void PairingDialog::begin() {
  mStack->setCurrentIndex(0);
  clearLayout(mWaiting);
  mNobody->setText(mHousehold.text("NetSearching"));
  mNobody->show();
  look();
}

void PairingDialog::look() {
  mLookChild.run({QStringLiteral("pair"), QStringLiteral("--waiting")},
                 [this](const CommandChild::Ending& ending) { found(ending); });
}

void PairingDialog::found(const CommandChild::Ending& ending) {
  if (mStack->currentIndex() != 0) return;
  mLookAgain.start();
  QStringList names;
  for (const ZAN_Value& one : ending.answer.elements())
    if (names.size() < kMostShown) names << qt(one.string("name"));
  names.removeDuplicates();
  mNobody->setVisible(names.isEmpty());
  mNobody->setText(
      ending.isDone()
          ? mHousehold.text("PairNobody")
          : mHousehold.text("NetSearchFailed",
                            {ZAN_StringUtils::oneLine(utf8(mHousehold.said(ending.reason)))}));
  // Those that stay keep the keyboard's focus.
  QStringList shown;
  for (int i = 0; i < mWaiting->count(); ++i) shown << mWaiting->itemAt(i)->widget()->objectName();
  if (shown == names) return;
  clearLayout(mWaiting);
  for (const QString& name : names) {
    const std::string line = ZAN_StringUtils::oneLine(utf8(name));
    QPushButton* button = makeButton(
        mHousehold.text("PairWith", {line}).replace('&', QStringLiteral("&&")), [this, name, line] {
          pair({QStringLiteral("pair"), QStringLiteral("--"), name},
               mHousehold.text("PairAsks", {line}));
        });
    button->setObjectName(name);
    mWaiting->addWidget(button, 0, Qt::AlignLeft);
  }
}

void PairingDialog::pair(const QStringList& words, const QString& text) {
  mLookAgain.stop();
  mLookChild.forget();
  mWaitText->setText(text);
  mStack->setCurrentIndex(1);
  mPairChild.run(
      words, [this](const CommandChild::Ending& ending) { ended(ending); },
      [this](const ZAN_Value& news) { heard(news); });
}

void PairingDialog::heard(const ZAN_Value& news) {
  if (news.contains("waits")) {
    mWaitText->setText(
        mHousehold.text("PairWaits", {ZAN_StringUtils::oneLine(news.string("waits"))}));
    return;
  }
  const QString digits = qt(news.string("digits"));
  if (digits.isEmpty()) return;
  const std::string name = ZAN_StringUtils::oneLine(news.string("name"));
  mQuestion->setText(mHousehold.text("PairQuestion", {name}));
  mDigits->setText(digits.left(3) + QStringLiteral("  ") + digits.mid(3));
  // Read out one by one.
  QString spoken;
  for (const QChar digit : digits) spoken += QString(digit) + ' ';
  mDigits->setAccessibleName(spoken.trimmed());
  mWhich->setText(
      mHousehold.text("PairWhich", {utf8(lineOf(news["identifier"])), news.integer("user")}));
  mWaitText->setText(mHousehold.text("PairOtherYes", {name}));
  mStack->setCurrentIndex(2);
  mDiffer->setFocus();
}

void PairingDialog::answer(bool isSame) {
  mStack->setCurrentIndex(1);
  mPairChild.say(isSame ? "y" : "n");
}

void PairingDialog::ended(const CommandChild::Ending& ending) {
  mRetry->setVisible(!ending.isDone());
  mEndTitle->setMeaning(ending.isDone() ? Look::Meaning::good : Look::Meaning::bad);
  if (ending.isDone()) {
    mEndTitle->setText(
        mHousehold.text("PairDone", {ZAN_StringUtils::oneLine(ending.answer.string("name"))}));
    const bool isControlled = mHousehold.store().settings().schedulerSettings().integer(
                                  PreferenceKey::allowRemoteControl) != 0;
    mEndText->setText(mHousehold.text(isControlled ? "PairDoneText" : "PairDoneButOff"));
  } else {
    mEndTitle->setText(mHousehold.text("PairNot"));
    mEndText->setText(qt(ZAN_StringUtils::oneLine(utf8(mHousehold.said(ending.reason)))));
  }
  mStack->setCurrentIndex(3);
  if (ending.isDone()) mPaired();
}

PairedComputers::PairedComputers(Household& household)
    : mHousehold(household),
      mList(new QVBoxLayout),
      mTrouble(new TextLabel({}, Look::Size::small, Look::Meaning::bad)) {
  column()->setSpacing(Look::space(3));
  column()->addWidget(new TextLabel(household.text("SettingsPaired"), Look::Size::heading));
  mList->setSpacing(Look::space(2));
  column()->addLayout(mList);
  column()->addWidget(mTrouble);
  mTrouble->hide();
  column()->addWidget(
      makeButton(household.text("NetPair"),
                 [this] { PairingDialog::open(mHousehold, window(), [this] { load(); }); }),
      0, Qt::AlignLeft);
}

void PairedComputers::load() {
  mChild.run({QStringLiteral("pair"), QStringLiteral("--list")},
             [this](const CommandChild::Ending& ending) { fill(ending); });
}

void PairedComputers::fill(const CommandChild::Ending& ending) {
  clearLayout(mList);
  if (!ending.isDone()) {
    mTrouble->setText(mHousehold.said(ending.reason));
    return mTrouble->show();
  }
  for (const ZAN_Value& one : ending.answer.elements()) {
    const QString name = lineOf(one["name"]);
    const QString sender =
        qt(one.string("identifier")) + '/' + QString::number(one.integer("user"));
    auto* row = new QHBoxLayout;
    auto* words = new QVBoxLayout;
    words->setSpacing(0);
    words->addWidget(new TextLabel(name));
    words->addWidget(new TextLabel(
        mHousehold.text("PairIdentity", {one.string("identifier"), one.integer("user")}),
        Look::Size::small, Look::Meaning::muted));
    row->addLayout(words, 1);
    QPushButton* renames = makeButton(mHousehold.text("SettingsRename"),
                                      [this, sender, name] { rename(sender, name); });
    renames->setAccessibleDescription(name);
    row->addWidget(renames);
    QPushButton* forgets = makeButton(mHousehold.text("SettingsForget"),
                                      [this, sender, name] { forget(sender, name); });
    forgets->setAccessibleDescription(name);
    row->addWidget(forgets);
    mList->addLayout(row);
  }
  if (mList->count() == 0)
    mList->addWidget(
        new TextLabel(mHousehold.text("SettingsNoPairs"), Look::Size::body, Look::Meaning::muted));
}

void PairedComputers::rename(const QString& sender, const QString& name) {
  auto* question = new QInputDialog(this);
  question->setAttribute(Qt::WA_DeleteOnClose);
  question->setWindowTitle(mHousehold.text("SettingsRename"));
  question->setLabelText(mHousehold.text("SettingsRenameText"));
  question->setTextValue(name);
  question->setOkButtonText(mHousehold.text("SettingsRenameButton"));
  question->setCancelButtonText(mHousehold.text("CancelButton"));
  QObject::connect(
      question, &QInputDialog::textValueSelected, this, [this, sender](const QString& wanted) {
        if (!wanted.trimmed().isEmpty())
          change({QStringLiteral("--rename"), sender, QStringLiteral("--"), wanted.trimmed()});
      });
  question->open();
}

void PairedComputers::forget(const QString& sender, const QString& name) {
  const QString title = mHousehold.text("SettingsForgetTitle", {utf8(name)});
  auto* question = new QMessageBox(QMessageBox::Warning, title, title, QMessageBox::NoButton, this);
  question->setTextFormat(Qt::PlainText);
  question->setInformativeText(mHousehold.text("SettingsForgetText"));
  question->setAttribute(Qt::WA_DeleteOnClose);
  const auto* yes = question->addButton(mHousehold.text("SettingsForget"), QMessageBox::AcceptRole);
  question->setDefaultButton(
      question->addButton(mHousehold.text("CancelButton"), QMessageBox::RejectRole));
  QObject::connect(yes, &QPushButton::clicked, this, [this, sender] {
    change({QStringLiteral("--forget"), sender});
  });
  question->open();
}

void PairedComputers::change(const QStringList& words) {
  mChild.run(QStringList(QStringLiteral("pair")) + words,
             [this](const CommandChild::Ending& ending) {
               mTrouble->setText(mHousehold.said(ending.reason));
               mTrouble->setVisible(!ending.isDone());
               load();
             });
}

}  // namespace corvana
