#include "application/ServerPlace.h"

#include <QComboBox>
#include <QFrame>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QPointer>
#include <QUrl>
#include <QVBoxLayout>
#include <filesystem>
#include <iterator>
#include <memory>
#include <system_error>
#include <utility>

#include "application/Household.h"
#include "desktop/Texts.h"
#include "execute/restic/Repository.h"

namespace corvana {

namespace {

constexpr int kAddressColumns = 34;

/// Of the server, in the order of the choice; the last one is typed whole.
struct Kind {
  const char* scheme;
  const char* name;
  const char* example;
  bool hasLogin;
};
constexpr Kind kKinds[] = {{"sftp:", "ServerSftp", "anna@example.org:/backup", false},
                           {"s3:", "ServerS3", "https://s3.example.org/bucket", true},
                           {"rest:", "ServerRest", "https://example.org:8000/", true},
                           {"", "ServerOther", "b2:bucket:folder", false}};

}  // namespace

Outcome RepositoryKeeping::keepIn(const std::string& hiddenFolder) const {
  const auto known = RepositorySecret::find(place, hiddenFolder);
  RepositorySecret secret = known ? *known : RepositorySecret();
  if (RepositoryAddress(address).hasSecret()) secret.address = address;
  if (!password.empty()) secret.password = password;
  if (secret.password.empty())
    return Error{ErrorKind::refused, place + ": a repository needs a password"};
  const auto kept = secret.keep(place, hiddenFolder);
  return kept ? Outcome() : Outcome(kept.error());
}

ServerFields::ServerFields(Household& household)
    : mHousehold(household),
      mKind(new QComboBox),
      mAddress(new QLineEdit),
      mLogin(new QWidget),
      mUser(new QLineEdit),
      mSecret(new QLineEdit) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(2));
  auto* line = new QHBoxLayout;
  line->setSpacing(Look::space(2));
  for (const Kind& kind : kKinds) mKind->addItem(household.text(kind.name));
  mKind->setAccessibleName(household.text("ServerKind"));
  mAddress->setAccessibleName(household.text("ServerAddress"));
  mAddress->setMinimumWidth(kAddressColumns * fontMetrics().averageCharWidth());
  line->addWidget(mKind);
  line->addWidget(mAddress, 1);
  column->addLayout(line);
  auto* login = new QHBoxLayout(mLogin);
  login->setContentsMargins(0, 0, 0, 0);
  login->setSpacing(Look::space(2));
  for (QLineEdit* field : {mUser, mSecret}) login->addWidget(field);
  mSecret->setEchoMode(QLineEdit::Password);
  column->addWidget(mLogin);
  QObject::connect(mKind, &QComboBox::currentIndexChanged, this, [this] { showKind(); });
  for (QLineEdit* field : {mAddress, mUser, mSecret})
    QObject::connect(field, &QLineEdit::textChanged, this, [this] {
      if (onChange) onChange();
    });
  showKind();
}

void ServerFields::showKind() {
  const Kind& kind = kKinds[mKind->currentIndex()];
  mAddress->setPlaceholderText(QLatin1String(kind.example));
  mLogin->setVisible(kind.hasLogin);
  const bool isKey = std::string_view(kind.scheme) == "s3:";
  const auto name = [](QLineEdit* field, const QString& words) {
    field->setPlaceholderText(words);
    field->setAccessibleName(words);
  };
  name(mUser, mHousehold.text(isKey ? "ServerKey" : "ServerUser"));
  name(mSecret, mHousehold.text(isKey ? "ServerSecret" : "ServerPassword"));
  if (onChange) onChange();
}

void ServerFields::show(const QString& address) {
  int at = 0;
  while (at + 1 < static_cast<int>(std::size(kKinds)) &&
         !address.startsWith(QLatin1String(kKinds[at].scheme)))
    ++at;
  mKind->setCurrentIndex(address.isEmpty() ? 0 : at);
  mAddress->setText(address.mid(qstrlen(kKinds[at].scheme)));
  mUser->clear();
  mSecret->clear();
}

QString ServerFields::address() const {
  const Kind& kind = kKinds[mKind->currentIndex()];
  QString text = mAddress->text().trimmed();
  if (text.isEmpty()) return text;
  if (kind.hasLogin && !text.contains(QLatin1String("://"))) text.prepend("https://");
  if (kind.hasLogin && !mUser->text().isEmpty()) {
    const auto coded = [](const QLineEdit* field) {
      return QString::fromLatin1(QUrl::toPercentEncoding(field->text()));
    };
    text.insert(text.indexOf(QLatin1String("://")) + 3, coded(mUser) + ':' + coded(mSecret) + '@');
  }
  return QLatin1String(kind.scheme) + text;
}

RepositoryLock::RepositoryLock(Household& household, std::function<RepositoryKeeping()> keeping)
    : mHousehold(household),
      mKeeping(std::move(keeping)),
      mPassword(new QLineEdit),
      mTest(makeButton(household.text("ServerTest"), [this] { tryIt(); })),
      mStrip(new QFrame),
      mResult(new TextLabel) {
  auto* column = new QVBoxLayout(this);
  column->setContentsMargins(0, 0, 0, 0);
  column->setSpacing(Look::space(2));
  auto* line = new QHBoxLayout;
  line->setSpacing(Look::space(2));
  auto* words = new TextLabel(household.text("RepositoryPassword"));
  words->setWordWrap(false);
  words->setBuddy(mPassword);
  mPassword->setEchoMode(QLineEdit::Password);
  mPassword->setAccessibleName(household.text("RepositoryPassword"));
  line->addWidget(words);
  line->addWidget(mPassword, 1);
  line->addWidget(mTest);
  column->addLayout(line);
  column->addWidget(new TextLabel(household.text("RepositoryPasswordHelp"), Look::Size::small,
                                  Look::Meaning::muted));
  auto* strip = new QVBoxLayout(mStrip);
  mResult->setTextInteractionFlags(Qt::TextSelectableByMouse);
  strip->addWidget(mResult);
  column->addWidget(mStrip);
  clear();
  QObject::connect(mPassword, &QLineEdit::textChanged, this, [this] {
    if (onChange) onChange();
  });
}

void RepositoryLock::clear() {
  mChild.forget();
  mPassword->clear();
  mStrip->hide();
  mTest->setEnabled(true);
}

std::string RepositoryLock::password() const { return utf8(mPassword->text()); }

void RepositoryLock::say(const char* look, const QString& text) {
  Look::set(mStrip, look);
  mResult->setText(text);
  mStrip->show();
}

void RepositoryLock::keep(std::function<void(const RepositoryKeeping&, bool)> kept) {
  const auto keeping = std::make_shared<RepositoryKeeping>(mKeeping());
  if (keeping->place.empty()) return say("well-caution", mHousehold.text("ServerNoAddress"));
  mTest->setEnabled(false);
  say("well-accent", mHousehold.text("ServerTrying"));
  QtRunLoop& loop = mHousehold.loop();
  // A keyring may ask to be unlocked, and the window goes on meanwhile.
  loop.detachThread("repository", [self = QPointer(this), keeping, &loop, kept = std::move(kept),
                                   folder = mHousehold.store().folder().hiddenFolderPath()] {
    const auto outcome = std::make_shared<Outcome>(keeping->keepIn(folder));
    std::error_code unknown;
    const bool isNew =
        keeping->address.empty() && !std::filesystem::exists(keeping->place, unknown) && !unknown;
    loop.performOnMain([self, keeping, outcome, isNew, kept] {
      if (self.isNull()) return;
      self->mTest->setEnabled(true);
      if (!*outcome) return self->say("well-bad", self->mHousehold.said(outcome->error().text));
      kept(*keeping, isNew);
    });
  });
}

void RepositoryLock::tryIt() {
  keep([this](const RepositoryKeeping& keeping, bool isNew) {
    if (isNew) return say("well-good", mHousehold.text("RepositoryNew"));
    ask(qt(keeping.place));
  });
}

void RepositoryLock::ask(const QString& place) {
  mTest->setEnabled(false);
  mChild.run({QStringLiteral("repository"), QStringLiteral("--"), place},
             [this](const CommandChild::Ending& ending) {
               mTest->setEnabled(true);
               say(ending.isDone() ? "well-good" : "well-bad",
                   mHousehold.said(ending.isDone() ? ending.answer.string("text") : ending.reason));
             });
}

RepositoryDialog::RepositoryDialog(QWidget* parent, Household& household, const QString& address)
    : QDialog(parent),
      mFields(new ServerFields(household)),
      mLock(new RepositoryLock(household, [this] { return keeping(); })),
      mOpen(makeButton(
          household.text("RestoreServerOpen"), [this] { goOn(); }, true)) {
  setWindowTitle(household.text("RestoreServerTitle"));
  setProperty("look", "page");
  setAttribute(Qt::WA_DeleteOnClose);
  auto* column = new QVBoxLayout(this);
  const int margin = Look::space(6);
  column->setContentsMargins(margin, margin, margin, margin);
  column->setSpacing(Look::space(3));
  column->addWidget(new TextLabel(household.text("RestoreServerTitle"), Look::Size::heading));
  column->addWidget(
      new TextLabel(household.text("RestoreServerText"), Look::Size::body, Look::Meaning::muted));
  column->addWidget(mFields);
  column->addWidget(mLock);
  column->addStretch(1);
  auto* buttons = new QHBoxLayout;
  buttons->addWidget(makeButton(household.text("CancelButton"), [this] { reject(); }));
  buttons->addStretch(1);
  buttons->addWidget(mOpen);
  column->addLayout(buttons);
  mFields->onChange = [this] { mOpen->setEnabled(!mFields->address().isEmpty()); };
  mFields->show(address);
  mFields->onChange();
}

RepositoryKeeping RepositoryDialog::keeping() const {
  const std::string address = utf8(mFields->address());
  const std::string shown = RepositoryAddress(address).shown();
  return {.place = shown, .address = address, .password = mLock->password()};
}

void RepositoryDialog::goOn() {
  mLock->keep([this](const RepositoryKeeping& keeping, bool) {
    const auto opened = onOpened;
    accept();
    opened(qt(keeping.place));
  });
}

}  // namespace corvana
