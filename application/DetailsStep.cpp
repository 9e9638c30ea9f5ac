#include "application/DetailsStep.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLineEdit>
#include <QVBoxLayout>
#include <algorithm>

#include "desktop/Texts.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

namespace {

constexpr int kFieldColumns = 30;

/// The groups of the tree, the outer ones first.
void groupsIn(const ProgrammedAction& node, std::vector<const ProgrammedAction*>& groups) {
  for (const auto& child : node.getChildrenList()) {
    if (!child->isGroup()) continue;
    groups.push_back(child.get());
    groupsIn(*child, groups);
  }
}

/// "Work › Letters".
QString wayTo(const ProgrammedAction& group) {
  const ProgrammedAction* const above = group.parent();
  const QString title = qt(group.getTitle());
  return above == nullptr || above->parent() == nullptr
             ? title
             : wayTo(*above) + QStringLiteral(" › ") + title;
}

}  // namespace

DetailsStep::DetailsStep(Household& household)
    : mHousehold(household),
      mGroup(new QComboBox),
      mShortcut(new QLineEdit),
      mFavourite(new QCheckBox(household.text("DetailsFavourite"))),
      mContext(new QComboBox),
      mAgeAlarm(new QCheckBox(household.text("DetailsAgeAlarm"))),
      mMakeUp(new QCheckBox(household.text("DetailsMakeUp"))),
      mDiskRows(new QVBoxLayout) {
  auto* outer = new QVBoxLayout(this);
  outer->setContentsMargins(0, 0, 0, 0);
  auto* card = new Card;
  QVBoxLayout* const column = card->column();
  const auto row = [&](const char* key, QWidget* field) {
    auto* line = new QHBoxLayout;
    line->setSpacing(Look::space(3));
    auto* name = new TextLabel(household.text(key));
    name->setBuddy(field);
    field->setAccessibleName(household.text(key));
    field->setMinimumWidth(kFieldColumns * fontMetrics().averageCharWidth());
    line->addWidget(name, 1);
    line->addWidget(field);
    column->addLayout(line);
  };
  mGroup->setEditable(true);
  mGroup->setInsertPolicy(QComboBox::NoInsert);
  mGroup->lineEdit()->setPlaceholderText(household.text("DetailsNoGroup"));
  mGroup->lineEdit()->setAccessibleName(household.text("DetailsGroup"));
  row("DetailsGroup", mGroup);
  row("DetailsShortcut", mShortcut);
  using Context = ActionContext;
  for (const auto& [key, context] : {std::pair("DetailsAnywhere", Context::none),
                                     {"DetailsOffice", Context::office},
                                     {"DetailsHome", Context::home},
                                     {"DetailsRoad", Context::nomad}})
    mContext->addItem(household.text(key), static_cast<int>(context));
  row("DetailsContext", mContext);
  for (QCheckBox* box : {mFavourite, mAgeAlarm, mMakeUp}) column->addWidget(box, 0, Qt::AlignLeft);
  auto* disks = new QHBoxLayout;
  disks->addWidget(new TextLabel(household.text("DetailsDisks")), 1);
  disks->addWidget(makeButton(household.text("DetailsAddDisk"), [this] {
    const QString folder = QFileDialog::getExistingDirectory(
        this, mHousehold.text("DetailsAddDisk"), QDir::homePath());
    if (folder.isEmpty()) return;
    mDisks.push_back({utf8(folder), {}});
    showDisks();
  }));
  column->addLayout(disks);
  column->addLayout(mDiskRows);
  outer->addWidget(card);
}

void DetailsStep::fillGroups(const ProgrammedAction* parent) {
  mGroup->clear();
  std::vector<const ProgrammedAction*> groups;
  groupsIn(mHousehold.actions(), groups);
  mGroups.clear();
  mShownGroup.clear();
  const auto isKnown = [this](const QString& name) {
    return std::ranges::find(mGroups, name, &Group::name) != mGroups.end();
  };
  for (const ProgrammedAction* group : groups) {
    const QString title = qt(group->getTitle());
    const bool isOnly = std::ranges::count(groups, group->getTitle(),
                                           [](const auto* one) { return one->getTitle(); }) == 1;
    const QString way = isOnly ? title : wayTo(*group);
    QString name = way;
    for (int number = 2; isKnown(name); ++number) name = way + QStringLiteral(" (%1)").arg(number);
    mGroups.push_back({name, group->getReference()});
    mGroup->addItem(name);
    if (group == parent) mShownGroup = name;
  }
  mGroup->setCurrentText(mShownGroup);
}

void DetailsStep::show(const ProgrammedAction& action) {
  const ZAN_Value& settings = action.getSettings();
  fillGroups(action.parent());
  mShortcut->setText(qt(action.getShortcut()));
  mFavourite->setChecked(action.isFavorite());
  mContext->setCurrentIndex(
      std::max(0, mContext->findData(static_cast<int>(action.getActionContext()))));
  mAgeAlarm->setChecked(settings.integer(ActionKey::ageAlarm) != 0);
  mMakeUp->setChecked(settings.integer(ActionKey::makesUpMissed) != 0);
  mDisks.clear();
  for (const ZAN_Value& stored : settings[VolumeIdentity::kRotation].elements())
    mDisks.push_back({std::string(FolderDescription(stored).path()), stored});
  showDisks();
}

void DetailsStep::showDisks() {
  while (QLayoutItem* item = mDiskRows->takeAt(0)) {
    if (item->widget() != nullptr) item->widget()->deleteLater();
    delete item;
  }
  for (const Disk& disk : mDisks) {
    auto* line = new QWidget;
    auto* row = new QHBoxLayout(line);
    row->setContentsMargins(0, 0, 0, 0);
    row->addWidget(new TextLabel(qt(disk.path), Look::Size::body, Look::Meaning::muted), 1);
    auto* remove = makeButton(mHousehold.text("DetailsRemoveDisk"), [this, path = disk.path] {
      std::erase_if(mDisks, [&](const Disk& one) { return one.path == path; });
      showDisks();
    });
    remove->setFlat(true);
    row->addWidget(remove);
    mDiskRows->addWidget(line);
  }
}

std::vector<std::string> DetailsStep::newDisks() const {
  std::vector<std::string> paths;
  for (const Disk& disk : mDisks)
    if (disk.stored.isNull()) paths.push_back(disk.path);
  return paths;
}

/// A key that is not there and whose usual value was left is not written.
void DetailsStep::applyTo(ZAN_Value& record, const ActionFolders& folders) const {
  const auto set = [&](std::string_view key, std::int64_t value) {
    if (record.integer(key) != value) record.setValue(key, value);
  };
  const std::string shortcut = utf8(mShortcut->text().trimmed());
  if (record.string(ActionKey::shortcut) != shortcut)
    record.setValue(ActionKey::shortcut, shortcut);
  set(ActionKey::favourite, mFavourite->isChecked() ? 1 : 0);
  set(ActionKey::context, mContext->currentData().toInt());
  set(ActionKey::ageAlarm, mAgeAlarm->isChecked() ? 1 : 0);
  set(ActionKey::makesUpMissed, mMakeUp->isChecked() ? 1 : 0);
  ZAN_Value disks = ZAN_Value::array();
  for (const Disk& disk : mDisks)
    if (!disk.stored.isNull()) disks.append(disk.stored);
  for (const ZAN_Value& added : folders.rotation().elements()) disks.append(added);
  if (disks.empty())
    record.removeKey(VolumeIdentity::kRotation);
  else
    record.setValue(VolumeIdentity::kRotation, disks);
}

void DetailsStep::moveIn(ProgrammedAction& root, ProgrammedAction& action) const {
  const QString wanted = mGroup->currentText().trimmed();
  if (wanted == mShownGroup) return;
  ProgrammedAction* target = &root;
  if (!wanted.isEmpty()) {
    const auto known = std::ranges::find(mGroups, wanted, &Group::name);
    // One that is gone meanwhile leaves the action where it is.
    target = known != mGroups.end() ? root.actionOrGroupForReference(known->reference)
                                    : root.addGroup(utf8(wanted), {}, 0);
  }
  if (target != nullptr) action.moveActionTo(*target, target->numberOfChildren(), SortMode::title);
}

}  // namespace corvana
