#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "actions/DataFiles.h"
#include "actions/RecordedList.h"

namespace corvana {

class ActionStore;

/// The log list: one entry an event, the oldest dropped beyond 5000, mirrored as text in
/// "Library/Logs/Corvana 9.log". An entry is a dictionary with "C" (code of the event), "M" (date)
/// and optional "N" (title of the action or text), "F" (further text), "R" (reference), "P" (path)
/// and "S" (status). What other programs added is taken in before each change. Thread: main.
class ActionLog {
 public:
  static constexpr std::size_t kMaximum = 5000;

  enum class Clean {
    all = 1,
    olderThan7Days,
    olderThan30Days,
    olderThan90Days,
    applicationEvents,
    listed
  };

  explicit ActionLog(ActionStore& store);

  /// The stored array, oldest entry first.
  ZAN_Value readLogList();
  void saveLogList(const ZAN_Value& list);
  void addLog(const ZAN_Value& entry);
  /// Calls back on the main thread when other programs find in the file what is in the list now: at
  /// once, or later.
  void whenSaved(std::function<void()> body);
  /// Entries without a date stay when cleaning by age. `indexes` (an index set) only for
  /// Clean::listed.
  void cleanLogs(Clean mode, const ZAN_Value& indexes = {});

  /// What happened, in words, without the date.
  static std::string messageForEntry(const ZAN_Value& entry);
  static bool isApplicationEvent(std::int64_t code);

 private:
  void showAsText(const ZAN_Value& list, bool isAnew) const;

  ActionStore& mStore;
  RecordedList mList;
};

/// The complete log of one execution, for actions that ask for it. Thread: main.
class CompleteLog {
 public:
  explicit CompleteLog(DataFiles& files) : mFiles(files) {}

  /// Begins anew for an action's settings record: empties its file and writes the title line when
  /// "ProgrammedActionLinksCreateFullLog" is non-zero, else there is no complete log.
  /// `title` is the format of the first line, filled with the date.
  void initCreateCompleteLogForAction(const ZAN_Value& settings, std::string_view titleFormat);
  bool mustCreateCompleteLog() const { return mMustCreate; }
  const std::string& path() const { return mPath; }
  /// Appends "<date> - <text>" or "><text>", synchronised; nothing while there is no complete log.
  void addToCompleteLogFile(std::string_view text, bool addDate);

 private:
  void append(std::string_view text);

  DataFiles& mFiles;
  bool mMustCreate = false;
  std::string mPath;
};

}  // namespace corvana
