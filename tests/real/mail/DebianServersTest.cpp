#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <optional>
#include <set>
#include <sstream>

#include "mail/smtp/MailMessage.h"
#include "mail/smtp/MailSender.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/qt/QtNetwork.h"
#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/RealLoop.h"
#include "tests/real/mail/MailServer.h"

namespace corvana {
namespace {

using testing::HasSubstr;
using testing::IsEmpty;

/// Exim, Postfix and OpenSMTPD as Debian has them, unpacked. They hand on what they take to a
/// server whose mailbox is read by another program.
class DebianServersTest : public testing::Test {
 protected:
  static void SetUpTestSuite() {
    sink = std::make_unique<test::MailServer>();
    if (!sink->trouble().empty() || ::geteuid() != 0) return;
    std::filesystem::create_directories(CORVANA_MAIL_SERVERS);
    folder = std::make_unique<TemporaryFolder>();
    servers = std::make_unique<test::ServerScript>(std::vector<std::string>{
        "/usr/bin/python3", std::string(CORVANA_MAIL_TOOLS) + "/mailservers.py",
        CORVANA_MAIL_SERVERS, sink->certificates(), folder->path(), sink->port("plain")});
  }
  static void TearDownTestSuite() {
    servers.reset();
    folder.reset();
    sink.reset();
  }
  void SetUp() override {
    if (!sink->trouble().empty()) GTEST_SKIP() << sink->trouble();
    if (!servers) GTEST_SKIP() << "needs root for servers in a namespace of their own";
    setenv("SSL_CERT_FILE", sink->authority().c_str(), 1);
  }
  void TearDown() override { unsetenv("SSL_CERT_FILE"); }

  struct Way {
    const char* server;
    std::int64_t tlsMode = 0;
    bool logsIn = false;
  };
  static std::string message(const std::string& id, std::vector<EmailAddress> to) {
    MailMessage mail;
    mail.from = {"anna@example.com", "Anna Müller"};
    mail.to = std::move(to);
    mail.subject = "Sicherungen von „workstation“: 2 fehlgeschlagen, 14 abgeschlossen, alle weiter";
    mail.text = std::string(300, 'x') + "\n.\nümlaut\n";
    mail.html = "<p>ü &amp; x</p>\n";
    mail.date = 790000000;
    mail.utcOffset = 3600;
    mail.messageId = id;
    return mail.wireForm();
  }
  Delivery deliver(const Way& way, const std::string& id, const std::vector<EmailAddress>& to) {
    MailSettings settings;
    settings.server = "localhost";
    settings.ports = servers->ports.at(way.server);
    settings.tlsMode = way.tlsMode;
    settings.authMethod = way.logsIn ? 1 : 0;
    settings.username = "user";
    settings.password = "pa ss";
    FinishedMail mail{"anna@example.com", {}, message(id, to)};
    for (const EmailAddress& address : to) mail.recipients.push_back(address.email);
    std::optional<Delivery> result;
    sender.deliver(settings, mail, {}, [&](const Delivery& delivery) { result = delivery; });
    real.runUntil([&] { return result.has_value(); }, 30);
    return result.value_or(Delivery{});
  }
  std::string mailbox() {
    return processes
        .runTool(
            {"/usr/bin/python3", std::string(CORVANA_MAIL_TOOLS) + "/mailbox.py", sink->mailbox()},
            30)
        .valueOr("unreadable");
  }
  bool runs(const std::string& server) const { return servers->ports.contains(server); }

  static std::unique_ptr<test::MailServer> sink;
  static std::unique_ptr<TemporaryFolder> folder;
  static std::unique_ptr<test::ServerScript> servers;
  RealLoop real;
  QtNetwork network;
  LinuxMachine machine;
  SimulatedSystemLog systemLog;
  LinuxProcesses processes{real.loop, {{}, real.clock.now(), "/"}};
  MailSender sender{real.clock, real.loop, machine, processes, systemLog, network};
};
std::unique_ptr<test::MailServer> DebianServersTest::sink;
std::unique_ptr<TemporaryFolder> DebianServersTest::folder;
std::unique_ptr<test::ServerScript> DebianServersTest::servers;

TEST_F(DebianServersTest, EveryServerTakesTheMailAndItArrivesWithoutFault) {
  constexpr std::int64_t kTls = ZAN_SMTPClient::kTlsFromTheStart;
  const std::vector<EmailAddress> one{{"bob@example.com", {}}};
  const std::vector<EmailAddress> two{{"bob@example.com", "Bob „der“ Baumeister"},
                                      {"carl@example.com", "Carl, Jr."}};
  std::set<std::string> expected;
  std::string missing;
  int number = 0;
  for (const Way& way :
       {Way{"exim-open"}, Way{"exim-open", 2}, Way{"exim-open", 2, true}, Way{"exim-auth", 0, true},
        Way{"exim-auth", 2, true}, Way{"exim-tls", kTls, true}, Way{"exim-smart"},
        Way{"exim-smart", 2}, Way{"postfix"}, Way{"postfix", 2}, Way{"postfix-auth", 0, true},
        Way{"postfix-auth", 2, true}, Way{"postfix-tls", kTls, true}, Way{"opensmtpd"}}) {
    if (!runs(way.server)) {
      missing += std::string(missing.empty() ? "" : ", ") + way.server;
      continue;
    }
    for (const auto& to : {one, two}) {
      const std::string id = "<" + std::to_string(++number) + "." + way.server + "@example.com>";
      const Delivery delivery = deliver(way, id, to);
      EXPECT_TRUE(delivery.isTaken) << way.server << way.tlsMode << ": " << delivery.reason;
      EXPECT_THAT(delivery.refusals, IsEmpty());
      if (delivery.isTaken)
        expected.insert(
            "['" + id +
            "', 'Sicherungen von „workstation“: 2 fehlgeschlagen, 14 abgeschlossen, alle weiter', "
            "'Anna Müller <anna@example.com>', '" +
            (to.size() == 1
                 ? "bob@example.com"
                 : "Bob „der“ Baumeister <bob@example.com>, \"Carl, Jr.\" <carl@example.com>") +
            "', '" + std::string(300, 'x') + "\\n.\\nümlaut\\n', '<p>ü &amp; x</p>\\n']");
    }
  }
  std::string all;
  for (const std::string& line : expected) all += (all.empty() ? "" : "\n") + line;
  std::string found;
  // They hand it on when they see fit. A copy for each recipient counts once.
  real.runUntil(
      [&] {
        std::set<std::string> lines;
        std::istringstream text(mailbox());
        for (std::string line; std::getline(text, line);) lines.insert(line);
        found.clear();
        for (const std::string& line : lines) found += (found.empty() ? "" : "\n") + line;
        return found.size() >= all.size();
      },
      40);
  EXPECT_EQ(found, all);
  for (const auto& [server, trouble] : servers->troubles)
    std::cout << server << " does not run: " << trouble << "\n";
  if (expected.empty()) GTEST_SKIP() << "none of the servers could be had: " << missing;
}

TEST_F(DebianServersTest, WhoIsRefusedIsNamedInTheServersWords) {
  if (!runs("exim-open")) GTEST_SKIP() << "Exim: " << servers->troubles["exim"];
  const Delivery some = deliver({"exim-open"}, "<some@example.com>",
                                {{"nobody@example.com", {}}, {"bob@example.com", {}}});
  EXPECT_TRUE(some.isTaken) << some.reason;
  ASSERT_EQ(some.refusals.size(), 1U);
  EXPECT_EQ(some.refusals[0].address, "nobody@example.com");
  EXPECT_EQ(some.refusals[0].reason, "550 No such user");
  const Delivery none = deliver({"exim-auth"}, "<none@example.com>", {{"bob@example.com", {}}});
  EXPECT_FALSE(none.isTaken);
  EXPECT_THAT(none.reason, HasSubstr("550 not without logging in"));
  EXPECT_TRUE(none.wasAnswered);
}

/// Also as the old form of a mail has it.
TEST_F(DebianServersTest, ServersThatInsistOnTheirTurnHearOneRecipientAfterTheOther) {
  for (const char* name : {"exim-open", "opensmtpd"}) {
    if (!runs(name)) continue;
    MailSettings settings;
    settings.server = "localhost";
    settings.ports = servers->ports.at(name);
    settings.sender = "anna@example.com";
    settings.recipients = "bob@example.com, carl@example.com, dora@example.com";
    std::optional<Outcome> result;
    ASSERT_TRUE(
        sender.send(settings, "Hi", "Hello", [&](const Outcome& outcome) { result = outcome; }));
    ASSERT_TRUE(real.runUntil([&] { return result.has_value(); }, 30)) << name;
    EXPECT_TRUE(*result) << name << ": " << result->error().text;
  }
}

}  // namespace
}  // namespace corvana
