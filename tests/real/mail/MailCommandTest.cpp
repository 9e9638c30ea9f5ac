#include <gmock/gmock.h>

#include <sstream>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionStore.h"
#include "command/Commands.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/real/mail/MailServer.h"

namespace corvana {
namespace {

using testing::AllOf;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The command against a real server, in a home of its own.
class MailCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!server.trouble().empty()) GTEST_SKIP() << server.trouble();
    setenv("TZ", "UTC", 1);
  }
  int run(std::vector<std::string> words) {
    words.insert(words.end(), {"--home", machine.folder.path()});
    std::istringstream in;
    out.str("");
    err.str("");
    return runCommandLine(words, {in, out, err});
  }
  std::vector<std::string> mail(const std::string& port, const std::string& method) {
    return {"mail",
            "--server",
            "localhost",
            "--ports",
            port,
            "--tls",
            "0",
            "--method",
            method,
            "--user",
            "user",
            "--password-file",
            machine.folder.at("password"),
            "--from",
            "Anna <anna@example.com>",
            "--to",
            "bob@example.com"};
  }

  test::MailServer server;
  SimulatedPlatform machine;
  std::ostringstream out, err;
};

TEST_F(MailCommandTest, PrintsTheDialogueAndNeverThePassword) {
  machine.folder.write("password", "pa ss\r\nsecond line\n");
  ASSERT_EQ(run(mail(server.port("plain"), "1")), kDone) << err.str();
  EXPECT_THAT(out.str(),
              AllOf(StartsWith("status 0\nstatus 0\ninfo Code: 220 - Message: localhost"),
                    HasSubstr("status 4\ninfo Code: 334 - Message: Username:\n"
                              "info Code: 334 - Message: Password:\ninfo Code: 235"),
                    EndsWith("status 8\ninfo Code: 221 - Message: Bye\n")));
  EXPECT_EQ(server.envelope(1), "anna@example.com bob@example.com clear LOGIN");

  machine.folder.write("password", "wrong word");
  ASSERT_EQ(run(mail(server.port("plain"), "1")), kCouldNot);
  EXPECT_THAT(out.str(), HasSubstr("\nerror 535 5.7.8 Authentication credentials invalid\n"));
  EXPECT_THAT(out.str() + err.str(), Not(HasSubstr("wrong word")));

  auto bad = mail(server.port("plain"), "0");
  bad.back() = "nobody";
  EXPECT_EQ(run(bad), kCouldNot);
  EXPECT_EQ(out.str(), "error 1 Invalid email address\n");
  EXPECT_EQ(run({"mail", "--server", "no.such.host.invalid", "--from", "a@b.c", "--to", "a@b.c"}),
            kCouldNot);
  EXPECT_EQ(out.str(), "error 0 Invalid server address\n");
  EXPECT_EQ(run({"mail"}), kWrongWords);
}

TEST_F(MailCommandTest, TheReportIsShownAndSentFromTheStoredSettings) {
  ActionStore store(machine.clock, machine.machine, machine.systemLog);
  EXPECT_EQ(run({"report", "--preview"}), kCouldNot);
  if (err.str().find("not installed") != std::string::npos)
    GTEST_SKIP() << "the agent's bundle is not built";
  ASSERT_TRUE(store.settings().saveMainAppSettings(ZAN_Value::dictionary(
      {{"SendEmailReport", 1},
       {"SendReportUserName", "Anna"},
       {"SendReportEmailAddress", "bob@example.com"},
       {"SendReportEmailSender", "anna@example.com"},
       {"SendReportEmailSMTPServer", "localhost"},
       {"SendReportEmailSMTPServerPort", server.port("plain")},
       {"SendReportEmailSMTPServerLogin", "user"},
       {"SendReportEmailSMTPServerPassword", SettingsFiles::compressPassword("pa ss")},
       {"SendReportEmailSMTPServerAuthMethod", 2},
       {"SendReportEmailCRMode", 2}})));
  EXPECT_EQ(run({"report", "--preview"}), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("there is no report to send"));
  // Of today, as no report was sent before; the command has the real clock.
  const std::string path = [&] {
    run({"report", "--preview"});
    const std::string text = err.str();
    const auto begin = text.find("send: ") + 6;
    return text.substr(begin, text.find(".txt") + 4 - begin);
  }();
  machine.folder.write(path.substr(machine.folder.path().size() + 1), "09:00 copied\n");
  ASSERT_EQ(run({"report", "--preview"}), kDone) << err.str();
  EXPECT_THAT(
      out.str(),
      AllOf(StartsWith("By: localhost\nFrom: anna@example.com\nTo: bob@example.com\n"
                       "Subject: Corvana 9: report for Anna since –\n\nReport of Corvana 9"),
            EndsWith("What happened (2 lines)\n\n09:00 copied\n")));
  ASSERT_EQ(run({"report", "--mail"}), kDone) << out.str() << err.str();
  EXPECT_EQ(server.envelope(1), "anna@example.com bob@example.com clear CRAM-MD5");
  // So are the settings tested.
  ASSERT_EQ(run({"mail", "--subject", "Test"}), kDone);
  EXPECT_EQ(server.envelope(2), "anna@example.com bob@example.com clear CRAM-MD5");
}

}  // namespace
}  // namespace corvana
