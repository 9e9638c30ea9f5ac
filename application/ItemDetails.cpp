#include "application/ItemDetails.h"

#include <QDir>
#include <QListWidget>
#include <QVBoxLayout>
#include <utility>

#include "application/Household.h"
#include "application/Preview.h"
#include "desktop/Texts.h"
#include "execute/restic/Repository.h"

namespace corvana {

namespace {

constexpr int kVersionRole = Qt::UserRole;
constexpr int kMostVersions = 200;
constexpr std::uint64_t kLargestFetched = 8 << 20;
constexpr int kFetchDelay = 300;  // ms
constexpr const char* kFetchFolder = "/Preview-";

/// Where the copies of a backup are, so that what is read from there is no run of the backup.
CopiesSource placeOf(Household& household, const CopiesSource& source) {
  const ProgrammedAction* const action = household.actions().actionForReference(source.reference);
  if (!source.from.isEmpty() || action == nullptr) return source;
  const ZAN_Value& record = action->getSettings();
  const std::string address = record.string(RepositoryKey::address);
  return {.from = qt(address.empty() ? ActionsTools::getDestinationForAction(record).path()
                                     : std::string_view(address))};
}

}  // namespace

ItemDetails::ItemDetails(Household& household)
    : mHousehold(household),
      mName(new TextLabel({}, Look::Size::strong)),
      mFacts(new TextLabel({}, Look::Size::small, Look::Meaning::muted)),
      mPreview(new Preview(household.loop())),
      mVersionsTitle(new TextLabel(household.text("RestoreVersions"), Look::Size::strong)),
      mVersions(new QListWidget),
      mRestore(makeButton(
          household.text("RestoreButton"), [this] { onRestore(); }, true)),
      mElsewhere(
          makeButton(household.text("RestoreElsewhereButton"), [this] { onRestoreElsewhere(); })) {
  mVersions->setAccessibleName(household.text("RestoreVersions"));
  mVersions->setFrameShape(QFrame::NoFrame);
  mVersions->setStyleSheet(QStringLiteral("QListView { border: none; }"));
  mVersions->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  mVersions->setMinimumHeight(Look::space(10));
  // A name may be one long word.
  for (TextLabel* label : {mName, mFacts}) label->setMinimumWidth(1);
  // What a program that was killed has left.
  const QString hidden = qt(household.store().folder().hiddenFolderPath());
  for (const QString& name : QDir(hidden).entryList(
           {QLatin1String(kFetchFolder + 1) + QLatin1Char('*')}, QDir::Dirs | QDir::NoSymLinks))
    QDir(hidden + '/' + name).removeRecursively();
  mFetchTimer.setSingleShot(true);
  mFetchTimer.setInterval(kFetchDelay);
  QObject::connect(&mFetchTimer, &QTimer::timeout, this, [this] { fetch(); });
  const auto wanted = [this](const QListWidgetItem* row) {
    onVersion(row->data(kVersionRole).toInt());
  };
  QObject::connect(mVersions, &QListWidget::itemActivated, this, wanted);
  QObject::connect(mVersions, &QListWidget::itemClicked, this, wanted);
  for (QWidget* widget : std::initializer_list<QWidget*>{mName, mFacts, mPreview, mVersionsTitle})
    column()->addWidget(widget);
  column()->addWidget(mVersions, 1);
  column()->addStretch(0);
  column()->addWidget(mRestore);
  column()->addWidget(mElsewhere);
  column()->addWidget(
      new TextLabel(household.text("RestoreKeeps"), Look::Size::small, Look::Meaning::muted));
}

void ItemDetails::setPossible(bool isRestorable, bool isRestorableElsewhere) {
  mRestore->setEnabled(isRestorable);
  mElsewhere->setEnabled(isRestorableElsewhere);
}

void ItemDetails::clear() {
  mChild.forget();
  mFetchTimer.stop();
  mFetchChild.cancel();
  mFetched.reset();
  mVersions->clear();
  mVersions->hide();
  mVersionsTitle->hide();
}

void ItemDetails::showSeveral(const QString& name, const QString& facts) {
  clear();
  mPreview->show({});
  mName->setText(name);
  mFacts->setText(facts);
}

void ItemDetails::showItem(const CopiesSource& source, const CopiedItem& item, const QString& path,
                           const Version& version) {
  clear();
  mName->setText(CopiedItem::lastOf(item.name));
  mFacts->setText(item.isFolder
                      ? mHousehold.text("RestoreFolder")
                      : mHousehold.text("RestoreFacts",
                                        {mHousehold.strings().getShortSizeBytes(item.bytes),
                                         mHousehold.strings().getMediumDateTime(item.changed)}));
  mPreview->show(item.isFolder ? QString() : item.path);
  if (item.isFolder) return;
  if (item.path.isEmpty() && item.bytes > 0 && item.bytes <= kLargestFetched) {
    mFetchWords =
        placeOf(mHousehold, source)
            .words({QStringLiteral("restore"), QStringLiteral("--at"), version.date}, {path});
    mFetchTimer.start();
  }
  mChild.run(source.words({QStringLiteral("versions")}, {path}),
             [this, place = version.place](const CommandChild::Ending& ending) {
               showVersions(ending, place);
             });
}

/// Into a folder that nobody else may read, and only as long as it is being looked at.
void ItemDetails::fetch() {
  mFetched =
      std::make_shared<QTemporaryDir>(qt(mHousehold.store().folder().hiddenFolderPath()) +
                                      QLatin1String(kFetchFolder) + QStringLiteral("XXXXXX"));
  if (!mFetched->isValid()) return;
  QStringList words = mFetchWords;
  words.insert(1, QStringLiteral("--to"));
  words.insert(2, mFetched->path());
  mFetchChild.run(words, [this](const CommandChild::Ending& ending) { fetched(ending); });
}

/// Where it could not be had there is no preview; why, restoring it would say.
void ItemDetails::fetched(const CommandChild::Ending& ending) {
  const auto& items = ending.answer["items"];
  if (ending.isDone() && !items.empty())
    mPreview->show(qt(items.at(0).stringView()), std::exchange(mFetched, nullptr));
  mFetched.reset();
}

/// What did not change from one version to the next is one.
void ItemDetails::showVersions(const CommandChild::Ending& ending, int shownVersion) {
  struct Shown {
    int version;
    QString text;
  };
  std::vector<Shown> shown;
  ZAN_Value last;
  int index = -1;
  int current = -1;
  const ZAN_StringUtils& strings = mHousehold.strings();
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
          {index, mHousehold.text("RestoreVersion",
                                  {strings.getShortTimeDate(version["date"].doubleValue()),
                                   strings.getShortSizeBytes(version["bytes"].unsignedValue())})});
    }
    if (index <= shownVersion && !shown.empty()) current = shown.back().version;
  }
  for (auto one = shown.rbegin(); one != shown.rend() && mVersions->count() < kMostVersions;
       ++one) {
    if (one->text.isEmpty()) continue;
    auto* row = new QListWidgetItem(one->text, mVersions);
    row->setData(kVersionRole, one->version);
    if (one->version == current) mVersions->setCurrentItem(row);
  }
  const bool isAny = mVersions->count() > 0;
  mVersionsTitle->setVisible(isAny);
  mVersions->setVisible(isAny);
}

}  // namespace corvana
