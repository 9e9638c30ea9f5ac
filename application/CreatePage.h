#pragma once

#include <QString>
#include <cstdint>
#include <optional>

#include "application/Page.h"
#include "command/ActionDraft.h"

class QHBoxLayout;
class QLineEdit;
class QProgressBar;
class QPushButton;
class QScrollArea;
class QVBoxLayout;

namespace corvana {

class Banner;
class DetailsStep;
class TextLabel;
class WhatStep;
class WhenStep;
class WhereStep;

/// Sets up a backup in three steps, what, where and when; one that is there already on one page.
/// What a record holds besides stays as it is. At the end of the steps it can run at once, and the
/// page tells what has become of it.
class CreatePage final : public Page {
 public:
  CreatePage(Household& household, Navigator& navigator);

  /// A new one, from the first step.
  void begin();
  /// Whether there is a backup of that reference, which can be changed then.
  bool change(std::int64_t reference);
  /// Whether a new one is being set up that was not stored yet.
  bool isOpen() const { return mIsNew && !mStarted; }

  void refresh(ChangeSet changed) override;

 private:
  enum Step { what, where, when, first };

  void showStep(int step);
  void showAll();
  void update();
  void goOn();
  void goBack();
  /// Looks at the folders, which may take its time, and then stores; runs it afterwards if wanted.
  void save(bool isRun);
  void store(const ActionFolders& folders, bool isRun);
  void complain(const QString& reason);
  QString inWords(const FolderTrouble& trouble) const;
  void run();
  void showRun();

  QScrollArea* mScroll;
  TextLabel* mNumber;
  TextLabel* mTitle;
  Banner* mTrouble;
  TextLabel* mHeads[4] = {};
  WhatStep* mWhat;
  WhereStep* mWhere;
  WhenStep* mWhen;
  DetailsStep* mDetails;  ///< of one that is there
  QWidget* mNameRow;
  QLineEdit* mName;
  QWidget* mRun;  ///< what becomes of the first run
  Banner* mRunBanner;
  QProgressBar* mProgress;
  TextLabel* mProgressText;
  QPushButton* mBack;
  QPushButton* mSave;
  QPushButton* mNext;

  bool mIsNew = true;
  int mStep = what;
  std::int64_t mReference = 0;
  QString mProposedName;
  bool mIsSaving = false;
  bool mSaysAway = false;
  std::uint64_t mSerial = 0;  ///< of what is being edited, so that a late answer goes nowhere else
  std::optional<ReferenceTime> mStarted;  ///< when the first run was asked for
};

}  // namespace corvana
