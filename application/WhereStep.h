#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>

#include "application/Choice.h"
#include "application/Household.h"

class QLineEdit;
class QVBoxLayout;

namespace corvana {

/// Where a backup goes: a disk or a share that is there, with what speaks for it, or a folder.
class WhereStep final : public QWidget {
 public:
  explicit WhereStep(Household& household);

  void begin();
  void show(const ZAN_Value& settings);
  /// Disks may have come or gone; `bytes` are to be copied, 0: not known.
  void refresh(std::uint64_t bytes);

  /// The folder that the copies are to lie in; empty: none is chosen yet.
  std::string folder() const;
  bool isChanged() const { return folder() != mShown; }
  /// Of the disk; empty for a folder.
  QString volume() const;
  std::function<void()> onChange;

 private:
  struct Volume {
    Choice* choice = nullptr;
    TextLabel* fitness = nullptr;
    std::string folder;
    QString name;
  };

  Volume& volumeFor(const Mount& mount, const QString& name);

  Household& mHousehold;
  Choices mChoices;
  QVBoxLayout* mList;
  TextLabel* mNone;
  std::map<std::string, Volume> mVolumes;  ///< by the place where it is mounted
  Choice* mFolder;
  QLineEdit* mPath;
  std::string mShown;
  std::uint64_t mBytes = 0;
};

}  // namespace corvana
