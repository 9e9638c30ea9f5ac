#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/ActionLog.h"
#include "actions/ActionResults.h"
#include "actions/RecordedList.h"

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

/// The programmed history: one entry a finished execution, the oldest dropped beyond 5000, mirrored
/// as text in "Library/Logs/Corvana 9 Actions.log". An entry is a dictionary with "Date" (start),
/// "EndDate", "Title", "C" (result code) and "ActionErrors" (how many). What other programs added
/// is taken in before each change. Thread: main.
class History {
 public:
  static constexpr std::size_t kMaximum = 5000;

  explicit History(ActionStore& store);

  // The other records of what happened.
  ActionLog& log() { return mLog; }
  ExecutionCounters& counters() { return mCounters; }
  ActionResults& results() { return mResults; }

  /// Reads the file again when it has changed.
  void reloadProgrammedHistoryList();
  /// The stored array; its element 0 is a header, the entries follow, oldest first.
  ZAN_Value getProgrammedHistoryList();
  std::size_t historyCount();  ///< of entries
  /// Null for an index that is below 0 or not below the count.
  ZAN_Value historyEntryAtIndex(std::int64_t index);
  /// An entry with the start date of the last one takes its place.
  void addHistoryEntry(const ZAN_Value& entry);
  /// Entries without a date stay.
  void removeHistoryEntriesBefore(ReferenceTime date);
  void saveProgrammedHistoryList();

 private:
  void showAsText(const ZAN_Value& list, bool isAnew) const;

  ActionStore& mStore;
  ActionLog mLog;
  ExecutionCounters mCounters;
  ActionResults mResults;
  RecordedList mList;
};

}  // namespace corvana
