#include "actions/CompleteLog.h"

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "actions/LocalDates.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

void CompleteLog::initCreateCompleteLogForAction(const ZAN_Value& settings,
                                                 std::string_view titleFormat) {
  mMustCreate = false;
  mPath.clear();
  if (settings.integer("ProgrammedActionLinksCreateFullLog") == 0) return;
  mMustCreate = true;
  mPath = ZAN_FilesUtils::joinedPath(
      mFiles.folder().logFilesFolderPath(),
      ZAN_FilesUtils::safeFileName(settings["Title"].stringView(), "-LogFile.txt"));
  (void)mFiles.createEmptyFileAtPath(mPath, DataFiles::dataFileAttributes());
  const std::string date = mFiles.dates().strings().getShortTimeDate(mFiles.clock().now());
  append(ZAN_StringUtils::format(titleFormat, {date}) + "\n");
}

void CompleteLog::addToCompleteLogFile(std::string_view text, bool addDate) {
  if (!mMustCreate) return;
  const std::string entry = ZAN_StringUtils::oneEntry(text);
  if (!addDate) return append(ZAN_StringUtils::format(">%@\n", {entry}));
  static const ZAN_DateUtils kUniversal("UTC", "C");
  const std::string date = kUniversal.format(mFiles.clock().now(), "%Y-%m-%d %H:%M:%S +0000");
  append(ZAN_StringUtils::format("%@ - %@\n", {date, entry}));
}

void CompleteLog::append(std::string_view text) {
  const Outcome outcome = ZAN_FilesUtils::appendToFile(mPath, text, true);
  if (!outcome) mFiles.systemLog().write("Unable saving data in file " + mPath);
}

}  // namespace corvana
