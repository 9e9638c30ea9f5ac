#include "mail/report/EmailReport.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/TaskRequest.h"
#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "mail/report/ReportPage.h"

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

namespace {

constexpr double kDay = 86400;
constexpr double kAfterLaunch = 300;
constexpr double kAfterAsking = 0.5;
/// So soon is noticed what was set up meanwhile.
constexpr double kBetweenLooks = 600;
constexpr int kMonday = 2;
constexpr const char* kLastDate = "DateOfLastReportSentByEmail";

bool isStandard(const ZAN_Value& settings) {
  return settings.integer("SendEmailReport") != 0 && settings.integer(MailKey::standard) != 0;
}

}  // namespace

EmailReport::EmailReport(Records& records, OutgoingMail& mail)
    : m(records), mMail(mail), mComposer(m.store, m.history, m.texts, m.strings) {}

void EmailReport::start() {
  m.platform.runLoop.performAfter(kAfterLaunch, [this] {
    if (!isStandard(m.store.settings().mainAppSettings())) sendEmailReport(false);
    sendWhenDue();
  });
}

void EmailReport::sendDailyReportNow() {
  m.platform.runLoop.performAfter(kAfterAsking, [this] { sendEmailReport(true); });
}

void EmailReport::sendEmailReport(bool askedFor) {
  if (isStandard(m.store.settings().mainAppSettings()))
    return sendPage(storedMailSettings(m.store.settings()), askedFor);
  const ReferenceTime now = m.platform.clock.now();
  const auto last = m.preferences.prefForKey(kLastDate).asDate();
  if (!askedFor) {
    if (last && m.store.dates().calendar().sameDay(*last, now)) return;
    markDay(now);
    if (!last) return;
  }
  const auto report = mComposer.compose(last, now);
  if (!report) return;
  m.messages.sendUserNotification(m.texts.text("ReportSent", {report->mail.recipients}));
  if (mMail.send(report->mail, {report->subject, report->message, {}, ReportPeriod{0, now}}))
    mComposer.keep(*report, now);
}

void EmailReport::markDay(ReferenceTime now) {
  m.preferences.setPref(kLastDate, ZAN_Value::date(now));
  // Where no report is wanted the clock alone changes it.
  if (m.store.settings().mainAppSettings().integer("SendEmailReport") != 0)
    m.preferences.savePrefs();
}

/// The first time of day, and weekday, that was set for reports.
ReferenceTime EmailReport::nextAfter(ReferenceTime last) const {
  const ZAN_Value settings = m.store.settings().mainAppSettings();
  const ZAN_DateUtils& calendar = m.store.dates().calendar();
  const std::int64_t time =
      settings.contains(MailKey::time) ? settings.integer(MailKey::time) : MailKey::kUsualTime;
  const bool isWeekly = settings.integer(MailKey::frequency) == MailKey::kOnMondays;
  ReferenceTime day = last;
  for (;; day = calendar.nextDay(day)) {
    const ReferenceTime date = calendar.timeOfDay(day, time);
    if (date > last && (!isWeekly || calendar.weekdayForDate(day) == kMonday)) return date;
  }
}

void EmailReport::sendWhenDue() {
  double wait = kBetweenLooks;
  if (isStandard(m.store.settings().mainAppSettings())) {
    const ReferenceTime now = m.platform.clock.now();
    auto last = m.preferences.prefForKey(kLastDate).asDate();
    // The process may have ended between putting a report on disk and marking its day.
    if (const auto until = mMail.reportedUntil(); last && until) last = std::max(*last, *until);
    // Set up a moment ago, or by a clock that was wrong.
    if (!last || *last > now + kDay) {
      markDay(now);
      last = now;
    }
    if (now >= nextAfter(*last)) {
      sendEmailReport(false);
      last = now;
    }
    wait = std::clamp(nextAfter(*last) - now, 1.0, kBetweenLooks);
  }
  m.platform.runLoop.performAfter(wait, [this] { sendWhenDue(); });
}

void EmailReport::sendPage(const MailSettings& settings, bool askedFor) {
  const ReferenceTime now = m.platform.clock.now();
  const ReferenceTime since = mMail.reportSince().value_or(now - kDay);
  ReportGatherer gatherer(m.store, m.history, m.tree, m.texts, m.strings);
  const ReportFacts facts = gatherer.gather({std::min(since, now), now});
  const std::int64_t frequency = m.store.settings().mainAppSettings().integer(MailKey::frequency);
  if (askedFor || frequency != MailKey::kAfterFailures || facts.hasFailures()) {
    const ReportPage page(facts, gatherer, m.texts, m.strings, frequency);
    const ComposedReport report{settings, page.subject(), page.text()};
    if (mMail.send(settings, {report.subject, report.message, page.html(), facts.period}))
      mComposer.keep(report, now);
  }
  // Marked behind what was put on disk: cut off before, the report is made again.
  if (!askedFor) markDay(now);
}

namespace {}  // namespace

bool NotExecutedNotice::isWaiting() const { return mEvaluation.hasNotExecutedNotices(); }

void NotExecutedNotice::postNext() {
  if (const ZAN_Value settings = mEvaluation.takeNotExecuted(); !settings.isNull())
    actionNotExecutedSince(settings);
}

void NotExecutedNotice::actionNotExecutedSince(const ZAN_Value& settings) {
  const SurveyExecution::Bracket bracket(m.survey, "actionNotExecutedSince");
  const auto since = TriggerEvaluation::lastSignOfLife(settings);
  if (!since) return;
  const auto days = static_cast<std::int64_t>((m.platform.clock.now() - std::trunc(*since)) / kDay);
  const std::string text = m.texts.text(
      "ActionNotExecutedSince", {ZAN_StringUtils::oneLine(settings["Title"].stringView()), days});
  const std::int64_t ways = settings.integer("TriggerNotificationNotExecuted");
  if (ways == 1 || ways == 3) m.messages.displayStandardMessage(text, LogCode::message);
  if (ways == 2 || ways == 3) sendByMail(text);
}

void NotExecutedNotice::sendByMail(const std::string& text) {
  const MailSettings mail = storedMailSettings(m.store.settings());
  if (mail.recipients.empty()) return;
  (void)mMail.send(mail, {m.texts.text("ActionNotExecutedSinceTitle"), text});
}

}  // namespace corvana
