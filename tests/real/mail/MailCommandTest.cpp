#include <gmock/gmock.h>

#include <sys/stat.h>

#include <sstream>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionStore.h"
#include "command/Commands.h"
#include "mail/report/OutgoingMail.h"
#include "mail/smtp/MailSender.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/real/mail/MailServer.h"
#include "tests/support/Keyring.h"

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
    setenv("SSL_CERT_FILE", server.authority().c_str(), 1);
    setenv("XDG_CONFIG_HOME", machine.folder.at("config").c_str(), 1);
    // No keyring but one of the test.
    setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  }
  void TearDown() override {
    for (const char* name : {"SSL_CERT_FILE", "XDG_CONFIG_HOME", "DBUS_SESSION_BUS_ADDRESS"})
      unsetenv(name);
  }
  int run(std::vector<std::string> words, const std::string& typed = {}) {
    words.insert(words.end(), {"--home", machine.folder.path()});
    std::istringstream in(typed);
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

  /// Of an account over TLS from the start, as far as it goes without the password.
  std::vector<std::string> setup() {
    return {"mail",
            "--setup",
            "anna@example.com",
            "--server",
            "localhost",
            "--port",
            server.port("implicit"),
            "--security",
            "tls",
            "--user",
            "user",
            "--at",
            "18:30",
            "--every",
            "week",
            "--password-file"};
  }
  int setUp(const std::string& passwordFile, const std::string& typed = {}) {
    std::vector<std::string> words = setup();
    words.push_back(passwordFile);
    return run(words, typed);
  }
  std::string settingsFile() {
    ActionStore store(machine.clock, machine.machine, machine.systemLog);
    const auto file = ZAN_FilesUtils::readFile(store.folder().pathOf(DataFolder::kSettings));
    return file ? file->bytes : std::string();
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

TEST_F(MailCommandTest, AnAccountIsTriedKeptShownAndSwitchedOff) {
  const std::string password = machine.folder.write("password", "wrong word\n");
  chmod(password.c_str(), 0600);
  EXPECT_EQ(setUp(password), kCouldNot);
  EXPECT_THAT(err.str(),
              AllOf(HasSubstr("logging in as user: 535 5.7.8 Authentication credentials"),
                    HasSubstr("no mail was sent and nothing was changed")));
  EXPECT_EQ(run({"mail", "--show"}), kDone);
  EXPECT_EQ(out.str(), "Reports by e-mail are off.\n");

  machine.folder.write("password", "pa ss\nsecond line\n");
  ASSERT_EQ(setUp(password), kDone) << err.str();
  const std::string account = "From anna@example.com to anna@example.com\nBy localhost, port " +
                              server.port("implicit") + ", encryption tls, as user, password in " +
                              password + "\nComes on Mondays at 18:30.\n";
  EXPECT_EQ(out.str(), "A test mail was taken by localhost.\n" + account);
  EXPECT_EQ(server.envelope(1), "anna@example.com anna@example.com tls PLAIN");
  EXPECT_EQ(run({"mail", "--show"}), kDone);
  EXPECT_EQ(out.str(), account);
  EXPECT_THAT(settingsFile(), Not(HasSubstr("pa ss")));

  // The file is read at each sending, and only where nobody else can.
  EXPECT_EQ(run({"mail"}), kDone) << err.str();
  chmod(password.c_str(), 0644);
  EXPECT_EQ(run({"mail"}), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("others may read the password; chmod 600"));

  // Typed, and nowhere to keep it but a file of the user's own.
  ASSERT_EQ(setUp("-", "pa ss\n"), kDone) << err.str();
  const std::string kept = machine.folder.at("config/corvana9/mail-password");
  EXPECT_THAT(out.str(), HasSubstr("password in " + kept));
  struct stat status {};
  ASSERT_EQ(::stat(kept.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  EXPECT_EQ(run({"mail"}), kDone) << err.str();

  EXPECT_EQ(run({"mail", "--off"}), kDone);
  EXPECT_THAT(out.str(), StartsWith("Reports by e-mail are off.\nFrom anna@example.com"));
}

TEST_F(MailCommandTest, TheKeyringKeepsThePassword) {
  if (!Keyring::isInstalled()) GTEST_SKIP() << "no keyring of a desktop is installed";
  Keyring keyring;
  keyring.start();
  ASSERT_EQ(setUp("-", "pa ss\n"), kDone) << err.str();
  EXPECT_THAT(out.str(), HasSubstr("as user, password in the keyring\n"));
  EXPECT_FALSE(ZAN_FilesUtils::exists(machine.folder.at("config/corvana9/mail-password")));
  EXPECT_EQ(run({"mail"}), kDone) << err.str();
  EXPECT_EQ(server.envelope(2), "anna@example.com anna@example.com tls PLAIN");
  // It is known already, and nobody is asked.
  std::vector<std::string> again = setup();
  again.pop_back();
  EXPECT_EQ(run(again), kDone) << err.str();
  // Without the keyring the reason is said.
  setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
  EXPECT_EQ(run({"mail"}), kCouldNot);
  EXPECT_THAT(err.str(), HasSubstr("the password of user cannot be read from the keyring"));
}

TEST_F(MailCommandTest, WhatWaitsIsToldAndDroppedOnlyWhenAsked) {
  ActionStore store(machine.clock, machine.machine, machine.systemLog);
  ASSERT_TRUE(store.settings().saveMainAppSettings(ZAN_Value::dictionary(
      {{"SendEmailReport", 1}, {MailKey::standard, 1}, {"SendReportEmailAddress", "b@x.de"}})));
  EXPECT_EQ(run({"report", "--status"}), kDone);
  EXPECT_EQ(out.str(), "Reports go to b@x.de.\nNo report was delivered yet.\n");
  const MailSpool spool(store.folder().hiddenFolderPath());
  const auto letter = [](const char* subject) {
    return WaitingMail::made({"a@x.de", {"b@x.de"}, "Subject: x\r\n\r\nhi\r\n"}, subject, 0);
  };
  WaitingMail waits = letter("Monday"), lost = letter("Sunday");
  waits.attempts = 2;
  waits.isDoubtful = true;
  waits.reason = "mail.x.de: Connection refused";
  lost.givenUp = 60;
  lost.reason = "550 no";
  ASSERT_TRUE(spool.write(waits));
  ASSERT_TRUE(spool.write(lost));
  EXPECT_EQ(run({"report", "--status"}), kDone);
  EXPECT_THAT(out.str(), AllOf(HasSubstr("Waits: Monday, tried 2 times, again Mon 2001-01-01"),
                               HasSubstr(", may come twice\n  mail.x.de: Connection refused\n"),
                               HasSubstr("Given up: Sunday, written "), HasSubstr("\n  550 no\n")));
  EXPECT_EQ(run({"mail", "--off"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("1 mail still waits and goes out when the server takes it;"));
  EXPECT_EQ(spool.read().size(), 2U);
  EXPECT_EQ(run({"mail", "--off", "--drop"}), kDone);
  EXPECT_THAT(out.str(), HasSubstr("Dropped: Monday\n"));
  ASSERT_EQ(spool.read().size(), 1U) << "what was given up is no longer sent anyway";
  EXPECT_EQ(spool.read()[0].subject, "Sunday");
}

}  // namespace
}  // namespace corvana
