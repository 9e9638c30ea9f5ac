#pragma once

#include <QString>
#include <map>

#include "application/Page.h"
#include "application/VersionBrowser.h"

class QComboBox;
class QLineEdit;
class QStackedWidget;
class QTimer;

namespace corvana {

class ItemDetails;
class ProgressStrip;
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
  QWidget* makeHeader();
  QWidget* makeTimeLine();
  QWidget* makeNothing();
  void fillChooser();
  void chooseSource(int row);
  void chooseFolder();
  /// The address of a repository, and what opens it; `address` may be known already.
  void askForServer(const QString& address);
  void restoreFrom(const QString& place);
  void setSource(const CopiesSource& source);
  void loadVersions();
  void takeVersions(const CommandChild::Ending& ending);
  void loadItems();
  void showChosen();
  void showVersionParts(bool isAny);
  void showNothing(const QString& title, const QString& text);
  void updateSentence();

  void restore(const QString& to);
  void askWhereTo();
  void takeNews(const ZAN_Value& news);
  void restoreEnded(const CommandChild::Ending& ending, const QString& to);

  ReferenceTime date() const;
  QString dateWord() const;
  QString folderOfCopies() const;
  QString timeText(ReferenceTime date) const;

  CopiesSource mSource;
  std::map<ReferenceTime, std::pair<std::uint64_t, std::uint64_t>> mSizes;  ///< files and bytes
  CommandChild mVersionsChild;
  CommandChild mRestoreChild;

  QComboBox* mChooser;
  TextLabel* mSentence;
  QLineEdit* mSearch;
  QTimer* mSearchTimer;
  QTimer* mLoadTimer;
  TimeLine* mTimeLine = nullptr;
  ProgressStrip* mStrip;
  QStackedWidget* mBody;
  TextLabel* mNothingTitle;
  TextLabel* mNothingText;
  QWidget* mFirstButtons;
  VersionBrowser* mBrowser;
  ItemDetails* mDetails;
};

}  // namespace corvana
