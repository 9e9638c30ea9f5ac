#pragma once

#include <QTemporaryDir>
#include <QTimer>
#include <functional>
#include <memory>

#include "application/VersionBrowser.h"

class QListWidget;

namespace corvana {

class Preview;

/// What is marked in a version: its name, size and date, what is in it in small, and the other
/// versions that there are of it; with the buttons that bring it back. Thread: main.
class ItemDetails final : public Card {
 public:
  explicit ItemDetails(Household& household);

  /// A version among those of the source: its place, the oldest first, and its date as the commands
  /// take it.
  struct Version {
    int place = -1;
    QString date;
  };
  /// One thing. `path`: as it was called where it was copied from.
  void showItem(const CopiesSource& source, const CopiedItem& item, const QString& path,
                const Version& version);
  /// Several, or all that is shown.
  void showSeveral(const QString& name, const QString& facts);
  void setPossible(bool isRestorable, bool isRestorableElsewhere);

  /// Another version is wanted, by its place among those of the source.
  std::function<void(int version)> onVersion;
  std::function<void()> onRestore, onRestoreElsewhere;

 private:
  void clear();
  /// Gets what is in no file of this machine, if it is small, and shows it.
  void fetch();
  void fetched(const CommandChild::Ending& ending);
  void showVersions(const CommandChild::Ending& ending, int shownVersion);

  Household& mHousehold;
  CommandChild mChild;
  CommandChild mFetchChild;
  QTimer mFetchTimer;  ///< what is only passed by is not fetched
  QStringList mFetchWords;
  std::shared_ptr<QTemporaryDir> mFetched;
  TextLabel* mName;
  TextLabel* mFacts;
  Preview* mPreview;
  TextLabel* mVersionsTitle;
  QListWidget* mVersions;
  QPushButton* mRestore;
  QPushButton* mElsewhere;
};

}  // namespace corvana
