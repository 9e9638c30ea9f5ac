#include "application/AgeAlarms.h"

#include <QApplication>
#include <QHeaderView>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QStyledItemDelegate>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cmath>

#include "application/BackupFacts.h"
#include "application/Household.h"
#include "core/work/AgeAlarm.h"
#include "core/work/TriggerEvaluation.h"
#include "desktop/Texts.h"

namespace corvana {

namespace {

enum Column { kBackup, kAfter, kLast, kNotRun, kColumns };
constexpr int kReferenceRole = Qt::UserRole;
constexpr double kDay = 86400;
constexpr int kMostDays = 365;
/// Of "not executed": tells by a message.
constexpr std::int64_t kMessage = 1;
constexpr int kLeastRows = 3;
constexpr int kMostRows = 16;
constexpr int kNarrow = 78;  ///< characters; below that a column less

/// Days in words, and a field with steps where they are edited.
class DaysDelegate final : public QStyledItemDelegate {
 public:
  DaysDelegate(Household& household, QObject* parent)
      : QStyledItemDelegate(parent), mHousehold(household) {}

  QString displayText(const QVariant& value, const QLocale& /*locale*/) const override {
    const int days = value.toInt();
    return days == 0 ? mHousehold.text("AlarmsNever") : mHousehold.text("AlarmsNotRunDays", {days});
  }
  QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& /*option*/,
                        const QModelIndex& index) const override {
    auto* field = new QSpinBox(parent);
    field->setRange(0, kMostDays);
    field->setSpecialValueText(mHousehold.text("AlarmsNever"));
    field->setSuffix(mHousehold.text("AlarmsUnit"));
    field->setAccessibleName(index.model()->headerData(kNotRun, Qt::Horizontal).toString());
    return field;
  }

 private:
  Household& mHousehold;
};

/// What is only to be read.
class FixedDelegate final : public QStyledItemDelegate {
 public:
  using QStyledItemDelegate::QStyledItemDelegate;

  QWidget* createEditor(QWidget* /*parent*/, const QStyleOptionViewItem& /*option*/,
                        const QModelIndex& /*index*/) const override {
    return nullptr;
  }
};

}  // namespace

AgeAlarms::AgeAlarms(Household& household)
    : mHousehold(household),
      mSentence(new TextLabel({}, Look::Size::heading)),
      mTrouble(new TextLabel({}, Look::Size::body, Look::Meaning::bad)),
      mList(new QTreeWidget) {
  column()->addWidget(mSentence);
  column()->addWidget(mTrouble);
  mTrouble->hide();
  mList->setAccessibleName(household.text("SettingsAlarms"));
  mList->setRootIsDecorated(false);
  mList->setUniformRowHeights(true);
  mList->setFrameShape(QFrame::NoFrame);
  mList->setStyleSheet(QStringLiteral("QTreeView { border: none; }"));
  // The keyboard gets to the days, too.
  mList->setSelectionBehavior(QAbstractItemView::SelectItems);
  mList->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                         QAbstractItemView::SelectedClicked | QAbstractItemView::AnyKeyPressed);
  mList->setHeaderLabels({household.text("AlarmsBackup"), household.text("AlarmsAfter"),
                          household.text("AlarmsLast"), household.text("AlarmsNotRun")});
  mList->header()->setStretchLastSection(false);
  mList->header()->setSectionResizeMode(kBackup, QHeaderView::Stretch);
  for (int section = kAfter; section < kColumns; ++section)
    mList->header()->setSectionResizeMode(section, QHeaderView::ResizeToContents);
  mList->setItemDelegate(new FixedDelegate(mList));
  mList->setItemDelegateForColumn(kNotRun, new DaysDelegate(household, mList));
  QObject::connect(mList, &QTreeWidget::itemChanged, this,
                   [this](const QTreeWidgetItem* row, int column) { change(*row, column); });
  column()->addWidget(mList);
}

/// What it is comes before when it was done.
void AgeAlarms::resizeEvent(QResizeEvent* event) {
  Card::resizeEvent(event);
  mList->setColumnHidden(kLast, width() < kNarrow * fontMetrics().averageCharWidth());
}

void AgeAlarms::load() {
  const QWidget* const focus = QApplication::focusWidget();
  if (focus != nullptr && focus->inherits("QSpinBox") && mList->isAncestorOf(focus)) return;
  const QSignalBlocker quiet(mList);
  ProgrammedAction::Nodes actions;
  mHousehold.actions().getListOfAllProgrammedActions(actions);
  const auto count = static_cast<int>(actions.size());
  while (mList->topLevelItemCount() > count)
    delete mList->takeTopLevelItem(mList->topLevelItemCount() - 1);
  QList<QTreeWidgetItem*> added;
  for (int row = mList->topLevelItemCount(); row < count; ++row) {
    auto* item = new QTreeWidgetItem;
    added.append(item);
  }
  mList->addTopLevelItems(added);
  int overdue = 0;
  for (int row = 0; row < count; ++row) {
    const ProgrammedAction& action = *actions[static_cast<std::size_t>(row)];
    fill(*mList->topLevelItem(row), action);
    if (AgeAlarm::overdueSince(action, mHousehold.calendar(), mHousehold.now())) ++overdue;
  }
  mSentence->setText(count == 0     ? mHousehold.text("AlarmsNone")
                     : overdue == 0 ? mHousehold.text("AlarmsWell")
                                    : mHousehold.text("AlarmsOverdue", {overdue}));
  mSentence->setMeaning(overdue > 0 ? Look::Meaning::caution : Look::Meaning::plain);
  mList->setVisible(count > 0);
  const int line = mList->sizeHintForRow(0);
  if (line > 0) mList->setMinimumHeight(line * std::clamp(count + 2, kLeastRows, kMostRows));
}

void AgeAlarms::fill(QTreeWidgetItem& row, const ProgrammedAction& action) {
  const ZAN_Value& record = action.getSettings();
  row.setData(kBackup, kReferenceRole, static_cast<qlonglong>(action.getReference()));
  row.setText(kBackup, qt(action.getTitle()));
  const auto limit = AgeAlarm::limitOf(action, mHousehold.calendar(), mHousehold.now());
  const bool isOn = record.integer(ActionKey::ageAlarm) != 0 && limit;
  row.setFlags(Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsEditable |
               (limit ? Qt::ItemIsUserCheckable : Qt::NoItemFlags));
  row.setCheckState(kBackup, isOn ? Qt::Checked : Qt::Unchecked);
  row.setText(kAfter, limit ? mHousehold.text("AlarmsDays",
                                              {static_cast<std::int64_t>(std::ceil(*limit / kDay))})
                            : mHousehold.text("AlarmsByHand"));
  row.setForeground(kAfter, Look::colour(isOn ? Look::Meaning::plain : Look::Meaning::muted));
  const auto success = ActionsTools::getLastSuccessDateForSettings(record);
  row.setText(kLast, success ? withCapital(pastDateOf(mHousehold, *success))
                             : mHousehold.text("CardNoSuccess"));
  const bool isOverdue =
      AgeAlarm::overdueSince(action, mHousehold.calendar(), mHousehold.now()).has_value();
  row.setForeground(kLast, Look::colour(isOverdue ? Look::Meaning::bad : Look::Meaning::muted));
  const std::int64_t days = record.integer(ActionKey::notExecutedDays);
  const qlonglong shown = record.integer(ActionKey::notExecuted) == 0 ? 0
                          : days > 0                                  ? days
                                     : TriggerEvaluation::kUsualLimitInDays;
  row.setData(kNotRun, Qt::EditRole, static_cast<int>(shown));
}

void AgeAlarms::change(const QTreeWidgetItem& row, int column) {
  const std::int64_t reference = row.data(kBackup, kReferenceRole).toLongLong();
  const bool isOn = row.checkState(kBackup) == Qt::Checked;
  const int days = row.data(kNotRun, Qt::EditRole).toInt();
  const Outcome done = mHousehold.edit([&](ProgrammedAction& root) -> Outcome {
    ProgrammedAction* const action = root.actionForReference(reference);
    if (action == nullptr) return {};
    if (column == kBackup) {
      action->setSetting(ActionKey::ageAlarm, isOn ? 1 : 0);
    } else if (column == kNotRun) {
      // Where it told by mail it goes on doing so.
      const std::int64_t before = action->getSettings().integer(ActionKey::notExecuted);
      action->setSetting(ActionKey::notExecuted, days == 0 ? 0 : before != 0 ? before : kMessage);
      if (days > 0) action->setSetting(ActionKey::notExecutedDays, days);
    }
    return {};
  });
  mTrouble->setVisible(!done);
  if (!done)
    mTrouble->setText(
        mHousehold.text("OverviewCouldNot", {utf8(mHousehold.said(done.error().text))}));
}

}  // namespace corvana
