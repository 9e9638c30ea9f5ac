#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "application/Choice.h"
#include "application/Household.h"
#include "application/ServerPlace.h"

class QComboBox;
class QLineEdit;
class QVBoxLayout;

namespace corvana {

/// Where a backup goes, and what keeps it there: a disk or a share that is there, with what speaks
/// for it, a folder, or a repository on a server. What keeps a backup that is there already stays
/// as it is.
class WhereStep final : public QWidget {
 public:
  explicit WhereStep(Household& household);

  void begin();
  void show(const ZAN_Value& settings);
  /// Disks may have come or gone; `bytes` are to be copied, 0: not known.
  void refresh(std::uint64_t bytes);

  /// The folder that the copies are to lie in; empty: none is chosen yet, or it is a server.
  std::string folder() const;
  /// The repository's address as it may be shown; empty: it is in the folder, or there is none.
  std::string repository() const;
  /// A repository, which has a password, and not ordinary folders.
  bool isEncrypted() const;
  /// What is to be kept before a run can open the repository.
  RepositoryKeeping keeping() const;
  /// Whether everything was said that a place needs.
  bool isComplete() const;
  bool isChanged() const { return folder() + repository() != mShown; }
  /// The disk that was chosen has been unplugged; it is waited for.
  bool isAway() const;
  /// Says in the record what keeps the copies, and where if that is a server.
  void applyTo(ZAN_Value& record) const;
  /// Of the disk; empty for a folder.
  QString volume() const;
  std::function<void()> onChange;

 private:
  struct Volume {
    Choice* choice = nullptr;
    TextLabel* fitness = nullptr;
    std::string folder;
    QString name;
    bool isAway = false;
  };

  const Volume* chosenVolume() const;
  Volume& volumeFor(const Mount& mount, const QString& name);
  void setFixed(bool isFixed);
  void showKeeping();

  Household& mHousehold;
  Choices mChoices;
  QVBoxLayout* mList;
  TextLabel* mNone;
  std::map<std::string, Volume> mVolumes;  ///< by the place where it is mounted
  Choice* mFolder;
  QLineEdit* mPath;
  Choice* mServer;
  ServerFields* mFields;
  Card* mKeeping;
  QComboBox* mEngine;
  TextLabel* mEngineText;
  RepositoryLock* mLock;
  bool mIsFixed = false;             ///< what keeps the copies
  std::optional<int> mEngineBefore;  ///< a server was chosen
  std::string mShown;
  std::uint64_t mBytes = 0;
};

}  // namespace corvana
