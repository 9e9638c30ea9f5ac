#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

class QMessageBox;

namespace corvana {

/// Questions and alerts, each in a window of its own that holds nothing else up. Thread: main.
class Questions {
 public:
  struct Buttons {
    std::string confirm;
    std::string refuse;  ///< empty: there is nothing to decide
  };

  Questions();
  /// None calls back any more.
  ~Questions();

  /// Calls back with true for the confirming button; closing the window refuses.
  void ask(const std::string& title, const std::string& text, const Buttons& buttons,
           std::function<void(bool)> answer);
  /// Calls back with the number of the button; with nothing for the refusing one, which is the
  /// default, and when the window is closed. Without a text there is no refusing button.
  void askWhich(const std::string& title, const std::string& text,
                const std::vector<std::string>& choices, const std::string& refuse,
                std::function<void(std::optional<int>)> answer);

 private:
  std::vector<std::unique_ptr<QMessageBox>> mOpen;
};

}  // namespace corvana
