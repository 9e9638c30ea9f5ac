#include "actions/ActionLog.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ZANCocoaFramework/ZAN_DateUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/TaskRequest.h"
#include "platform/Clock.h"
#include "platform/Machine.h"

namespace corvana {

namespace {

constexpr std::string_view kTextLog = "Corvana 9.log";
constexpr std::string_view kDateFormat = "%Y-%m-%d %H:%M:%S";
constexpr double kDay = 86400;

struct Wording {
  std::int64_t code;
  std::string_view text;
};

constexpr std::array kWordings{
    Wording{1, "Start execution of %@"},
    Wording{2, "%@ completed"},
    Wording{3, "%@ aborted (user)"},
    Wording{4, "%@ cancelled (volume/folder not found)"},
    Wording{5, "%@ aborted (unexpected error)"},
    Wording{6, "%@ aborted (crash)"},
    Wording{7, "Open Corvana"},
    Wording{8, "Quit Corvana"},
    Wording{9, "Launch Corvana Scheduler"},
    Wording{10, "Quit Corvana Scheduler"},
    Wording{11, "%@ aborted (time out)"},
    Wording{14, "%@ completed with errors"},
    Wording{15, "%@ aborted (volume no longer available)"},
    Wording{17, "%@ cancelled (volume/folder not available)"},
    Wording{20, "Launch Corvana Scheduler"},
    Wording{21, "Quit Corvana Scheduler"},
    Wording{22, "Clean Corvana Scheduler"},
};

std::string subjectOf(std::string_view task, bool isWithin) {
  if (task == TaskRequest::kRestore) return isWithin ? "restore of" : "Restore of";
  if (task == TaskRequest::kVerify) return isWithin ? "check of" : "Check of";
  return isWithin ? "action" : "Action";
}

/// Which entries of the list are removed.
class Selection {
 public:
  Selection(ActionLog::Clean mode, const ZAN_Value& indexes, ReferenceTime now)
      : mMode(mode), mIndexes(indexes), mNow(now) {}

  bool contains(std::size_t index, const ZAN_Value& entry) const {
    switch (mMode) {
      case ActionLog::Clean::all:
        return true;
      case ActionLog::Clean::olderThan7Days:
        return isOlder(entry, 7);
      case ActionLog::Clean::olderThan30Days:
        return isOlder(entry, 30);
      case ActionLog::Clean::olderThan90Days:
        return isOlder(entry, 90);
      case ActionLog::Clean::applicationEvents:
        return ActionLog::isApplicationEvent(entry.integer("C"));
      case ActionLog::Clean::listed:
        return mIndexes.containsIndex(index);
    }
    return false;
  }

 private:
  bool isOlder(const ZAN_Value& entry, int days) const {
    const auto date = entry["M"].asDate();
    return date && *date < mNow - days * kDay;
  }

  ActionLog::Clean mMode;
  const ZAN_Value& mIndexes;
  ReferenceTime mNow;
};

}  // namespace

ActionLog::ActionLog(ActionStore& store)
    : mStore(store),
      mList(store.files(), DataFolder::kLog,
            [this](const ZAN_Value& list, bool isAnew) { showAsText(list, isAnew); }) {}

ZAN_Value ActionLog::readLogList() {
  mList.refresh();
  return mList.elements();
}

void ActionLog::saveLogList(const ZAN_Value& list) { mList.store(list, true); }

void ActionLog::addLog(const ZAN_Value& entry) {
  mList.add(entry, [](ZAN_Value& list, const ZAN_Value& each) {
    list.append(each);
    if (list.size() > kMaximum) list.removeRange(0, list.size() - kMaximum);
  });
}

void ActionLog::cleanLogs(Clean mode, const ZAN_Value& indexes) {
  const Selection selection(mode, indexes, mStore.clock().now());
  mList.keepOnly(
      [&](std::size_t index, const ZAN_Value& entry) { return !selection.contains(index, entry); });
}

bool ActionLog::isApplicationEvent(std::int64_t code) {
  return (code >= 7 && code <= 10) || (code >= 18 && code <= 22);
}

std::string ActionLog::messageForEntry(const ZAN_Value& entry) {
  const std::int64_t code = entry.integer("C");
  const std::string name = entry.string("N");
  const auto* wording = std::find_if(kWordings.begin(), kWordings.end(),
                                     [&](const Wording& each) { return each.code == code; });
  std::string message =
      wording == kWordings.end()
          ? name
          : ZAN_StringUtils::format(
                wording->text,
                {subjectOf(entry.string(TaskRequest::kTaskKey), code == 1) + " \"" + name + "\""});
  if (message.empty()) message = "Event " + std::to_string(code);
  for (const char* key : {"F", "P"}) {
    if (!entry[key].stringView().empty()) message += " - " + entry.string(key);
  }
  return ZAN_StringUtils::oneLine(message);
}

void ActionLog::whenSaved(std::function<void()> body) {
  mStore.files().whenSaved(mStore.folder().pathOf(DataFolder::kLog), std::move(body));
}

void ActionLog::showAsText(const ZAN_Value& list, bool isAnew) const {
  const std::string path =
      ZAN_FilesUtils::joinedPath(mStore.folder().userLogsFolderPath(), kTextLog);
  (void)mStore.files().showLinesInFile(
      path, list.size(),
      [list, calendar = mStore.dates().calendar()](std::size_t number) {
        const ZAN_Value& entry = list.at(number);
        const auto date = entry["M"].asDate();
        return (date ? calendar.format(*date, kDateFormat) : "") + " - " + messageForEntry(entry);
      },
      isAnew);
}

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
