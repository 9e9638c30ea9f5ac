#pragma once

#include "desktop/AgentWindow.h"

class QLabel;
class QPlainTextEdit;

namespace corvana {

/// The text of all disks and partitions.
class AllDisksWindow final : public AgentWindow {
 public:
  explicit AllDisksWindow(const UserInterfaceSources& sources);
  void setText(const std::string& text) override;
  QWidget* firstFocus() override;

 private:
  void saveProcesses();

  QPlainTextEdit* mText;
  QLabel* mAnswer;
};

}  // namespace corvana
