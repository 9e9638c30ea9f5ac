#include "mail/report/EmailReport.h"

#include <gmock/gmock.h>

#include "mail/report/OutgoingMail.h"
#include "tests/core_work/WorkWorld.h"
#include "tests/support/RecordingMail.h"

namespace corvana::test {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr double kDay = 86400;

struct NotExecutedNoticeTest : testing::Test, WorkWorld {
  RecordingMail mail{machine.clock,     machine.runLoop,   machine.machine,
                     machine.processes, machine.systemLog, machine.network};
  OutgoingMail outgoing{records, mail};
  NotExecutedNotice notice{records, evaluation, outgoing};
};

TEST_F(NotExecutedNoticeTest, LongUnexecutedActionsAreToldOnceWhileTheUserIsThere) {
  const auto told = [&](int ref, int ways, int days, double since) {
    return action(ref, {{"TriggerNotificationNotExecuted", ways},
                        {"TriggerDelayNotExecuted", days},
                        {"LastExecutionDate", ZAN_Value::date(now() - since * kDay)}});
  };
  setActions({told(1, 1, 0, 7), told(2, 1, 0, 6.9), told(3, 2, 3, 3.5), told(4, 0, 3, 30),
              action(5, {{"TriggerNotificationNotExecuted", 3},
                         {"SaveEditDate", ZAN_Value::date(now() - 8 * kDay)}}),
              action(6, {{"TriggerNotificationNotExecuted", 3}})});
  const auto setMail = [&](const char* server) {
    (void)store.settings().saveMainAppSettings(ZAN_Value::dictionary(
        {{"SendReportEmailAddress", "anna@example.org"},
         {"SendReportEmailSender", "agent@example.org"},
         {"SendReportEmailSMTPServer", server},
         {"SendReportEmailSMTPServerUseTLSCB", 1},
         {"SendReportEmailSMTPServerPassword", SettingsFiles::compressPassword("secret")}}));
  };
  setMail("mail.example.org");
  state.userWasActive(now() - 60);
  evaluation.checkActionsToLaunch();
  EXPECT_FALSE(notice.isWaiting());
  state.userWasActive(now() - 59);
  evaluation.checkActionsToLaunch();
  evaluation.checkActionsToLaunch();
  for (int posted = 0; posted < 3; ++posted) {
    ASSERT_TRUE(notice.isWaiting());
    notice.postNext();
  }
  EXPECT_FALSE(notice.isWaiting());
  EXPECT_THAT(notices(),
              ElementsAre("“A1” was not executed for 7 days", "“A5” was not executed for 8 days"));
  ASSERT_EQ(mail.sent.size(), 2u);
  EXPECT_EQ(mail.sent[0].body, "“A3” was not executed for 3 days");
  EXPECT_EQ(mail.sent[0].settings.tlsMode, 2);
  EXPECT_EQ(mail.sent[0].settings.password, "secret");

  setMail("nowhere");
  notice.actionNotExecutedSince(told(7, 2, 0, 9));
  EXPECT_THAT(notices().back(), HasSubstr("e-mail could not be sent"));

  // Without a server the system's mail program is used.
  setMail("");
  machine.processes.next({.seconds = 1, .status = 0});
  notice.actionNotExecutedSince(told(8, 2, 0, 9));
  const auto sendmail = machine.processes.starts.back();
  EXPECT_THAT(sendmail->arguments, ElementsAre("/usr/sbin/sendmail", "anna@example.org"));
  EXPECT_EQ(sendmail->input,
            "To: anna@example.org\nSubject: An action was not executed for a while\n"
            "MIME-Version: 1.0\nContent-Type: text/plain; charset=UTF-8\n"
            "Content-Transfer-Encoding: base64\n\n"
            "4oCcQTjigJ0gd2FzIG5vdCBleGVjdXRlZCBmb3IgOSBkYXlzCg==\n.\n");
  const std::size_t before = notices().size();
  advance(2);
  EXPECT_EQ(notices().size(), before);
  machine.processes.next({.seconds = 1, .status = 1});
  notice.actionNotExecutedSince(told(8, 2, 0, 9));
  advance(2);
  EXPECT_EQ(notices().size(), before + 1);
}

}  // namespace
}  // namespace corvana::test
