#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

class TriggerEvaluation;
struct Records;

/// Lets the machine wake ten seconds before the next action is due, when the user wants that. One
/// wish is programmed at a time; it holds over the end of the agent, which takes it back later by
/// the time that it has stored. Thread: main.
class WakeUp {
 public:
  WakeUp(Records& records, const TriggerEvaluation& evaluation)
      : m(records), mEvaluation(evaluation) {}

  /// Whether the user wants it.
  bool isOn() const;
  /// Programs the wake-up for the next action that starts by its date, unless it is less than 60 s
  /// away or within 300 s of the one programmed. While an action runs the machine is kept from
  /// sleeping too long by a wake-up 300 s ahead, each time that the last one has passed.
  void doSetWakeup();
  /// From when on `doSetWakeup` has something to do, as long as the actions' dates stay.
  ReferenceTime nextWork() const;
  /// At the start: a wake-up that was programmed and is still to come is programmed again, since
  /// the machine may have been restarted meanwhile.
  void restoreWakeup();
  /// Why the machine cannot be woken, as the user reads it; empty as long as nothing is known.
  std::string hindrance() const;
  /// The preferences may have changed: one that is not wanted any more is taken back.
  void followPreferences();

 private:
  std::optional<ReferenceTime> nextWakeDate() const;
  std::optional<std::int64_t> timeToProgram() const;
  void schedule(std::int64_t time);
  /// A refused one is tried again: the right may have been given meanwhile.
  bool retryIsDue() const;

  Records& m;
  const TriggerEvaluation& mEvaluation;
  std::optional<ReferenceTime> mRefused;  ///< when the wake-up that stands was refused last
};

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
