#pragma once

#include <cstdint>
#include <string>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;

/// How often actions were executed, ended with errors and crashed, kept for each action. Thread:
/// main.
class ExecutionCounters {
 public:
  static constexpr const char* kExecutions = "Nb";
  static constexpr const char* kErrors = "Er";
  static constexpr const char* kCrashes = "Cr";

  explicit ExecutionCounters(ActionStore& store);

  /// Adds one. `reference` 0 stands for an action that is not known.
  void incrementCounter(const std::string& counter, std::int64_t reference);
  std::int64_t counter(const std::string& counter, std::int64_t reference);
  /// Over all actions.
  std::int64_t total(const std::string& counter);

 private:
  ActionStore& mStore;
};

}  // namespace corvana
