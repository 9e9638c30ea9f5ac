#pragma once

#include <QString>
#include <QStringList>
#include <functional>
#include <map>
#include <vector>

#include "application/CommandChild.h"
#include "application/Look.h"

class QHBoxLayout;
class QScrollArea;
class QTreeWidget;

namespace corvana {

class Household;

/// What is restored from: a backup, or a place with copies whose backup is not known here.
struct CopiesSource {
  std::int64_t reference = 0;
  QString from = {};  ///< a folder, or the address of a repository; empty: that of the backup

  bool isNone() const { return reference == 0 && from.isEmpty(); }
  /// The words of a subcommand about it: `command`, what it is about, and `paths` in it.
  QStringList words(QStringList command, const QStringList& paths = {}) const;
};

/// One thing that a version has.
struct CopiedItem {
  QString name;  ///< in the version, with the folders above it
  bool isFolder = false;
  std::uint64_t bytes = 0;
  ReferenceTime changed = 0;
  QString since;  ///< "gone", "changed" or "same"
  QString path;   ///< of its contents; empty where they are in no file

  static QString lastOf(const QString& name) { return name.section('/', -1); }
};

/// What was there at a date: folder by folder, or found by name, with the way to where one is.
/// Thread: main.
class VersionBrowser final : public Card {
 public:
  explicit VersionBrowser(Household& household);

  /// Another source, from its top; nothing is read yet.
  void setSource(const CopiesSource& source);
  /// Reads and shows what was there then: `date` as the commands take it. With `find` what has that
  /// in its name, wherever it lies.
  void load(const QString& date, const QString& find);

  /// What is marked; empty: nothing.
  std::vector<CopiedItem> chosen() const;
  /// The folder that is shown, by its name in the version; empty: the top.
  const QString& folder() const { return mFolder; }
  /// Whether that is all there is.
  bool isAll() const { return mFolder.count('/') == 0; }
  /// As it was called where it was copied from, which means one thing only.
  QString pathOf(const QString& name) const;

  std::function<void()> onChosen;      ///< something else is marked, or what is listed is other
  std::function<void()> onGone;        ///< the user went into another folder: it is to be loaded
  std::function<void()> onShowFolder;  ///< that of the copies is wanted
  void setShowsFolder(bool isPossible) { mShowFolder->setVisible(isPossible); }

 protected:
  void resizeEvent(QResizeEvent* event) override;

 private:
  void take(const CommandChild::Ending& ending, bool isFound);
  void fill(bool isFound);
  void showCrumbs();
  void goTo(const QString& folder);
  const CopiedItem* itemOf(int row) const;

  Household& mHousehold;
  CopiesSource mSource;
  QString mDate;
  QString mFolder;
  std::map<QString, QString> mTops;  ///< what was copied, by its name in the version: its path
  std::vector<CopiedItem> mItems;
  CommandChild mChild;
  QScrollArea* mWay;  ///< a deep one shows its end
  QHBoxLayout* mCrumbs;
  QPushButton* mShowFolder;
  QTreeWidget* mList;
  TextLabel* mNote;
};

}  // namespace corvana
