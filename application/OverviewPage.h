#pragma once

#include "application/Page.h"

class QVBoxLayout;

namespace corvana {

/// Whether everything is well, and each backup with what became of it last and what comes next.
class OverviewPage final : public Page {
 public:
  OverviewPage(Household& household, Navigator& navigator);

  void refresh(ChangeSet changed) override;
  /// Something that the agent wants the user to know, until it is closed; empty tells nothing.
  void tell(const QString& sentence);

 private:
  void build();

  QVBoxLayout* mColumn;
  QString mTold;
};

}  // namespace corvana
