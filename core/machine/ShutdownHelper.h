#pragma once

#include <string>

#include "core/work/WorkSurroundings.h"

namespace corvana {

/// The application that sees the machine being shut down and asks for what is to run then. It runs
/// only while there is such an action. Thread: main.
class ShutdownHelper {
 public:
  explicit ShutdownHelper(const WorkSurroundings& surroundings) : m(surroundings) {}

  /// Starts or ends it, as the tree now asks for.
  void update();
  /// Ends it: it is not to hold a shut-down of the agent's own up.
  void end();

 private:
  const std::string& bundle() const;

  WorkSurroundings m;
};

}  // namespace corvana
