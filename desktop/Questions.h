#pragma once

#include <functional>
#include <memory>
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

 private:
  std::vector<std::unique_ptr<QMessageBox>> mOpen;
};

}  // namespace corvana
