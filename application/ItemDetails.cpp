#include "application/ItemDetails.h"

#include <QListWidget>
#include <QVBoxLayout>

#include "application/Household.h"
#include "application/Preview.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kVersionRole = Qt::UserRole;
constexpr int kMostVersions = 200;

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

void ItemDetails::clearVersions() {
  mChild.forget();
  mVersions->clear();
  mVersions->hide();
  mVersionsTitle->hide();
}

void ItemDetails::showSeveral(const QString& name, const QString& facts) {
  clearVersions();
  mPreview->show({});
  mName->setText(name);
  mFacts->setText(facts);
}

void ItemDetails::showItem(const CopiesSource& source, const CopiedItem& item, const QString& path,
                           int version) {
  clearVersions();
  mName->setText(CopiedItem::lastOf(item.name));
  mFacts->setText(item.isFolder
                      ? mHousehold.text("RestoreFolder")
                      : mHousehold.text("RestoreFacts",
                                        {mHousehold.strings().getShortSizeBytes(item.bytes),
                                         mHousehold.strings().getMediumDateTime(item.changed)}));
  mPreview->show(item.isFolder ? QString() : item.path);
  if (item.isFolder) return;
  mChild.run(
      source.words({QStringLiteral("versions")}, {path}),
      [this, version](const CommandChild::Ending& ending) { showVersions(ending, version); });
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
