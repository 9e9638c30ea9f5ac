#pragma once

#include <map>

#include "application/Page.h"

class QVBoxLayout;

namespace corvana {

/// Brings back what was copied.
class RestorePage final : public Page {
 public:
  RestorePage(Household& household, Navigator& navigator);

  /// The backup to restore from; 0: none is chosen yet.
  void choose(std::int64_t reference);

  void refresh(ChangeSet changed) override;

 private:
  QVBoxLayout* mColumn;
  std::int64_t mReference = 0;
};

}  // namespace corvana
