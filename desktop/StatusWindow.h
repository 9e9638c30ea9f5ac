#pragma once

#include "desktop/AgentWindow.h"

class QLabel;

namespace corvana {

/// What the agent does now and what comes next.
class StatusWindow final : public AgentWindow {
 public:
  explicit StatusWindow(const UserInterfaceSources& sources);
  void refresh() override;

 private:
  QLabel* mTitle;
};

}  // namespace corvana
