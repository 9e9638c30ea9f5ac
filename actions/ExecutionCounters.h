#pragma once

#include <cstdint>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

class ActionStore;

/// How often actions were executed, ended with errors and crashed, kept for each action. Thread:
/// main.
class ExecutionCounters {
 public:
  static constexpr std::string_view kExecutions = "Nb";
  static constexpr std::string_view kErrors = "Er";
  static constexpr std::string_view kCrashes = "Cr";

  explicit ExecutionCounters(ActionStore& store) : mStore(store) {}

  /// Adds one. `reference` 0 stands for an action that is not known.
  void incrementCounter(std::string_view counter, std::int64_t reference);
  std::int64_t counter(std::string_view counter, std::int64_t reference);
  /// Over all actions.
  std::int64_t total(std::string_view counter);

 private:
  ActionStore& mStore;
};

}  // namespace corvana
