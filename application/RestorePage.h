#pragma once

#include <QString>
#include <QStringList>
#include <map>
#include <vector>

#include "application/CommandChild.h"
#include "application/Page.h"

class QComboBox;
class QFrame;
class QHBoxLayout;
class QLineEdit;
class QListWidget;
class QProgressBar;
class QPushButton;
class QStackedWidget;
class QTimer;
class QTreeWidget;
class QVBoxLayout;

namespace corvana {

class Card;
class Preview;
class TextLabel;
class TimeLine;

/// Brings back what was copied: a backup or a folder with copies, a date, what was there then, and
/// back to its place or elsewhere. What is long is done by children (CommandChild).
class RestorePage final : public Page {
 public:
  RestorePage(Household& household, Navigator& navigator);

  /// The backup to restore from; 0: the one that was chosen, or the first.
  void choose(std::int64_t reference);

  void refresh(ChangeSet changed) override;

 private:
  struct Item {
    QString name;  ///< in the version
    bool isFolder = false;
    std::uint64_t bytes = 0;
    ReferenceTime changed = 0;
    QString since;  ///< "gone", "changed" or "same"
    QString path;   ///< of its contents; empty where they are in no file
  };

  // What is there to be seen.
  QWidget* makeHeader();
  QWidget* makeBrowser();
  QWidget* makeDetails();
  QWidget* makeStrip();
  void fillChooser();
  void loadVersions();
  void takeVersions(const CommandChild::Ending& ending);
  void loadItems();
  void takeItems(const CommandChild::Ending& ending);
  void showCrumbs();
  void showChosen();
  void showFileVersions(const CommandChild::Ending& ending);
  void showNothing(const QString& title, const QString& text);
  void updateSentence();

  // What the user does.
  void chooseSource(int row);
  void chooseFolder();
  void open(const Item& item);
  void goTo(const QString& folder);
  void restore(const QString& to);
  void askWhereTo();
  void restoreEnded(const CommandChild::Ending& ending, const QString& to);
  void takeNews(const ZAN_Value& news);
  void tell(const char* look, const QString& title, const QString& text);

  QStringList chosenNames() const;
  const Item* itemOf(int row) const;
  QString pathOf(const QString& name) const;
  ReferenceTime date() const;
  QString dateWord() const;
  QString folderOfCopies() const;
  QString timeText(ReferenceTime date) const;

  std::int64_t mReference = 0;
  QString mFrom;                     ///< a folder with copies instead of a backup
  QString mFolder;                   ///< that is shown, by its name in the version; empty: the top
  std::map<QString, QString> mTops;  ///< what was copied, by its name in the version: its path
  std::vector<Item> mItems;
  std::map<ReferenceTime, std::pair<std::uint64_t, std::uint64_t>> mSizes;  ///< files and bytes
  QString mRestoredTo;

  CommandChild mVersionsChild;
  CommandChild mItemsChild;
  CommandChild mFileChild;
  CommandChild mRestoreChild;

  QComboBox* mChooser = nullptr;
  TextLabel* mSentence = nullptr;
  QLineEdit* mSearch = nullptr;
  QTimer* mSearchTimer = nullptr;
  QTimer* mLoadTimer = nullptr;
  TimeLine* mTimeLine = nullptr;
  QStackedWidget* mBody = nullptr;
  QWidget* mNothing = nullptr;
  TextLabel* mNothingTitle = nullptr;
  TextLabel* mNothingText = nullptr;
  QWidget* mFirstButtons = nullptr;
  QWidget* mCrumbs = nullptr;
  QTreeWidget* mList = nullptr;
  TextLabel* mListNote = nullptr;
  TextLabel* mName = nullptr;
  TextLabel* mFacts = nullptr;
  Preview* mPreview = nullptr;
  TextLabel* mVersionsTitle = nullptr;
  QListWidget* mFileVersions = nullptr;
  QPushButton* mRestoreButton = nullptr;
  QPushButton* mElsewhereButton = nullptr;
  QFrame* mStrip = nullptr;
  TextLabel* mStripTitle = nullptr;
  TextLabel* mStripText = nullptr;
  QProgressBar* mProgress = nullptr;
  QPushButton* mStop = nullptr;
  QPushButton* mShowRestored = nullptr;
  QPushButton* mCloseStrip = nullptr;
};

}  // namespace corvana
