#include "mail/report/EmailReport.h"

#include <algorithm>
#include <cmath>
#include <cstdint>

#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "mail/report/ReportPage.h"
#include "mail/smtp/StoredMailSettings.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"

namespace corvana {

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
  if (askedFor || frequency != MailKey::kAfterFailures || facts.needsAttention()) {
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
