#include "application/SettingsPage.h"

#include <QCheckBox>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QListWidget>
#include <QPushButton>
#include <QScrollArea>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTimeEdit>
#include <QVBoxLayout>

#include "application/AgeAlarms.h"
#include "application/AppearancePreview.h"
#include "application/Look.h"
#include "application/PairingDialog.h"
#include "desktop/Texts.h"
#include "mail/smtp/MailSettings.h"

namespace corvana {

namespace {

constexpr int kTextColumns = 26;
constexpr int kAddressColumns = 44;
constexpr int kWidestColumns = 90;  ///< of a card

/// Of what `corvana9 recover` calls so.
const char* headingOf(const QString& which) {
  if (which == QLatin1String("actions")) return "SettingsCopyActions";
  return which == QLatin1String("settings") ? "SettingsCopySettings" : "SettingsCopyScheduler";
}

}  // namespace

SettingsPage::SettingsPage(Household& household, Navigator& navigator)
    : Page(household, navigator),
      mPreferences(household.store().settings(), household.machine(), mDeadlines, household.now()) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(Look::space(8), Look::space(7), Look::space(8), 0);
  column->setSpacing(Look::space(4));
  column->addWidget(new TextLabel(household.text("MainSettings"), Look::Size::title));
  auto* row = new QHBoxLayout;
  row->setSpacing(Look::space(4));
  mSide = new QListWidget;
  mSide->setProperty("look", "side-list");
  mSide->setFrameShape(QFrame::NoFrame);
  mSide->setAccessibleName(household.text("MainSettings"));
  mSide->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  mStack = new QStackedWidget;
  row->addWidget(mSide);
  row->addWidget(mStack, 1);
  column->addLayout(row, 1);

  makeMailPage();
  QVBoxLayout* running = addPage("SettingsRunning", "SettingsRunningText");
  addPreferences(running, Preference::Page::general, "SettingsGeneral");
  addPreferences(running, Preference::Page::execution, "SettingsWhileRunning");
  mAlarms = new AgeAlarms(household);
  addPage("SettingsAlarms", "SettingsAlarmsText")->addWidget(mAlarms);
  QVBoxLayout* look = addPage("SettingsLook", "SettingsLookText");
  mPreview = new AppearancePreview(household, mPreferences);
  look->addWidget(mPreview);
  addPreferences(look, Preference::Page::icon, "SettingsIcon");
  addPreferences(look, Preference::Page::messages, "SettingsMessages");
  look->addWidget(makeButton(household.text("SettingsSample"), [this] { showSample(); }), 0,
                  Qt::AlignLeft);
  QVBoxLayout* disks = addPage("SettingsDisks", "SettingsDisksText");
  addPreferences(disks, Preference::Page::volumes, "SettingsDisks");
  makeMachinesPage();
  makeCopiesPage();
  for (int page = 0; page < mStack->count(); ++page) {
    auto* const scroll = static_cast<QScrollArea*>(mStack->widget(page));
    static_cast<QVBoxLayout*>(scroll->widget()->layout())->addStretch(1);
  }
  QObject::connect(mSide, &QListWidget::currentRowChanged, mStack, [this](int row) {
    mStack->setCurrentIndex(row);
    loadShown();
  });
  mSide->setCurrentRow(0);
  mSide->setFixedWidth(mSide->sizeHintForColumn(0) + Look::space(8));
}

QVBoxLayout* SettingsPage::addPage(const char* title, const char* explanation) {
  auto* scroll = new QScrollArea;
  QVBoxLayout* const column = makeScrollingColumn(scroll, kWidestColumns);
  column->setContentsMargins(0, 0, Look::space(2), Look::space(6));
  column->setSpacing(Look::space(3));
  column->addWidget(
      new TextLabel(household().text(explanation), Look::Size::body, Look::Meaning::muted));
  scroll->setFocusPolicy(Qt::NoFocus);
  mStack->addWidget(scroll);
  mSide->addItem(household().text(title));
  return column;
}

void SettingsPage::addRow(QVBoxLayout* column, const QString& label, QWidget* field,
                          const QString& help) {
  auto* words = new QVBoxLayout;
  words->setSpacing(0);
  if (!label.isEmpty()) {
    auto* row = new QHBoxLayout;
    row->setSpacing(Look::space(3));
    auto* name = new TextLabel(label.endsWith(':') ? label.chopped(1) : label);
    name->setBuddy(field);
    row->addWidget(name, 1);
    row->addWidget(field);
    words->addLayout(row);
    field->setAccessibleName(label);
  } else {
    words->addWidget(field, 0, Qt::AlignLeft);
  }
  if (!help.isEmpty()) {
    auto* text = new TextLabel(help, Look::Size::small, Look::Meaning::muted);
    words->addWidget(text);
    field->setAccessibleDescription(help);
  }
  column->addLayout(words);
}

void SettingsPage::addPreferences(QVBoxLayout* column, Preference::Page page, const char* heading) {
  auto* card = new Card;
  card->column()->setSpacing(Look::space(3));
  card->column()->addWidget(new TextLabel(household().text(heading), Look::Size::heading));
  for (const Preference& one : Preferences::table())
    if (one.page == page && one.kind != Preference::Kind::command) addField(card->column(), one);
  column->addWidget(card);
}

void SettingsPage::addField(QVBoxLayout* column, const Preference& one) {
  QWidget* const field = fieldFor(one);
  if (field == nullptr) return;
  const bool namesItself =
      one.kind == Preference::Kind::checkBox || one.kind == Preference::Kind::command;
  addRow(column, namesItself ? QString() : household().text(one.label), field,
         one.help.empty() ? QString() : household().text(one.help));
}

QWidget* SettingsPage::fieldFor(const Preference& one) {
  using Kind = Preference::Kind;
  switch (one.kind) {
    case Kind::checkBox: {
      auto* box = new QCheckBox(household().text(one.label));
      mReads.emplace_back(
          [this, box, &one] { box->setChecked(mPreferences.valueOf(one).boolValue()); });
      QObject::connect(box, &QCheckBox::clicked, this,
                       [this, &one](bool on) { change(one, on ? 1 : 0); });
      return box;
    }
    case Kind::choice: {
      auto* box = new QComboBox;
      box->setFocusPolicy(Qt::StrongFocus);
      box->setSizeAdjustPolicy(QComboBox::AdjustToMinimumContentsLengthWithIcon);
      box->setMinimumContentsLength(kTextColumns);
      for (const std::string_view key : one.choices)
        if (!key.empty()) box->addItem(household().text(key));
      mReads.emplace_back([this, box, &one] {
        box->setCurrentIndex(static_cast<int>(mPreferences.valueOf(one).integerValue()));
      });
      QObject::connect(box, &QComboBox::activated, this, [this, &one](int at) { change(one, at); });
      return box;
    }
    case Kind::number: {
      auto* box = new QSpinBox;
      box->setFocusPolicy(Qt::StrongFocus);
      box->setRange(static_cast<int>(one.least), static_cast<int>(one.most));
      if (!one.unit.empty()) box->setSuffix(household().text(one.unit));
      box->setKeyboardTracking(false);
      mReads.emplace_back([this, box, &one] {
        const QSignalBlocker quiet(box);
        if (!box->hasFocus())
          box->setValue(static_cast<int>(mPreferences.valueOf(one).doubleValue()));
      });
      QObject::connect(box, &QSpinBox::valueChanged, this, [this, &one](int number) {
        if (mPreferences.valueOf(one).isReal())
          change(one, static_cast<double>(number));
        else
          change(one, number);
      });
      return box;
    }
    case Kind::text:
    case Kind::password: {
      auto* edit = new QLineEdit;
      edit->setMinimumWidth(kTextColumns * fontMetrics().averageCharWidth());
      if (one.kind == Kind::password) edit->setEchoMode(QLineEdit::Password);
      mReads.emplace_back([this, edit, &one] {
        if (edit->isModified()) return;
        const ZAN_Value value = mPreferences.valueOf(one);
        // Written by hand addresses may also be a list.
        std::string text = value.string();
        for (const ZAN_Value& element : value.elements())
          text += (text.empty() ? "" : ", ") + element.string();
        edit->setText(qt(text));
      });
      QObject::connect(edit, &QLineEdit::editingFinished, this, [this, edit, &one] {
        if (!edit->isModified()) return;
        edit->setModified(false);
        change(one, utf8(edit->text()));
      });
      return edit;
    }
    case Kind::fact: {
      auto* label = new TextLabel({}, Look::Size::body, Look::Meaning::muted);
      label->setWordWrap(false);
      mReads.emplace_back([this, label, &one] {
        const ReferenceTime date = mPreferences.valueOf(one).doubleValue();
        label->setText(date <= 0 ? household().text("PrefNotYet")
                                 : qt(household().strings().getShortTimeDate(date)));
      });
      return label;
    }
    case Kind::command:
      return makeButton(household().text(one.label).remove('&'),
                        [this] { household().tellAgent("SendReportEmail"); });
    case Kind::shortcut:
    case Kind::place:
      // Recorded and dragged where the scheduler shows them.
      return makeButton(household().text("SettingsOfAgent"),
                        [this] { household().tellAgent("OpenPreferences"); });
  }
  return nullptr;
}

void SettingsPage::change(const Preference& one, const ZAN_Value& value) {
  if (one.key == PreferenceKey::scheduleDisabled)
    return household().tellAgent("ActivateExecution",
                                 ZAN_Value::dictionary({{"Activate", value.boolValue() ? 0 : 1}}));
  if (one.key == PreferenceKey::currentContext)
    return household().tellAgent("SetContext", ZAN_Value::dictionary({{"Context", value}}));
  // Who is let in from now on has to prove the password; that can be switched off by itself.
  if (one.key == PreferenceKey::allowRemoteControl && value.boolValue())
    mPreferences.setPref(PreferenceKey::remoteProvenOnly, 1);
  mPreferences.setPref(one.key, value);
  mPreferences.savePrefs();
  mPreferences.loadPrefs();
  household().tellAgent("PreferencesDidChange");
  mPreview->load();
}

/// By the agent, so that it looks as the real ones do.
void SettingsPage::showSample() {
  constexpr double kSeconds = 4;
  household().tellAgent(
      "Message", ZAN_Value::dictionary({{"Title", household().texts().text("SettingsSampleTitle")},
                                        {"Text", household().texts().text("SettingsSampleText")},
                                        {"Seconds", kSeconds}}));
}

void SettingsPage::makeMailPage() {
  QVBoxLayout* page = addPage("SettingsMail", "SettingsMailText");
  auto* account = new Card;
  account->column()->setSpacing(Look::space(3));
  account->column()->addWidget(
      new TextLabel(household().text("SettingsAccount"), Look::Size::heading));
  const auto edit = [&](const char* label, const char* help) {
    auto* field = new QLineEdit;
    field->setMinimumWidth(kAddressColumns * fontMetrics().averageCharWidth());
    addRow(account->column(), household().text(label), field,
           help == nullptr ? QString() : household().text(help));
    return field;
  };
  mAddress = edit("SettingsAddress", nullptr);
  mPassword = edit("SettingsPassword", "SettingsPasswordHelp");
  mPassword->setEchoMode(QLineEdit::Password);
  mRecipients = edit("SettingsRecipients", "SettingsRecipientsHelp");
  mServer = edit("SettingsServer", "SettingsServerHelp");
  mTest = makeButton(
      household().text("SettingsTest"), [this] { trySettings(); }, true);
  account->column()->addWidget(mTest, 0, Qt::AlignLeft);
  mMailStrip = new QFrame;
  auto* strip = new QVBoxLayout(mMailStrip);
  mMailResult = new TextLabel;
  mMailResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
  strip->addWidget(mMailResult);
  mMailStrip->hide();
  account->column()->addWidget(mMailStrip);
  page->addWidget(account);

  auto* report = new Card;
  report->column()->setSpacing(Look::space(3));
  report->column()->addWidget(
      new TextLabel(household().text("SettingsReport"), Look::Size::heading));
  mMailOn = new QCheckBox(household().text("PrefMailOn"));
  addRow(report->column(), {}, mMailOn, household().text("PrefMailOnHelp"));
  mEvery = new QComboBox;
  mEvery->setFocusPolicy(Qt::StrongFocus);
  for (const char* key : {"PrefMailDaily", "PrefMailMondays", "PrefMailFailures"})
    mEvery->addItem(household().text(key));
  addRow(report->column(), household().text("PrefMailEvery"), mEvery, {});
  mTime = new QTimeEdit;
  mTime->setFocusPolicy(Qt::StrongFocus);
  mTime->setKeyboardTracking(false);
  mTime->setDisplayFormat(QStringLiteral("HH:mm"));
  addRow(report->column(), household().text("PrefMailTime"), mTime, {});
  for (const Preference& one : Preferences::table())
    if (one.kind == Preference::Kind::command) addField(report->column(), one);
  QObject::connect(mMailOn, &QCheckBox::clicked, this,
                   [this](bool on) { changeMail("SendEmailReport", on ? 1 : 0); });
  QObject::connect(mEvery, &QComboBox::activated, this,
                   [this](int at) { changeMail(MailKey::frequency, at); });
  QObject::connect(mTime, &QTimeEdit::timeChanged, this, [this](const QTime& time) {
    changeMail(MailKey::time, QTime(0, 0).secsTo(time));
  });
  page->addWidget(report);
}

void SettingsPage::changeMail(std::string_view key, const ZAN_Value& value) {
  // The store logs what could not be written.
  static_cast<void>(household().store().settings().setMainAppSetting(value, key));
  household().tellAgent("PreferencesDidChange");
}

void SettingsPage::readMail() {
  const ZAN_Value settings = household().store().settings().mainAppSettings();
  const auto fill = [&](QLineEdit* edit, const char* key) {
    if (!edit->isModified() && !edit->hasFocus()) edit->setText(qt(settings.string(key)));
  };
  fill(mAddress, "SendReportEmailSender");
  fill(mRecipients, "SendReportEmailAddress");
  fill(mServer, "SendReportEmailSMTPServer");
  mMailOn->setChecked(settings.integer("SendEmailReport") != 0);
  mEvery->setCurrentIndex(static_cast<int>(settings.integer(MailKey::frequency)));
  const std::int64_t time =
      settings.contains(MailKey::time) ? settings.integer(MailKey::time) : MailKey::kUsualTime;
  const QSignalBlocker quiet(mTime);
  if (!mTime->hasFocus()) mTime->setTime(QTime(0, 0).addSecs(static_cast<int>(time)));
}

void SettingsPage::trySettings() {
  if (mMailChild.runs() || mAddress->text().trimmed().isEmpty()) return mAddress->setFocus();
  QStringList words{QStringLiteral("mail"), QStringLiteral("--setup"), mAddress->text().trimmed()};
  const auto add = [&](const char* option, const QString& value) {
    if (!value.trimmed().isEmpty()) words << QLatin1String(option) << value.trimmed();
  };
  add("--to", mRecipients->text());
  // "mail.example.org:2525" where it is not the usual port.
  const QString server = mServer->text().trimmed();
  add("--server", server.section(':', 0, 0));
  add("--port", server.section(':', 1, 1));
  if (!mPassword->text().isEmpty())
    words << QStringLiteral("--password-file") << QStringLiteral("-");
  else if (server.section(':', 0, 0) == QLatin1String("localhost"))
    words << QStringLiteral("--no-login");
  mTest->setEnabled(false);
  mMailResult->setText(household().text("SettingsTrying"));
  Look::set(mMailStrip, "well-accent");
  mMailStrip->show();
  mMailChild.run(
      words, [this](const CommandChild::Ending& ending) { mailTried(ending); }, {},
      mPassword->text().toUtf8() + '\n');
}

void SettingsPage::mailTried(const CommandChild::Ending& ending) {
  mTest->setEnabled(true);
  Look::set(mMailStrip, ending.isDone() ? "well-good" : "well-bad");
  mMailResult->setText(ending.isDone()
                           ? household().text("SettingsMailTaken", {ending.answer.string("server"),
                                                                    ending.answer.string("to")})
                           : household().said(ending.reason));
  if (!ending.isDone()) return;
  mPassword->clear();
  for (QLineEdit* edit : {mAddress, mRecipients, mServer}) edit->setModified(false);
  household().tellAgent("PreferencesDidChange");
  readMail();
}

void SettingsPage::makeMachinesPage() {
  QVBoxLayout* page = addPage("SettingsMachines", "SettingsMachinesText");
  addPreferences(page, Preference::Page::network, "SettingsRemote");
  mPairs = new PairedComputers(household());
  page->addWidget(mPairs);
}

void SettingsPage::makeCopiesPage() {
  QVBoxLayout* page = addPage("SettingsCopies", "SettingsCopiesText");
  mCopies = new QVBoxLayout;
  mCopies->setSpacing(Look::space(3));
  page->addLayout(mCopies);
}

void SettingsPage::loadCopies() {
  mCopiesChild.run({QStringLiteral("recover")}, [this](const CommandChild::Ending& ending) {
    clearLayout(mCopies);
    for (const ZAN_Value& file : ending.answer.elements()) {
      auto* card = new Card;
      const QString which = qt(file.string("name"));
      card->column()->addWidget(
          new TextLabel(household().text(headingOf(which)), Look::Size::heading));
      int number = 0;
      for (const ZAN_Value& version : file["versions"].elements()) {
        ++number;
        constexpr int kMost = 5;
        if (number > kMost) break;
        const auto date = version["date"].asDate();
        auto* row = new QHBoxLayout;
        row->addWidget(
            new TextLabel(household().text(
                "SettingsCopy",
                {household().strings().getMediumDateTime(
                     date.value_or(version["date"].doubleValue())),
                 household().strings().getShortSizeBytes(version["size"].unsignedValue())})),
            1);
        row->addWidget(makeButton(household().text("SettingsBringBack"),
                                  [this, which, number] { bringBack(which, number); }));
        card->column()->addLayout(row);
      }
      if (number == 0)
        card->column()->addWidget(new TextLabel(household().text("SettingsNoCopies"),
                                                Look::Size::body, Look::Meaning::muted));
      mCopies->addWidget(card);
    }
  });
}

/// What it replaces becomes the newest copy itself.
void SettingsPage::bringBack(const QString& which, int number) {
  mCopiesChild.run(
      {QStringLiteral("recover"), which, QStringLiteral("--version"), QString::number(number)},
      [this](const CommandChild::Ending&) {
        household().tellAgent("PreferencesDidChange");
        household().tellAgent("ActionListChanged");
        loadCopies();
      });
}

void SettingsPage::refresh(ChangeSet changed) {
  if (changed.hasAnyOf({Change::tree, Change::history})) loadAlarms();
  if (!changed.has(Change::preferences)) return;
  mPreferences.loadPrefs();
  for (const auto& read : mReads) read();
  readMail();
  loadShown();
}

void SettingsPage::loadAlarms() {
  if (mStack->currentWidget()->isAncestorOf(mAlarms)) mAlarms->load();
}

/// What is not in the preferences is asked for when it is seen.
void SettingsPage::loadShown() {
  loadAlarms();
  if (mStack->currentWidget()->isAncestorOf(mPreview)) mPreview->load();
  if (mStack->currentWidget()->isAncestorOf(mPairs)) mPairs->load();
  if (mStack->currentWidget()->isAncestorOf(mCopies->parentWidget())) loadCopies();
}

}  // namespace corvana
