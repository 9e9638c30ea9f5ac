#pragma once

#include "application/Page.h"

namespace corvana {

/// Everything that can be chosen beyond the single backup.
class SettingsPage final : public Page {
 public:
  SettingsPage(Household& household, Navigator& navigator);

  void refresh(ChangeSet changed) override;
};

}  // namespace corvana
