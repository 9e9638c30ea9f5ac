#include "mail/report/NotExecutedNotice.h"

#include <cmath>
#include <cstdint>

#include "core/record/Records.h"
#include "core/work/TriggerEvaluation.h"
#include "mail/report/OutgoingMail.h"
#include "mail/smtp/StoredMailSettings.h"
#include "platform/Clock.h"

namespace corvana {
namespace {

constexpr double kDay = 86400.0;

}  // namespace

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
