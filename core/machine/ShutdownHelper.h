#pragma once

#include <string>

namespace corvana {

struct Records;

/// The application that sees the machine being shut down and asks for what is to run then. It runs
/// only while there is such an action. Thread: main.
class ShutdownHelper {
 public:
  explicit ShutdownHelper(Records& records) : m(records) {}

  /// Starts or ends it, as the tree now asks for.
  void update();
  /// Ends it: it is not to hold a shut-down of the agent's own up.
  void end();

 private:
  const std::string& bundle() const;

  Records& m;
};

}  // namespace corvana
