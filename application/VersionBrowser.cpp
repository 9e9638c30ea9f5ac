#include "application/VersionBrowser.h"

#include <QHBoxLayout>
#include <QHeaderView>
#include <QScrollArea>
#include <QScrollBar>
#include <QSignalBlocker>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>

#include "application/Household.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

constexpr int kNarrow = 60;  ///< characters
constexpr int kRowRole = Qt::UserRole;
constexpr int kNameRole = Qt::UserRole + 1;

QPushButton* makeFlat(const QString& text, std::function<void()> pressed) {
  QPushButton* button = makeButton(text, std::move(pressed));
  button->setFlat(true);
  return button;
}

}  // namespace

QStringList CopiesSource::words(QStringList command, const QStringList& paths) const {
  if (!from.isEmpty()) command << QStringLiteral("--from") << from;
  command << QStringLiteral("--");
  if (from.isEmpty()) command << QString::number(reference);
  return command + paths;
}

VersionBrowser::VersionBrowser(Household& household)
    : mHousehold(household),
      mWay(new QScrollArea),
      mCrumbs(nullptr),
      mShowFolder(makeFlat(household.text("RestoreShowFolder"), [this] { onShowFolder(); })),
      mList(new QTreeWidget),
      mNote(new TextLabel({}, Look::Size::small, Look::Meaning::muted)) {
  const int margin = Look::space(3);
  column()->setContentsMargins(margin, margin, margin, margin);
  auto* top = new QHBoxLayout;
  auto* crumbs = new QWidget;
  mCrumbs = new QHBoxLayout(crumbs);
  mCrumbs->setContentsMargins(0, 0, 0, 0);
  mCrumbs->setSpacing(0);
  mWay->setWidget(crumbs);
  mWay->setWidgetResizable(true);
  mWay->setFocusPolicy(Qt::NoFocus);
  mWay->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  mWay->setVerticalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  mWay->setStyleSheet(
      QStringLiteral("QScrollArea, QScrollArea > QWidget > QWidget "
                     "{ background: transparent; }"));
  QScrollBar* const along = mWay->horizontalScrollBar();
  QObject::connect(along, &QScrollBar::rangeChanged, along,
                   [along] { along->setValue(along->maximum()); });
  top->addWidget(mWay, 1);
  top->addWidget(mShowFolder);
  column()->addLayout(top);
  mList->setAccessibleName(household.text("RestoreList"));
  mList->setRootIsDecorated(false);
  mList->setUniformRowHeights(true);
  mList->setSelectionMode(QAbstractItemView::ExtendedSelection);
  mList->setFrameShape(QFrame::NoFrame);
  mList->setStyleSheet(QStringLiteral("QTreeView { border: none; }"));
  mList->setHeaderLabels({household.text("RestoreColumnName"), household.text("RestoreColumnSince"),
                          household.text("RestoreColumnSize"),
                          household.text("RestoreColumnChanged")});
  for (const int column : {2, 3})
    mList->headerItem()->setTextAlignment(column, Qt::AlignRight | Qt::AlignVCenter);
  mList->header()->setStretchLastSection(false);
  mList->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  for (int column = 1; column < mList->columnCount(); ++column)
    mList->header()->setSectionResizeMode(column, QHeaderView::ResizeToContents);
  QObject::connect(mList, &QTreeWidget::itemSelectionChanged, this, [this] { onChosen(); });
  QObject::connect(mList, &QTreeWidget::itemActivated, this, [this](QTreeWidgetItem* row) {
    const CopiedItem* const item = itemOf(row->data(0, kRowRole).toInt());
    if (item != nullptr && item->isFolder) goTo(item->name);
  });
  column()->addWidget(mList, 1);
  column()->addWidget(mNote);
}

/// What it is called comes before when it was changed.
void VersionBrowser::resizeEvent(QResizeEvent* event) {
  Card::resizeEvent(event);
  mList->setColumnHidden(3, width() < kNarrow * fontMetrics().averageCharWidth());
}

void VersionBrowser::setSource(const CopiesSource& source) {
  mSource = source;
  mFolder.clear();
  mTops.clear();
}

void VersionBrowser::load(const QString& date, const QString& find) {
  mDate = date;
  QStringList words{QStringLiteral("browse"), QStringLiteral("--at"), date};
  if (!find.isEmpty()) words << QStringLiteral("--find=") + find;
  mNote->setText(mHousehold.text("RestoreReading"));
  mNote->show();
  mChild.run(mSource.words(words, mFolder.isEmpty() ? QStringList() : QStringList(pathOf(mFolder))),
             [this, isFound = !find.isEmpty()](const CommandChild::Ending& ending) {
               take(ending, isFound);
             });
}

void VersionBrowser::take(const CommandChild::Ending& ending, bool isFound) {
  const auto& found = ending.answer["items"];
  const bool isTop = ending.isDone() && !isFound && mFolder.isEmpty();
  if (isTop) {
    mTops.clear();
    for (const ZAN_Value& one : found.elements())
      mTops[qt(one.string("path"))] = qt(one.string("source"));
  }
  // One source is opened at once; there is nothing to choose.
  if (isTop && found.size() == 1 && found.at(0).string("kind") == "folder") {
    mFolder = qt(found.at(0).string("path"));
    return load(mDate, {});
  }
  mItems.clear();
  if (ending.isDone()) {
    for (const ZAN_Value& one : found.elements()) {
      mItems.push_back({.name = qt(one.string("path")),
                        .isFolder = one.string("kind") == "folder",
                        .bytes = one["bytes"].unsignedValue(),
                        .changed = one["changed"].doubleValue(),
                        .since = qt(one.string("since")),
                        .path = qt(one.string("contents"))});
    }
  }
  std::ranges::stable_sort(mItems, [](const CopiedItem& one, const CopiedItem& other) {
    if (one.isFolder != other.isFolder) return one.isFolder;
    return QString::localeAwareCompare(CopiedItem::lastOf(one.name),
                                       CopiedItem::lastOf(other.name)) < 0;
  });
  fill(isFound);
  const std::int64_t more = ending.answer.integer("more");
  mNote->setText(!ending.isDone() ? mHousehold.said(ending.reason)
                 : more > 0       ? mHousehold.text("RestoreMore", {more})
                 : mItems.empty() ? mHousehold.text(isFound ? "RestoreNotFound" : "RestoreEmpty")
                                  : QString());
  mNote->setVisible(!mNote->text().isEmpty());
  showCrumbs();
  onChosen();
}

/// What was marked before stays so.
void VersionBrowser::fill(bool isFound) {
  const QSignalBlocker quiet(mList);
  QStringList before;
  for (const QTreeWidgetItem* row : mList->selectedItems())
    before << row->data(0, kNameRole).toString();
  mList->clear();
  QList<QTreeWidgetItem*> rows;
  const QIcon folder = Look::icon(QStringLiteral("folder"), Look::Meaning::muted);
  const ZAN_StringUtils& strings = mHousehold.strings();
  for (const CopiedItem& one : mItems) {
    const bool isGone = one.since == QLatin1String("gone");
    const QString since = isGone ? mHousehold.text("RestoreGone")
                          : one.since == QLatin1String("changed")
                              ? mHousehold.text("RestoreChanged")
                              : QString();
    auto* row =
        new QTreeWidgetItem({isFound ? one.name : CopiedItem::lastOf(one.name), since,
                             one.isFolder ? QString() : qt(strings.getShortSizeBytes(one.bytes)),
                             one.isFolder ? QString() : qt(strings.getShortTimeDate(one.changed))});
    if (one.isFolder) row->setIcon(0, folder);
    row->setTextAlignment(2, Qt::AlignRight | Qt::AlignVCenter);
    for (int column = 1; column < mList->columnCount(); ++column)
      row->setForeground(column, Look::colour(Look::Meaning::muted));
    if (isGone) row->setForeground(1, Look::colour(Look::Meaning::bad));
    row->setData(0, kRowRole, static_cast<int>(rows.size()));
    row->setData(0, kNameRole, one.name);
    rows.append(row);
  }
  mList->addTopLevelItems(rows);
  for (QTreeWidgetItem* row : rows)
    row->setSelected(before.contains(row->data(0, kNameRole).toString()));
}

void VersionBrowser::showCrumbs() {
  while (QLayoutItem* item = mCrumbs->takeAt(0)) {
    if (item->widget() != nullptr) item->widget()->deleteLater();
    delete item;
  }
  // What has but one source begins with that.
  if (mTops.size() != 1)
    mCrumbs->addWidget(makeFlat(mHousehold.text("RestoreEverything"), [this] { goTo({}); }));
  QString path;
  for (const QString& part : mFolder.split('/', Qt::SkipEmptyParts)) {
    path += (path.isEmpty() ? "" : "/") + part;
    if (mCrumbs->count() > 0)
      mCrumbs->addWidget(
          new TextLabel(QStringLiteral("›"), Look::Size::body, Look::Meaning::muted));
    mCrumbs->addWidget(makeFlat(part, [this, path] { goTo(path); }));
  }
  mCrumbs->addStretch(1);
  mWay->setFixedHeight(mShowFolder->sizeHint().height());
}

QString VersionBrowser::pathOf(const QString& name) const {
  for (const auto& [top, source] : mTops)
    if (name == top || name.startsWith(top + '/')) return source + name.mid(top.size());
  return name;
}

void VersionBrowser::goTo(const QString& folder) {
  mFolder = folder;
  onGone();
}

const CopiedItem* VersionBrowser::itemOf(int row) const {
  return row >= 0 && row < std::ssize(mItems) ? &mItems[static_cast<std::size_t>(row)] : nullptr;
}

std::vector<CopiedItem> VersionBrowser::chosen() const {
  std::vector<CopiedItem> items;
  for (const QTreeWidgetItem* row : mList->selectedItems())
    if (const CopiedItem* const item = itemOf(row->data(0, kRowRole).toInt()))
      items.push_back(*item);
  return items;
}

}  // namespace corvana
