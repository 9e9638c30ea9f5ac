#include "mail/report/OutgoingMail.h"

#include <algorithm>

#include "core/record/Records.h"
#include "mail/smtp/MailMessage.h"
#include "platform/Clock.h"

namespace corvana {

Outcome OutgoingMail::send(const MailSettings& settings, const Letter& letter) {
  const auto done = [this, letter](const Outcome& outcome) {
    outcome ? noteDelivered(letter) : sayFailure(outcome.error().text);
  };
  if (!settings.goesOverSmtp()) {
    mSender.sendEmailWithMessage(letter.text, letter.subject, settings.recipients, done);
    return {};
  }
  // It is read as HTML.
  Outcome begun = mSender.send(settings, letter.subject, htmlEscaped(letter.text), done);
  if (!begun) sayFailure(begun.error().text);
  return begun;
}

void OutgoingMail::sayFailure(const std::string& reason) {
  const std::string text = m.texts.text("ReportEmailError", {reason});
  m.preferences.setPref(
      kLastFailure,
      ZAN_Value::dictionary({{"Date", ZAN_Value::date(m.platform.clock.now())}, {"Text", text}}));
  m.messages.displayStandardMessage(text, LogCode::message);
  m.log.showErrorState(LogCode::message);
}

void OutgoingMail::noteDelivered(const Letter& letter) {
  const auto known = m.preferences.prefForKey(kDelivered).asDate();
  if (letter.reportUntil && known.value_or(0) < *letter.reportUntil)
    m.preferences.setPref(kDelivered, ZAN_Value::date(*letter.reportUntil));
  m.preferences.setPref(kLastFailure, {});
  m.preferences.savePrefs();
}

}  // namespace corvana
