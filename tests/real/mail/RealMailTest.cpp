#include <gmock/gmock.h>

#include <cstdlib>
#include <memory>
#include <set>

#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "mail/smtp/MailSender.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/linux/LinuxMachine.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/qt/QtNetwork.h"
#include "platform/simulated/SimulatedMachine.h"
#include "tests/real/RealLoop.h"
#include "tests/real/mail/Exim.h"
#include "tests/real/mail/MailServer.h"

namespace corvana {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class RealMailTest : public testing::Test {
 protected:
  static void SetUpTestSuite() { server = std::make_unique<test::MailServer>(); }
  static void TearDownTestSuite() { server.reset(); }
  void SetUp() override {
    if (!server->trouble().empty()) GTEST_SKIP() << server->trouble();
    setenv("SSL_CERT_FILE", server->authority().c_str(), 1);
  }
  void TearDown() override { unsetenv("SSL_CERT_FILE"); }

  struct Way {
    std::string server;
    std::int64_t tlsMode = 0;
    std::int64_t method = 0;
    std::string host = "localhost";
    std::string password = "pa ss";
    std::string to = "bob@example.com";
    std::string port = {};  ///< of another server than those of the suite
  };
  /// Whether it was taken.
  bool send(const Way& way, const std::string& body = "Hello") {
    log.clear();
    told.clear();
    const auto client = ZAN_SMTPClient::clientWithServerAddress(
        way.host, way.port.empty() ? server->port(way.server) : way.port, way.tlsMode, "user",
        way.password, way.method);
    auto delegate = std::make_shared<SMTPClientDelegate>();
    std::shared_ptr<SMTPConnector> connector;
    delegate->reportError = [&](const ZAN_SMTPClient&, const SMTPError& error) {
      told = std::to_string(error.code) + " " + error.messageKey;
      connector->hangUpSoon();
    };
    client->setDelegate(delegate);
    connector = client->connectorForMessage(
        network, loop.clock,
        {"tester", 101500, [this](const std::string& line) { log.push_back(line); }}, body, "Grüße",
        "Anna <anna@example.com>", way.to, 1);
    connector->start();
    if (connector->success() && way.port.empty()) ++count;
    return connector->success();
  }
  std::string lastEnvelope() const { return server->envelope(count); }

  static std::unique_ptr<test::MailServer> server;
  static int count;  ///< mails taken
  RealLoop loop;
  QtNetwork network;
  std::vector<std::string> log;
  std::string told;
};
std::unique_ptr<test::MailServer> RealMailTest::server;
int RealMailTest::count = 0;

std::string bodyOf(const std::string& message) {
  const std::size_t begin = message.find("\r\n\r\n");
  if (begin == std::string::npos) return "no body";
  return fromBase64(message.substr(begin + 4)).value_or("no base64");
}

TEST_F(RealMailTest, EveryWayOfLoggingInDeliversTheMail) {
  const std::string body = std::string(300, 'x') + "\nümlaut\n.\n";
  for (const auto& [way, envelope] : {std::pair<Way, const char*>{{"plain"}, "clear -"},
                                      {{"plain", 0, 1}, "clear LOGIN"},
                                      {{"plain", 0, 2}, "clear CRAM-MD5"},
                                      {{"good", 2, 1}, "tls LOGIN"},
                                      {{"good", 1, 1, "127.0.0.1"}, "tls LOGIN"},
                                      {{"good", 0, 0}, "clear -"},
                                      {{"implicit", 2, 1}, "tls LOGIN"}}) {
    ASSERT_TRUE(send(way, body)) << way.server << way.method << testing::PrintToString(log) << told;
    EXPECT_EQ(lastEnvelope(), std::string("anna@example.com bob@example.com ") + envelope);
    const std::string message = server->message(count);
    EXPECT_EQ(bodyOf(message), std::string(300, 'x') + "<br>ümlaut<br>.<br>");
    EXPECT_THAT(message, HasSubstr("From: =?UTF-8?B?YW5uYQ==?= <anna@example.com>\r\n"));
    EXPECT_THAT(message, HasSubstr("Subject: =?UTF-8?B?R3LDvMOfZQ==?=\r\n"));
  }
}

TEST_F(RealMailTest, ARefusalComesInTheServersWords) {
  EXPECT_FALSE(send({"good", 2, 1, "localhost", "wrong"}));
  EXPECT_THAT(told, HasSubstr("535 5.7.8"));
  // A server that knows the small digits only, as most do.
  EXPECT_FALSE(send({"good", 2, 2}));
  EXPECT_THAT(told, HasSubstr("535 5.7.8"));
  EXPECT_FALSE(send({"plain", 0, 0, "localhost", "", "nobody@example.com"}));
  EXPECT_EQ(told, "550 5.1.1 No such user");
}

TEST_F(RealMailTest, AWrongCertificateIsNamedAndNothingIsSent) {
  const auto failure = [&](const Way& way) {
    EXPECT_FALSE(send(way)) << way.server;
    return log.empty() ? "" : log[0];
  };
  EXPECT_THAT(failure({"misnamed", 2, 1}),
              HasSubstr("TLS handshake failed: the certificate is not for localhost (it is for "
                        "mail.example.com, issued by Test Authority"));
  EXPECT_THAT(failure({"expired", 2, 1}), HasSubstr("the certificate has expired"));
  EXPECT_THAT(failure({"unknown", 1, 1}),
              HasSubstr("the certificate comes from an unknown authority"));
  EXPECT_THAT(failure({"unknown", 1, 1}), HasSubstr("issued by Another Authority"));
  unsetenv("SSL_CERT_FILE");
  EXPECT_THAT(failure({"good", 1, 1}),
              HasSubstr("the certificate comes from an unknown authority"));
  EXPECT_EQ(server->envelope(count + 1), "");
}

TEST_F(RealMailTest, EximDeliversItReadable) {
  test::Exim exim(loop, server->authority().substr(0, server->authority().rfind('/')));
  if (!exim.trouble().empty()) GTEST_SKIP() << exim.trouble();
  Way way{"", 2, 1};
  way.port = exim.port();
  way.to = "bob@example.com, Carl Ö <carl@example.com>";
  way.password = "wrong";
  EXPECT_FALSE(send(way));
  EXPECT_THAT(told, HasSubstr("535 Incorrect authentication data"));
  way.method = 0;
  EXPECT_FALSE(send(way));
  EXPECT_THAT(told, HasSubstr("550 not without logging in"));
  way.method = 1;
  way.password = "pa ss";
  ASSERT_TRUE(send(way, std::string(3000, 'x') + "\nümlaut\n.\n"))
      << testing::PrintToString(log) << told;
  EXPECT_EQ(exim.mailRead(),
            "Grüße\nanna <anna@example.com>\nbob@example.com, carl ö <carl@example.com>\n" +
                std::string(3000, 'x') + "<br>ümlaut<br>.<br>");
}

TEST_F(RealMailTest, TenAtOnceAllArrive) {
  SimulatedSystemLog systemLog;
  LinuxMachine machine;
  LinuxProcesses processes(loop.loop, {{}, loop.clock.now(), "/"});
  MailSender sender(loop.clock, loop.loop, machine, processes, systemLog, network);
  int done = 0;
  for (int i = 0; i < 10; ++i) {
    MailSettings settings;
    settings.server = "localhost";
    settings.ports = server->port(i % 2 == 0 ? "plain" : "good");
    settings.tlsMode = i % 2 == 0 ? 0 : 2;
    settings.authMethod = 1;
    settings.username = "user";
    settings.password = "pa ss";
    settings.sender = "anna@example.com";
    settings.recipients = "bob@example.com";
    const Outcome begun = sender.send(settings, "Hi", "number " + std::to_string(i),
                                      [&](const Outcome& outcome) { done += outcome ? 1 : 100; });
    ASSERT_TRUE(begun);
  }
  EXPECT_TRUE(sender.isSending());
  ASSERT_TRUE(loop.runUntil([&] { return done >= 10 && !sender.isSending(); }));
  EXPECT_EQ(done, 10) << testing::PrintToString(systemLog.lines);
  std::set<std::string> bodies;
  for (int i = 1; i <= 10; ++i) bodies.insert(bodyOf(server->message(count + i)));
  count += 10;
  EXPECT_EQ(bodies.size(), 10U);
  EXPECT_THAT(bodies, Contains("number 7"));
}

}  // namespace
}  // namespace corvana
