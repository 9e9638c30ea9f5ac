#pragma once

#include <QString>
#include <QStringList>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "application/Choice.h"
#include "application/Household.h"

class QCheckBox;
class QVBoxLayout;

namespace corvana {

/// What a backup copies: the home folder, or folders that are chosen; how much that is is counted
/// meanwhile.
class WhatStep final : public QWidget {
 public:
  explicit WhatStep(Household& household);
  ~WhatStep() override;

  /// Nothing chosen but the home folder.
  void begin();
  /// What the record of a backup has.
  void show(const ZAN_Value& settings);

  /// The folders, absolute; empty: none is chosen yet.
  std::vector<std::string> folders() const;
  bool isHome() const;
  /// Whether the user has chosen others than the record had that was shown.
  bool isChanged() const;
  /// A name that fits: the folder's, or that of all.
  QString proposedTitle() const;
  /// How much there is to copy, as far as it was counted.
  std::uint64_t bytes() const { return mBytes; }
  std::function<void()> onChange;

 private:
  struct Count;

  void addFolder(const QString& folder, bool isChecked);
  void changed();
  void count();
  void counted(const std::shared_ptr<Count>& count, bool isDone);

  Household& mHousehold;
  Choices mChoices;
  Choice* mHome;
  Choice* mFolders;
  QVBoxLayout* mList;
  std::vector<QCheckBox*> mBoxes;
  TextLabel* mHomeSize;
  TextLabel* mFoldersSize;
  std::shared_ptr<Count> mCount;
  std::uint64_t mBytes = 0;
  std::vector<std::string> mShown;
};

}  // namespace corvana
