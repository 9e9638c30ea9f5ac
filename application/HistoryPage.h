#pragma once

#include "application/Page.h"

class QTreeWidget;

namespace corvana {

/// What was executed, newest first, and how it ended.
class HistoryPage final : public Page {
 public:
  HistoryPage(Household& household, Navigator& navigator);

  /// The runs of one backup alone, 0: of all; only those that failed when wanted.
  void choose(std::int64_t reference, bool onlyFailures);
  /// The notices that the agent has shown, with the one at that place chosen.
  void showNotices(std::int64_t index);

  void refresh(ChangeSet changed) override;

 private:
  QTreeWidget* mRuns;
  std::int64_t mReference = 0;
  bool mOnlyFailures = false;
};

}  // namespace corvana
