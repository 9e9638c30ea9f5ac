#include "mail/report/ReportComposer.h"

#include <algorithm>
#include <array>
#include <limits>
#include <span>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionStore.h"
#include "actions/ActionsTools.h"
#include "actions/FolderDescription.h"
#include "actions/History.h"
#include "actions/TaskRequest.h"
#include "mail/smtp/StoredMailSettings.h"
#include "platform/Machine.h"

namespace corvana {
namespace {

constexpr std::int64_t kDaysShown = 7;
constexpr double kWeek = kDaysShown * 86400.0;
constexpr std::size_t kFewestRecords = 4;
constexpr std::uint64_t kAlmostFull = 10;  // percent
/// Stopped, crashed, timed out and the like.
constexpr std::array<std::int64_t, 9> kFailures{3, 4, 5, 6, 11, 14, 15, 16, 17};
/// Stands for a date that is not there.
constexpr const char* kNoDate = "–";

std::string joined(std::string_view format, ZAN_StringUtils::Arguments arguments) {
  return ZAN_StringUtils::format(format, arguments);
}

std::uint64_t percentOf(std::uint64_t part, std::uint64_t whole) {
  if (part > std::numeric_limits<std::uint64_t>::max() / 100)
    return part / std::max<std::uint64_t>(whole / 100, 1);
  return part * 100 / whole;
}

}  // namespace

std::string ComposedReport::record() const {
  if (!mail.goesOverSmtp()) {
    return joined("Subject: %@\nTo: %@\n- - - - - - -\n\n%@", {subject, mail.recipients, message});
  }
  return joined(
      "SMPT: %@\nPort: %@\nTLS Mode:%d\nUser name: %@\nPassword: ****\nAuth method: %d\n\n"
      "Subject: %@\nFrom: %@\nTo: %@\nCrFormat: %d\n- - - - - - -\n\n%@",
      {mail.server, mail.ports, mail.tlsMode, mail.username, mail.authMethod, subject, mail.sender,
       mail.recipients, mail.crFormat, message});
}

Result<ComposedReport> ReportComposer::compose(std::optional<ReferenceTime> last,
                                               ReferenceTime now) {
  SettingsFiles& files = mStore.settings();
  const ZAN_Value settings = files.mainAppSettings();
  if (settings.integer("SendEmailReport") == 0)
    return Error{ErrorKind::absent, "the reports by e-mail are switched off"};
  const std::string path = mStore.texts().reportFileNameForDate(last);
  const auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return Error{ErrorKind::absent, "there is no report to send: " + file.error().text};
  ComposedReport report;
  report.mail = storedMailSettings(files);
  if (report.mail.recipients.empty())
    return Error{ErrorKind::absent, "nobody is named to send the report to"};

  std::string user = settings.string("SendReportUserName");
  if (user.empty()) user = mStore.machine().loginName();
  const Counts counts = countExecutions(last.value_or(0));
  const std::string start = joined(
      "%@\n\n%@",
      {joined("%@\n\n%@", {header(last, now), summary(counts)}),
       joined("%@\n%@", {mTexts.text("ReportOccupyingSpace"), volumes(last.value_or(0), now)})});
  const std::string day = last ? mStrings.getShortDate(*last) : kNoDate;
  report.subject = counts.anyTrouble() ? mTexts.text("ReportEmailWithErrorsTitle", {user, day})
                                       : mTexts.text("ReportEmailTitle", {user, day});
  const std::string text = withReplacedBytes(file->bytes);
  const auto lines = 1 + std::ranges::count(text, '\n');
  report.message = joined("%@\n%@\n\n%@", {start, mTexts.text("ReportListTitle", {lines}), text});
  return report;
}

void ReportComposer::keep(const ComposedReport& report, ReferenceTime now) {
  mStore.texts().writeReportEmail(report.record(), now);
}

ReportComposer::Counts ReportComposer::countExecutions(ReferenceTime last) {
  mHistory.reloadProgrammedHistoryList();
  const ZAN_Value list = mHistory.getProgrammedHistoryList();
  Counts counts;
  for (const ZAN_Value& entry : list.elements()) {
    const auto date = entry["Date"].asDate();
    if (!date || *date < last || entry.contains(TaskRequest::kTaskKey)) continue;
    ++counts.executions;
    if (entry.integer("ActionErrors") >= 1) ++counts.withErrors;
    if (entry.integer(RunKey::onlyLacks) != 0) continue;
    if (std::ranges::find(kFailures, entry.integer("C")) != kFailures.end()) ++counts.failed;
  }
  return counts;
}

std::string ReportComposer::header(std::optional<ReferenceTime> last, ReferenceTime now) const {
  return mTexts.text("ReportEmailHeader",
                     {mainAppVersion(), mStrings.getShortTimeDate(now),
                      last ? mStrings.getShortTimeDate(*last) : std::string(kNoDate)});
}

std::string ReportComposer::summary(const Counts& counts) const {
  std::string text = mTexts.text("ReportSummaryActions", {counts.executions});
  if (counts.anyTrouble()) {
    text +=
        "\n" + mTexts.text("ReportSummaryActionsWithErrors", {counts.withErrors, counts.failed});
  }
  return text;
}

ReportComposer::FreeSpace ReportComposer::freeSpace(const ZAN_Value& records, ReferenceTime last,
                                                    ReferenceTime now) {
  FreeSpace space;
  for (const ZAN_Value& record : records.elements()) {
    const double hour = record["D"].doubleValue();
    const std::uint64_t low = record["L"].unsignedValue();
    const std::uint64_t high = record["H"].unsignedValue();
    if (hour >= last) {
      space.last = low;
      space.seen = true;
    }
    if (hour < now - kWeek || hour > now) continue;
    if (space.lowest == 0 || low < space.lowest) space.lowest = low;
    space.highest = std::max(space.highest, high);
  }
  return space;
}

std::string ReportComposer::volumes(ReferenceTime last, ReferenceTime now) const {
  std::string lines;
  std::string almostFull;
  const ZAN_Value list = mStore.files().readListFromFile(DataFolder::kVolumesInfo);
  for (const ZAN_Value& volume : list.elements()) {
    const auto records =
        ZAN_Unarchiver::unarchiveObjectWithData(volume["VolumeFreeSizeList"].bytes());
    if (!records || records->size() < kFewestRecords) continue;
    const FolderDescription described(volume);
    const std::uint64_t total = described.volumeSize();
    const FreeSpace space = freeSpace(*records, last, now);
    if (total == 0 || !space.seen) continue;
    const std::string name = ZAN_StringUtils::oneLine(described.volumeName());
    const std::uint64_t lowest = percentOf(space.lowest, total);
    std::string line = mTexts.text(
        "ReportDiskSize", {name, mStrings.getShortSizeBytes(total), percentOf(space.last, total),
                           lowest, percentOf(space.highest, total), kDaysShown});
    if (lowest <= kAlmostFull) {
      line = joined("%@ - %@", {line, mTexts.text("ReportDiskSizeCaution")});
      almostFull = almostFull.empty() ? name : joined("%@, %@", {almostFull, name});
    }
    lines = joined("%@%@\n", {lines, line});
  }
  if (almostFull.empty()) return lines;
  return joined("%@ %@\n%@", {mTexts.text("ReportDiskSizeCautionSummary"), almostFull, lines});
}

/// This program's own where the main application is not installed: they are one product.
std::string ReportComposer::mainAppVersion() const {
  const std::string& bundle = mStore.installPaths().installPathForCode(InstallPaths::mainAppBundle);
  const auto file =
      ZAN_FilesUtils::readFile(ZAN_FilesUtils::joinedPath(bundle, "Contents/Info.plist"));
  if (!file) return CORVANA_VERSION;
  const auto list = ZAN_PropertyList::propertyListWithData(std::as_bytes(std::span(file->bytes)));
  if (!list || !list->contains("CFBundleShortVersionString")) return CORVANA_VERSION;
  return list->string("CFBundleShortVersionString");
}

}  // namespace corvana
