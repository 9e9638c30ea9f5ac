#pragma once

#include <string>
#include <vector>

#include "application/Household.h"
#include "application/Look.h"
#include "command/ActionDraft.h"

class QCheckBox;
class QComboBox;
class QLineEdit;
class QVBoxLayout;

namespace corvana {

/// What there is to say of a backup besides what, where and when: the group that it lies in, how it
/// is found, where the machine has to be, what is said of it, and the disks that take turns.
/// Thread: main.
class DetailsStep final : public QWidget {
 public:
  explicit DetailsStep(Household& household);

  void show(const ProgrammedAction& action);

  /// Folders on disks that take turns with the destination and are not described yet.
  std::vector<std::string> newDisks() const;
  /// Writes what was chosen; `folders` has the new disks.
  void applyTo(ZAN_Value& record, const ActionFolders& folders) const;
  /// Moves the action into the group that was chosen, which is made when there is none.
  void moveIn(ProgrammedAction& root, ProgrammedAction& action) const;

 private:
  struct Disk {
    std::string path;
    ZAN_Value stored;  ///< null: not described yet
  };

  /// A group to choose from. Where several have one title it is shown with what it lies in.
  struct Group {
    QString name;
    std::int64_t reference;
  };

  void fillGroups(const ProgrammedAction* parent);
  void showDisks();

  Household& mHousehold;
  QComboBox* mGroup;
  std::vector<Group> mGroups;
  QString mShownGroup;
  QLineEdit* mShortcut;
  QCheckBox* mFavourite;
  QComboBox* mContext;
  QCheckBox* mAgeAlarm;
  QCheckBox* mMakeUp;
  QVBoxLayout* mDiskRows;
  std::vector<Disk> mDisks;
};

}  // namespace corvana
