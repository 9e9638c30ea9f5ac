#include <cmath>
#include <string>

#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "actions/ActionsTools.h"
#include "actions/ProgrammedAction.h"
#include "actions/TriggerSettings.h"
#include "core/record/Messages.h"
#include "core/record/SchedulerLog.h"
#include "core/record/SurveyExecution.h"
#include "core/work/TriggerEvaluation.h"
#include "mail/smtp/MailSender.h"
#include "mail/smtp/StoredMailSettings.h"
#include "platform/Clock.h"
#include "platform/Platform.h"

namespace corvana {
namespace {

constexpr double kDay = 86400.0;
constexpr std::int64_t kUsualLimitInDays = 7;

/// When the action was last executed, or else edited.
std::optional<ReferenceTime> lastSignOfLife(const ZAN_Value& settings) {
  if (const auto date = ActionsTools::getLastExecutionDateForSettings(settings)) return date;
  return settings["SaveEditDate"].asDate();
}

}  // namespace

void TriggerEvaluation::collectNotExecuted(ReferenceTime now, const ProgrammedAction& action,
                                           const TriggerSettings& trigger) {
  if (trigger.notExecuted == 0) return;
  const auto since = lastSignOfLife(action.getSettings());
  if (!since) return;
  const std::int64_t limit =
      trigger.notExecutedDays > 0 ? trigger.notExecutedDays : kUsualLimitInDays;
  if ((now - *since) / kDay >= static_cast<double>(limit))
    mNotificationNotExecutedSince.push_back(action.getSettings());
}

void TriggerEvaluation::postNextNotExecutedNotice() {
  if (mNotificationNotExecutedSince.empty()) return;
  const ZAN_Value settings = mNotificationNotExecutedSince.front();
  mNotificationNotExecutedSince.pop_front();
  actionNotExecutedSince(settings);
}

void TriggerEvaluation::actionNotExecutedSince(const ZAN_Value& settings) {
  const SurveyExecution::Bracket bracket(m.survey, "actionNotExecutedSince");
  const auto since = lastSignOfLife(settings);
  if (!since) return;
  const auto days = static_cast<std::int64_t>((m.platform.clock.now() - std::trunc(*since)) / kDay);
  const std::string text = m.texts.text("ActionNotExecutedSince", {settings.string("Title"), days});
  const std::int64_t ways = settings.integer("TriggerNotificationNotExecuted");
  if (ways == 1 || ways == 3) m.messages.displayStandardMessage(text, LogCode::message);
  if (ways == 2 || ways == 3) sendByMail(text);
}

void TriggerEvaluation::sendByMail(const std::string& text) {
  const MailSettings mail = storedMailSettings(m.store.settings());
  if (mail.recipients.empty()) return;
  const std::string& subject = m.texts.text("ActionNotExecutedSinceTitle");
  const auto sayFailure = [this](const Outcome& outcome) {
    if (!outcome)
      m.messages.displayStandardMessage(m.texts.text("ReportEmailError"), LogCode::message);
  };
  if (!mail.sender.empty() && !mail.server.empty())
    sayFailure(mMail.send(mail, subject, text, {}));
  else
    mMail.sendEmailWithMessage(text, subject, mail.recipients, sayFailure);
}

}  // namespace corvana
