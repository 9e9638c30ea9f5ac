#pragma once

#include <functional>

#include "application/VersionBrowser.h"

class QListWidget;

namespace corvana {

class Preview;

/// What is marked in a version: its name, size and date, what is in it in small, and the other
/// versions that there are of it; with the buttons that bring it back. Thread: main.
class ItemDetails final : public Card {
 public:
  explicit ItemDetails(Household& household);

  /// One thing. `path`: as it was called where it was copied from; `version`: the place of the one
  /// that is shown among those of the source, the oldest first.
  void showItem(const CopiesSource& source, const CopiedItem& item, const QString& path,
                int version);
  /// Several, or all that is shown.
  void showSeveral(const QString& name, const QString& facts);
  void setPossible(bool isRestorable, bool isRestorableElsewhere);

  /// Another version is wanted, by its place among those of the source.
  std::function<void(int version)> onVersion;
  std::function<void()> onRestore, onRestoreElsewhere;

 private:
  void clearVersions();
  void showVersions(const CommandChild::Ending& ending, int shownVersion);

  Household& mHousehold;
  CommandChild mChild;
  TextLabel* mName;
  TextLabel* mFacts;
  Preview* mPreview;
  TextLabel* mVersionsTitle;
  QListWidget* mVersions;
  QPushButton* mRestore;
  QPushButton* mElsewhere;
};

}  // namespace corvana
