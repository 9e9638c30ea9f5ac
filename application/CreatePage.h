#pragma once

#include "application/Page.h"

namespace corvana {

/// Sets up a backup in three steps, what, where and when; one that is there already on one page.
class CreatePage final : public Page {
 public:
  CreatePage(Household& household, Navigator& navigator);

  /// A new one, from the first step.
  void begin();
  /// Whether there is a backup of that reference, which can be changed then.
  bool change(std::int64_t reference);

  void refresh(ChangeSet changed) override;
};

}  // namespace corvana
