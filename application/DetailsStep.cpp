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
  for (const ProgrammedAction* group : groups) mGroup->addItem(qt(group->getTitle()));
  mShownGroup = parent == nullptr ? QString() : qt(parent->getTitle());
  mGroup->setCurrentText(mShownGroup);
}

void DetailsStep::show(const ProgrammedAction& action) {
  const ZAN_Value& settings = action.getSettings();
  fillGroups(action.parent());
  mShortcut->setText(qt(action.getShortcut()));
  mFavourite->setChecked(action.isFavorite());
  mContext->setCurrentIndex(
      std::max(0, mContext->findData(static_cast<int>(action.getActionContext()))));
  mAgeAlarm->setChecked(settings.integer("TriggerAgeAlarm") != 0);
  mMakeUp->setChecked(settings.integer("TriggerMakeUpMissed") != 0);
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
  if (record.string("Shortcut") != shortcut) record.setValue("Shortcut", shortcut);
  set("Favorite", mFavourite->isChecked() ? 1 : 0);
  set("TriggerContextPopup", mContext->currentData().toInt());
  set("TriggerAgeAlarm", mAgeAlarm->isChecked() ? 1 : 0);
  set("TriggerMakeUpMissed", mMakeUp->isChecked() ? 1 : 0);
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
    std::vector<const ProgrammedAction*> groups;
    groupsIn(root, groups);
    const auto known = std::ranges::find(groups, utf8(wanted), &ProgrammedAction::getTitle);
    target = known != groups.end() ? root.actionOrGroupForReference((*known)->getReference())
                                   : root.addGroup(utf8(wanted), {}, 0);
  }
  if (target != nullptr) action.moveActionTo(*target, target->numberOfChildren(), SortMode::title);
}

}  // namespace corvana
