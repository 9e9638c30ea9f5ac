#include "mail/report/EmailReport.h"

#include "core/record/Records.h"
#include "mail/report/OutgoingMail.h"
#include "platform/Clock.h"
#include "platform/RunLoop.h"

namespace corvana {
namespace {

constexpr double kAfterLaunch = 300;
constexpr double kAfterAsking = 0.5;
constexpr const char* kLastDate = "DateOfLastReportSentByEmail";

}  // namespace

EmailReport::EmailReport(Records& records, OutgoingMail& mail)
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
  if (mMail.send(report->mail, {report->subject, report->message, now}))
    mComposer.keep(*report, now);
}

}  // namespace corvana
