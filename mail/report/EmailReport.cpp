#include "mail/report/EmailReport.h"

#include "core/record/Records.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"

namespace corvana {
namespace {

constexpr double kAfterLaunch = 300;
constexpr double kAfterAsking = 0.5;
constexpr const char* kLastDate = "DateOfLastReportSentByEmail";

}  // namespace

EmailReport::EmailReport(Records& records, MailSender& mail)
    : m(records), mMail(mail), mComposer({m.store, m.history, m.texts, m.strings}) {}

void EmailReport::start() {
  m.platform.runLoop.performAfter(kAfterLaunch, [this] { sendEmailReport(false); });
}

void EmailReport::sendDailyReportNow() {
  m.platform.runLoop.performAfter(kAfterAsking, [this] { sendEmailReport(true); });
}

void EmailReport::sendEmailReport(bool askedFor) {
  const ReferenceTime now = m.platform.clock.now();
  const auto last = m.preferences.prefForKey(kLastDate).asDate();
  if (!askedFor) {
    if (last && m.store.dates().calendar().sameDay(*last, now)) return;
    m.preferences.setPref(kLastDate, ZAN_Value::date(now));
    m.preferences.savePrefs();
    if (!last) return;
  }
  const auto report = mComposer.compose(last, now);
  if (!report) return;
  m.messages.sendUserNotification(m.texts.text("ReportSent", {report->mail.recipients}));
  send(*report);
}

void EmailReport::send(const ComposedReport& report) {
  if (report.goesOverSmtp()) {
    const Outcome begun = mMail.send(report.mail, report.subject, report.message, {});
    sayFailure(begun);
    if (!begun) return;
  } else {
    mMail.sendEmailWithMessage(report.message, report.subject, report.mail.recipients,
                               [this](const Outcome& outcome) { sayFailure(outcome); });
  }
  mComposer.keep(report, m.platform.clock.now());
}

void EmailReport::sayFailure(const Outcome& outcome) {
  if (outcome) return;
  m.messages.displayStandardMessage(m.texts.text("ReportEmailError"), LogCode::message);
}

}  // namespace corvana
