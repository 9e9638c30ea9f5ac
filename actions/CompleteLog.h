#pragma once

#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "actions/DataFiles.h"

namespace corvana {

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
