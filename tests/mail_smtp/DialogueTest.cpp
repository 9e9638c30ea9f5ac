#include <gmock/gmock.h>

#include <array>
#include <atomic>
#include <thread>

#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "mail/smtp/SMTPTexts.h"
#include "tests/mail_smtp/SMTPSession.h"

namespace corvana {
namespace {

using test::greeting;
using test::SMTPSession;
using test::takesMail;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr const char* kNone =
    "SMTP Exception: Server doesn't allow any authentication techniques supported by this client.";

/// What a server offers and the user wants, and how the session goes on after EHLO.
struct Negotiation {
  const char* name;
  std::int64_t tlsMode;
  std::int64_t method;
  bool setLater;
  std::vector<std::string> offers;  ///< replies to EHLO
  const char* next;                 ///< what the client says then, or what it logs
};

class NegotiationTest : public testing::TestWithParam<Negotiation> {};

TEST_P(NegotiationTest, FollowsWhatTheServerOffers) {
  const Negotiation& p = GetParam();
  SMTPSession session;
  session.tlsMode = p.tlsMode;
  session.method = p.method;
  session.credentialsSetLater = p.setLater;
  session.user = "user";
  session.password = "secret";
  PeerScript script = greeting();
  script.hear("\r\n");
  for (const auto& line : p.offers) script.line(line);
  script.hear("\r\n").close();
  session.run(script);
  const std::string expected(p.next);
  if (expected.starts_with("SMTP Exception"))
    EXPECT_THAT(session.log, ElementsAre(expected));
  else
    EXPECT_THAT(session.sent(), EndsWith(expected + "\r\n"));
}

const Negotiation kNegotiations[] = {
    {"Login", 0, 1, false, {"250-AUTH PLAIN LOGIN", "250 ok"}, "AUTH LOGIN"},
    {"LoginWantsPlainOffered", 0, 1, false, {"250-AUTH LOGIN", "250 ok"}, kNone},
    {"CramMd5", 0, 2, false, {"250-AUTH PLAIN CRAM-MD5", "250 ok"}, "AUTH CRAM-MD5"},
    {"NoCramMd5", 0, 2, false, {"250-AUTH PLAIN", "250 ok"}, kNone},
    {"NoneNeverLogsIn", 0, 0, false, {"250-AUTH PLAIN", "250 ok"}, "MAIL FROM: <anna@example.com>"},
    {"BestOfThree", 0, 0, true, {"250-AUTH PLAIN LOGIN CRAM-MD5", "250 ok"}, "AUTH CRAM-MD5"},
    {"BestIsPlain",
     0,
     0,
     true,
     {"250-AUTH LOGIN PLAIN", "250 ok"},
     "AUTH PLAIN dXNlcgB1c2VyAHNlY3JldA=="},
    {"BestIsLogin", 0, 0, true, {"250-AUTH LOGIN", "250 ok"}, "AUTH LOGIN"},
    {"UnknownMethod", 0, 3, false, {"250-AUTH PLAIN LOGIN CRAM-MD5", "250 ok"}, kNone},
    {"LastLineIsNoExtension", 0, 1, false, {"250-8BITMIME", "250 AUTH PLAIN"}, kNone},
    {"StartTls", 1, 1, false, {"250-STARTTLS", "250 ok"}, "STARTTLS"},
    {"StartTlsUnwanted", 0, 0, false, {"250-STARTTLS", "250 ok"}, "MAIL FROM: <anna@example.com>"},
    {"NoStartTlsIfOffered", 1, 1, false, {"250-AUTH PLAIN", "250 ok"}, "AUTH LOGIN"},
    {"NoStartTlsRequired",
     2,
     1,
     false,
     {"250-AUTH PLAIN", "250 STARTTLS"},
     "SMTP Exception: Server doesn't support STARTTLS"},
};
INSTANTIATE_TEST_SUITE_P(All, NegotiationTest, testing::ValuesIn(kNegotiations),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Dialogue, RecipientsAreNamedOneAfterTheOther) {
  SMTPSession session;
  session.to = "bob@example.com, carl@example.com";
  PeerScript script = greeting();
  script.hear("HELO annas-machine.local\r\n").line("250 hello").hear("\r\n").line("250 ok");
  script.hear("<bob@example.com>\r\n").line("250 ok").hear("<carl@example.com>\r\n");
  session.run(PeerScript(script).line("550 unknown").close());
  EXPECT_THAT(session.sent(), EndsWith("RCPT TO: <carl@example.com>\r\n"));
  EXPECT_THAT(session.reason, EndsWith("carl@example.com was refused: 550 unknown"));
  PeerScript first = greeting();
  first.hear("HELO").line("250 hello").hear("MAIL FROM").line("250 ok").hear("RCPT TO").close();
  session.run(first);
  EXPECT_THAT(session.sent(), EndsWith("RCPT TO: <bob@example.com>\r\n"));
}

TEST(Dialogue, APlainMessageToTwoIsSentAsItHasToBe) {
  SMTPSession session;
  session.observed = true;
  session.from = "Anna Müller <ANNA@example.com>";
  session.to = "bob@example.com,  Carl<carl@Example.com>";
  session.body = std::string(60, 'x') + "\n" + std::string(60, 'y');
  PeerScript script = greeting();
  script.hear("HELO annas-machine.local\r\n").line("250 hello");
  session.run(takesMail(script, 2));
  EXPECT_TRUE(session.success);
  const std::string sent = session.sent();
  EXPECT_THAT(sent, HasSubstr("RCPT TO: <bob@example.com>\r\nRCPT TO: <carl@example.com>\r\n"
                              "DATA\r\n"
                              "From: =?UTF-8?B?" +
                              base64Of("anna müller") +
                              "?= <anna@example.com>\r\n"
                              "To: bob@example.com, =?UTF-8?B?" +
                              base64Of("car") +
                              "?= <carl@example.com>\r\n"
                              "Subject: =?UTF-8?B?SGk=?=\r\n"
                              "Mime-Version: 1.0\r\n"
                              "Content-Type: text/html; charset=\"UTF-8\"\r\n"
                              "Content-Transfer-Encoding: base64\r\n\r\n"));
  EXPECT_THAT(sent, EndsWith("\r\n.\r\nQUIT\r\n"));
  const std::size_t begin = sent.find("\r\n\r\n") + 4;
  const std::string pieces = sent.substr(begin, sent.find("\r\n.\r\n") - begin);
  EXPECT_EQ(pieces.find('\n'), 76U);
  EXPECT_EQ(pieces.find('\r'), std::string::npos);
  EXPECT_EQ(fromBase64(pieces), std::string(60, 'x') + "<br>" + std::string(60, 'y'));
  EXPECT_THAT(
      session.told,
      ElementsAre("status 0", "status 0", "info Code: 220 - Message: mail.example.com", "status 1",
                  "info Code: 250 - Message: hello", "status 5", "info Code: 250 - Message: ok",
                  "status 6", "info Code: 250 - Message: ok", "info Code: 250 - Message: ok",
                  "status 7", "info Code: 354 - Message: go on", "info Code: 250 - Message: taken",
                  "status 8", "info Code: 221 - Message: bye"));
}

TEST(Dialogue, TheCredentialsFollowTheServersPrompts) {
  SMTPSession login;
  login.observed = true;
  login.method = 1;
  login.user = "user";
  login.password = "secret";
  PeerScript script = greeting();
  script.hear("EHLO ")
      .line("250-AUTH PLAIN")
      .line("250 ok")
      .hear("AUTH LOGIN\r\n")
      .line("334 " + base64Of("Username:"))
      .hear(base64Of("user") + "\r\n")
      .line("334 " + base64Of("Password:"))
      .hear(base64Of("secret") + "\r\n")
      .line("235 fine");
  login.run(takesMail(script));
  EXPECT_TRUE(login.success);
  EXPECT_THAT(login.told, Contains("info Code: 334 - Message: Password:"));

  SMTPSession odd;
  odd.method = 1;
  odd.user = "user";
  odd.password = "secret";
  PeerScript asks = greeting();
  asks.hear("EHLO ")
      .line("250-AUTH PLAIN")
      .line("250 ok")
      .hear("AUTH LOGIN\r\n")
      .line("334 " + base64Of("Name?"));
  odd.run(takesMail(asks));
  EXPECT_TRUE(odd.success) << odd.sent();

  // RFC 2195's example, but for the case of the digits.
  SMTPSession cram;
  cram.method = 2;
  cram.user = "tim";
  cram.password = "tanstaaftanstaaf";
  PeerScript challenge = greeting();
  challenge.hear("EHLO ")
      .line("250-AUTH CRAM-MD5")
      .line("250 ok")
      .hear("AUTH CRAM-MD5\r\n")
      .line("334 " + base64Of("<1896.697170952@postoffice.reston.mci.net>"))
      .hear(base64Of("tim B913A602C7EDA7A495B4E6E7334D3890") + "\r\n")
      .line("235 fine");
  cram.run(takesMail(challenge));
  EXPECT_TRUE(cram.success) << cram.sent();
  // RFC 2202's cases for keys of up to a block and beyond.
  EXPECT_EQ(cramMD5("what do ya want for nothing?", "Jefe"), "750C783E6AB0B503EAA86E310A5DB738");
  EXPECT_EQ(
      cramMD5("Test Using Larger Than Block-Size Key - Hash Key First", std::string(80, '\xaa')),
      "6B1AB7FE4BD7BF8F0B62E6CE61B9D0CD");
}

TEST(Dialogue, EncryptionBeginsWhenOfferedAndForgetsWhatCameInClear) {
  SMTPSession session;
  session.tlsMode = 2;
  PeerScript script = greeting();
  script.hear("EHLO ")
      .line("250-STARTTLS")
      .line("250 ok")
      .hear("STARTTLS\r\n")
      // Whoever sits on the line adds a reply that is to count as the server's.
      .say("220 go\r\n250-AUTH PLAIN\r\n250 ok\r\n")
      .tls()
      .hear("EHLO annas-machine.local\r\n")
      .line("250 hello");
  session.run(takesMail(script));
  EXPECT_TRUE(session.success) << session.sent();
  EXPECT_THAT(session.sent(),
              HasSubstr("STARTTLS\r\n<tls mail.example.com>EHLO annas-machine.local\r\nMAIL FROM"));
}

TEST(Dialogue, ASilentServerIsTakenForOneThatWaitsForTls) {
  SMTPSession session;
  session.tlsMode = 1;
  PeerScript script;
  script.tls().line("220 now").hear("HELO ").line("250 ok");
  session.run(takesMail(script));
  EXPECT_TRUE(session.success);
  EXPECT_NEAR(session.seconds, 5, 0.01);

  SMTPSession plain;
  plain.observed = true;
  plain.run(PeerScript());
  EXPECT_NEAR(plain.seconds, 5, 0.01);
  EXPECT_THAT(plain.told,
              Contains("error 901 Connection stalled, probably wants TLS handshake, user said no "
                       "TLS"));
}

TEST(Dialogue, PortsAreTriedUntilOneTakesTheMessage) {
  SMTPSession session;
  session.observed = true;
  session.ports = "1, 2,3,4";
  session.run([](const std::string&, std::int64_t port) {
    PeerScript script;
    if (port == 1) return script.fail("Connection refused");
    if (port == 2) return script.pause(60);
    script = greeting();
    script.hear("HELO ").line("250 ok");
    // The reply to QUIT is odd and the stream breaks, yet the message was taken.
    script.hear("MAIL")
        .line("250 ok")
        .hear("RCPT")
        .line("250 ok")
        .hear("DATA")
        .line("354 go")
        .hear("\r\n.\r\n")
        .line("250 taken")
        .hear("QUIT")
        .line("250 what")
        .fail("reset by peer");
    return script;
  });
  EXPECT_TRUE(session.success);
  EXPECT_EQ(session.machine.network.transcripts.size(), 3U);
  EXPECT_NEAR(session.seconds, 10, 0.01);
  EXPECT_THAT(session.told, Contains("status 11"));
  EXPECT_THAT(session.told, Contains("status 10"));
  EXPECT_THAT(session.told, Not(Contains(StartsWith("error"))));
  EXPECT_THAT(session.log,
              ElementsAre("Stream error: Connection refused",
                          "SMTP Exception: Don't know how to act with status 8, code 250"));
}

TEST(Dialogue, ARefusedCertificateForbidsClearTextOnEveryPort) {
  SMTPSession session;
  session.tlsMode = 1;
  session.ports = "465,25";
  session.run([](const std::string&, std::int64_t port) {
    if (port == 465) return PeerScript().tls("TLS handshake failed: expired");
    PeerScript script = greeting();
    script.hear("EHLO ").line("250-AUTH PLAIN").line("250 ok");
    return takesMail(script);
  });
  EXPECT_FALSE(session.success);
  EXPECT_THAT(session.log, ElementsAre("Stream error: TLS handshake failed: expired",
                                       "SMTP Exception: Server doesn't support STARTTLS"));

  // What only breaks, or never comes, says nothing about the server.
  SMTPSession broken;
  broken.tlsMode = 1;
  broken.ports = "587,465,25";
  broken.run([](const std::string&, std::int64_t port) {
    PeerScript script = greeting();
    if (port == 465) return PeerScript();
    if (port == 587) {
      return script.hear("EHLO ")
          .line("250-STARTTLS")
          .line("250 ok")
          .hear("STARTTLS")
          .line("220 go")
          .fail("TLS handshake failed: no common cipher");
    }
    script.hear("EHLO ").line("250 ok");
    return takesMail(script);
  });
  EXPECT_TRUE(broken.success) << testing::PrintToString(broken.log);
  EXPECT_EQ(broken.log.size(), 2U);
}

TEST(Dialogue, AnObserverMayCutTheWaitAfterALongRefusal) {
  SMTPSession session;
  session.observed = true;
  session.hangsUpSoon = true;
  PeerScript script = greeting();
  script.hear("HELO ").line("550-not").pause(0.5).line("550-from").line("550 here").pause(1e6);
  session.run(script);
  EXPECT_THAT(session.told,
              testing::IsSupersetOf({"error 550 not", "error 550 from", "error 550 here"}));
  EXPECT_NEAR(session.seconds, SMTPConnector::kFarewellTimeout, 0.01);
  EXPECT_EQ(session.reason, "mail.example.com: 550 not; from; here");
}

/// How a server can fail, and what is said then.
struct Failure {
  const char* name;
  std::vector<std::string> replies;  ///< to the greeting and on; "" listens for a line
  const char* logged;
  const char* told;  ///< to an observer
};
class FailureTest : public testing::TestWithParam<Failure> {};

TEST_P(FailureTest, IsSaidInTheLogOrToTheObserver) {
  for (const bool observed : {false, true}) {
    SMTPSession session;
    session.observed = observed;
    PeerScript script;
    for (const auto& line : GetParam().replies)
      line.empty() ? script.hear("\r\n") : script.line(line);
    session.run(script.close());
    EXPECT_FALSE(session.success);
    if (observed)
      EXPECT_THAT(session.told, Contains(GetParam().told));
    else
      EXPECT_THAT(session.log, ElementsAre(GetParam().logged));
  }
}

const Failure kFailures[] = {
    {"Refusal", {"554 no"}, "SMTP Exception: Error 554: no", "error 554 no"},
    {"Login", {"220 a", "", "535 wrong"}, "Authentication failure...", "error 535 wrong"},
    {"Busy", {"421 later"}, "Connection timeout...", "error 421 later"},
    {"Words", {"hello"}, "SMTP Exception: Couldn't parse line", "error 0 Couldn't parse line"},
    {"LongGreeting",
     {"220-a", "220 b"},
     "SMTP Exception: Don't know how to act with status 1, code 220",
     "error 0 Don't know how to act with status 1, code 220"},
    {"SoftRefusal",
     {"450 wait"},
     "SMTP Exception: Don't know how to act with status 0, code 450",
     "error 0 Don't know how to act with status 0, code 450"},
};
INSTANTIATE_TEST_SUITE_P(All, FailureTest, testing::ValuesIn(kFailures),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(Bounds, NoServerHoldsASessionForEver) {
  struct Case {
    PeerScript script;
    double most;
    const char* logged;
  };
  PeerScript talkative = greeting();
  talkative.hear("\r\n");
  for (int i = 0; i < 300; ++i) talkative.line("250-" + std::string(4000, 'x'));
  const Case cases[] = {
      {greeting().hear("\r\n").pause(1e6), 310, "The server did not answer in time"},
      {PeerScript().say("2").pause(20).endlessly(), 310, "The server did not answer in time"},
      {greeting().hear("\r\n").line("250-X").pause(200).line("250-X").pause(200).line("250-X"), 310,
       "The server did not answer in time"},
      {PeerScript().say(std::string(2000, '2')).endlessly(), 1,
       "A reply of the server is too long"},
      {talkative, 310, "The server talks too much"},
      {greeting().hear("\r\n").line("535 no").pause(1e6), 40, nullptr},
  };
  for (const Case& one : cases) {
    SMTPSession session;
    session.run(one.script);
    EXPECT_LE(session.seconds, one.most) << session.sent();
    if (one.logged == nullptr) continue;
    EXPECT_THAT(session.log, Contains(std::string("SMTP Exception: ") + one.logged));
  }
  SMTPSession handshake;
  handshake.tlsMode = 2;
  handshake.run(PeerScript());
  EXPECT_NEAR(handshake.seconds, 65, 0.1);
  EXPECT_THAT(handshake.log,
              ElementsAre("SMTP Exception: The TLS handshake was not finished in time"));
}

TEST(Dialogue, TenSessionsOfOneClientAtOnceKeepApart) {
  const auto client =
      ZAN_SMTPClient::clientWithServerAddress("mail.example.com", "25", 0, "user", "secret", 1);
  auto observer = std::make_shared<SMTPClientDelegate>();
  std::atomic<int> farewells{0};
  observer->reportStatus = [&](const ZAN_SMTPClient&, std::int64_t status) {
    if (status == SMTPClientDelegate::quit) ++farewells;
  };
  client->setDelegate(observer);
  std::array<std::string, 10> sent;
  std::vector<std::thread> threads;
  for (std::string& own : sent) {
    threads.emplace_back([&client, &own, number = &own - sent.data()] {
      SimulatedPlatform machine;
      machine.network.script = [](const std::string&, std::int64_t) {
        PeerScript script = greeting();
        script.hear("EHLO ").line("250-AUTH PLAIN").line("250 ok").hear("AUTH ").line("235 fine");
        return takesMail(script);
      };
      const auto connector = client->connectorForMessage(
          machine.network, machine.clock, {"box", 101500, {}}, "number " + std::to_string(number),
          "Hi", "anna@example.com", "bob@example.com", 1);
      connector->start();
      if (connector->success()) own = machine.network.transcript();
    });
  }
  for (std::thread& thread : threads) thread.join();
  for (std::size_t i = 0; i < sent.size(); ++i)
    EXPECT_THAT(sent[i], HasSubstr(base64Of("number " + std::to_string(i)) + "\r\n.\r\n"));
  EXPECT_EQ(farewells, 10);
}

TEST(Dialogue, ASlowReaderGetsALongMessageInPieces) {
  SMTPSession session;
  session.machine.network.space = 4096;
  session.body.assign(20000, 'z');
  PeerScript script = greeting();
  script.hear("HELO ")
      .line("250 ok")
      .hear("MAIL")
      .line("250 ok")
      .hear("RCPT")
      .line("250 ok")
      .hear("DATA")
      .line("354 go");
  for (int i = 0; i < 6; ++i) script.pause(100).hear("enp6");
  script.hear("\r\n.\r\n").line("250 taken");
  session.run(script);
  EXPECT_TRUE(session.success);
}

}  // namespace
}  // namespace corvana
