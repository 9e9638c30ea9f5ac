#include <gmock/gmock.h>

#include "mail/smtp/MailMessage.h"
#include "tests/mail_smtp/SMTPSession.h"

namespace corvana {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

/// A finished message sent to a scripted server in virtual time.
struct FinishedSession {
  void run(const PeerScript& script) {
    machine.network.script = [&](const std::string&, std::int64_t) { return script; };
    const auto client = ZAN_SMTPClient::clientWithServerAddress("mail.example.com", ports, tlsMode,
                                                                "user", "secret", method);
    SMTPMessage message{
        true, "Subject: Hi\r\n\r\n.\r\n..x\r\nend\r\n", {}, {"Anna@example.com", {}}, {}};
    for (const char* recipient : {"bob@example.com", "Carl@example.com"})
      message.to.push_back({recipient, {}});
    SMTPConnector connector(
        client, machine.network, machine.clock,
        {"annas-machine", 101500, [this](const std::string& line) { log.push_back(line); }},
        message);
    connector.onBodyBegins = [this]() -> Outcome {
      steps.push_back("body");
      if (mayNotBegin) return Error{ErrorKind::unwritable, "the disk is full"};
      return {};
    };
    connector.onTaken = [this] { steps.push_back("taken"); };
    const double begin = machine.clock.monotonic();
    connector.start();
    seconds = machine.clock.monotonic() - begin;
    success = connector.success();
    isDoubtful = connector.isDoubtful();
    if (!success) reason = connector.outcome().error().text;
    for (const auto& refusal : connector.refusals())
      refused.push_back(refusal.address + (refusal.isForGood ? " never " : " later ") +
                        refusal.reason);
  }
  std::string sent() const { return machine.network.transcript(); }

  SimulatedPlatform machine;
  std::string ports = "587";
  std::int64_t tlsMode = 0, method = 0;
  bool mayNotBegin = false;
  std::vector<std::string> log, steps, refused;
  std::string reason;
  bool success = false, isDoubtful = false;
  double seconds = 0;
};

PeerScript hello(const std::string& extensions = "250-mail.example.com\r\n250 SIZE 1000000") {
  return PeerScript()
      .line("220-mail.example.com\r\n220 at your service")
      .hear("EHLO annas-machine.local\r\n")
      .line(extensions);
}
PeerScript& takesAll(PeerScript& script) {
  return script.hear("MAIL FROM:<Anna@example.com>\r\n")
      .line("250 ok")
      .hear("RCPT TO:<bob@example.com>\r\n")
      .line("250 ok")
      .hear("RCPT TO:<Carl@example.com>\r\n")
      .line("251 is elsewhere")
      .hear("DATA\r\n")
      .line("354 go on")
      .hear("\r\n\r\n..\r\n...x\r\nend\r\n.\r\n")
      .line("250-ok\r\n250 taken")
      .hear("QUIT\r\n")
      .line("221 bye")
      .close();
}

TEST(FinishedMessage, GoesOutByTheStandard) {
  FinishedSession session;
  PeerScript script = hello();
  session.run(takesAll(script));
  EXPECT_TRUE(session.success) << session.reason << session.sent();
  EXPECT_THAT(session.steps, ElementsAre("body", "taken"));
  EXPECT_THAT(session.refused, IsEmpty());
}

TEST(FinishedMessage, EncryptionIsAsSetAndBegunAfresh) {
  FinishedSession silent;
  silent.tlsMode = ZAN_SMTPClient::kTlsFromTheStart;
  PeerScript implicit;
  implicit.tls().line("220 hi").hear("EHLO annas-machine.local\r\n").line("250 ok");
  silent.run(takesAll(implicit));
  EXPECT_TRUE(silent.success) << silent.reason;
  EXPECT_LT(silent.seconds, 1);
  EXPECT_THAT(silent.sent(),
              StartsWith("<connect mail.example.com:587><tls mail.example.com>EHLO"));

  // Words put in the server's mouth while the line was clear: neither the reply to EHLO nor what it
  // offers counts.
  FinishedSession injected;
  injected.tlsMode = 2;
  injected.method = 1;
  PeerScript script = hello("250-mail\r\n250-AUTH PLAIN\r\n250 STARTTLS");
  script.hear("STARTTLS\r\n")
      .say("220 go\r\n250-x\r\n250 AUTH LOGIN\r\n")
      .tls()
      .hear("EHLO annas-machine.local\r\n")
      .line("250-mail\r\n250 auth cram-md5")
      .hear("AUTH ");
  script.close();
  injected.run(script);
  EXPECT_THAT(injected.sent(), EndsWith("AUTH CRAM-MD5\r\n"));

  FinishedSession none;
  none.tlsMode = 2;
  none.run(hello().hear("QUIT\r\n").line("221 bye").close());
  EXPECT_THAT(none.reason, HasSubstr("the server offers no encryption (STARTTLS)"));
}

TEST(FinishedMessage, LogsInByTheBestWayThatTheServerOffers) {
  struct Way {
    std::int64_t method;
    const char* offers;
    std::vector<std::string> prompts;
    const char* said;
  };
  // The challenge is that of RFC 2195; its answer was computed by another program.
  for (const Way& way :
       {Way{1,
            "AUTH LOGIN",
            {"334 VXNlciBOYW1lAA==", "334 UGFzc3dvcmQA"},
            "AUTH LOGIN\r\ndXNlcg==\r\nc2VjcmV0\r\n"},
        Way{1, "AUTH PLAIN LOGIN", {}, "AUTH PLAIN AHVzZXIAc2VjcmV0\r\n"},
        Way{2,
            "AUTH PLAIN CRAM-MD5 LOGIN",
            {"334 PDE4OTYuNjk3MTcwOTUyQHBvc3RvZmZpY2UucmVzdG9uLm1jaS5uZXQ+"},
            "AUTH CRAM-MD5\r\ndXNlciA3MzNiYTg3ZTY0ZWQ3ZTQ0MWYwNjJjNGFjNmRiMDEwMw==\r\n"}}) {
    FinishedSession session;
    session.method = way.method;
    PeerScript script = hello(std::string("250-mail\r\n250 ") + way.offers);
    for (const auto& prompt : way.prompts) script.hear("\r\n").line(prompt);
    script.hear("\r\n").line("535 5.7.8 wrong").hear("QUIT\r\n").close();
    session.run(script);
    EXPECT_THAT(session.sent(), EndsWith(std::string(way.said) + "QUIT\r\n"));
    EXPECT_THAT(session.reason, HasSubstr("logging in as user: 535 5.7.8 wrong"));
  }
}

TEST(FinishedMessage, ARefusedRecipientDoesNotKeepItFromTheOthers) {
  FinishedSession session;
  PeerScript script = hello();
  script.hear("MAIL FROM:<Anna@example.com>\r\n")
      .line("250 ok")
      .hear("<bob@example.com>\r\n")
      .line("550-No such user\r\n550 here")
      .hear("<Carl@example.com>\r\n")
      .line("250 ok")
      .hear("DATA\r\n")
      .line("354 go on")
      .hear("\r\n.\r\n")
      .line("250 ok")
      .hear("QUIT\r\n")
      .line("221 bye")
      .close();
  session.run(script);
  EXPECT_TRUE(session.success);
  EXPECT_THAT(session.refused, ElementsAre("bob@example.com never 550 No such user here"));

  FinishedSession nobody;
  nobody.ports = "587,25";
  PeerScript refuses = hello();
  refuses.hear("MAIL FROM:<Anna@example.com>\r\n")
      .line("250 ok")
      .hear("<bob@example.com>\r\n")
      .line("450 later")
      .hear("<Carl@example.com>\r\n")
      .line("550 no")
      .hear("QUIT\r\n")
      .line("221 bye")
      .close();
  nobody.run(refuses);
  EXPECT_FALSE(nobody.success);
  EXPECT_THAT(nobody.refused,
              ElementsAre("bob@example.com later 450 later", "Carl@example.com never 550 no"));
  EXPECT_EQ(nobody.machine.network.transcripts.size(), 1U) << "it was answered";
  EXPECT_THAT(nobody.steps, IsEmpty());
}

/// What is known of a message when the session broke off.
TEST(FinishedMessage, WhetherItMayHaveBeenTakenIsKnown) {
  const auto upToData = [] {
    PeerScript script = hello();
    script.hear("MAIL FROM:")
        .line("250 ok")
        .hear("RCPT TO:")
        .line("250 ok")
        .hear("RCPT TO:")
        .line("250 ok")
        .hear("DATA\r\n");
    return script;
  };
  FinishedSession cutOff, refused, never, unnoted;
  cutOff.run(upToData().line("354 go on").hear("\r\n.\r\n").close());
  EXPECT_TRUE(cutOff.isDoubtful);
  EXPECT_FALSE(cutOff.success);
  refused.run(
      upToData().line("354 go on").hear("\r\n.\r\n").line("554 spam").hear("QUIT\r\n").close());
  EXPECT_FALSE(refused.isDoubtful);
  EXPECT_THAT(refused.reason, EndsWith("554 spam"));
  never.run(upToData().close());
  EXPECT_FALSE(never.isDoubtful);
  EXPECT_THAT(never.steps, IsEmpty());
  unnoted.mayNotBegin = true;
  unnoted.run(upToData().line("354 go on").hear("\r\n.\r\n").line("250 taken"));
  EXPECT_FALSE(unnoted.isDoubtful);
  EXPECT_THAT(unnoted.sent(), EndsWith("DATA\r\n")) << "nothing goes out that is not noted first";
  EXPECT_THAT(unnoted.reason, HasSubstr("the disk is full"));
}

TEST(FinishedMessage, IsWrittenByTheStandards) {
  MailMessage message;
  message.from = {"Anna@example.com", "Müller, Anna"};
  message.to = {{"bob@example.com", "Bob \"the\" Builder"}, {"carl@example.com", {}}};
  message.subject = "Sicherungen von „workstation“: 2 fehlgeschlagen, 14 abgeschlossen\nBcc: x@y.z";
  message.text = std::string(100, 'x') + "\n.\nümlaut\n";
  message.html = "<p>ü</p>";
  message.date = 725889600 + 0.5;
  message.utcOffset = -9000;
  message.messageId = "<1@example.com>";
  const std::string text = message.wireForm();
  EXPECT_THAT(text,
              StartsWith("From: =?UTF-8?B?TcO8bGxlciwgQW5uYQ==?= <Anna@example.com>\r\n"
                         "To: \"Bob \\\"the\\\" Builder\" <bob@example.com>, carl@example.com\r\n"
                         "Subject: =?UTF-8?B?"));
  EXPECT_THAT(text, HasSubstr("\r\nDate: Tue, 02 Jan 2024 09:30:00 -0230\r\n"
                              "Message-ID: <1@example.com>\r\n"));
  EXPECT_THAT(text, Not(HasSubstr("\r\nBcc")));
  for (std::size_t at = 0, end = 0; (end = text.find('\n', at)) != std::string::npos;
       at = end + 1) {
    EXPECT_EQ(text[end - 1], '\r');
    EXPECT_LE(end - at, 78U) << text.substr(at, end - at);
  }
}

TEST(FinishedMessage, AddressesAreReadAsMailProgramsWriteThem) {
  const auto list = EmailAddress::list(
      " \"Müller, Anna\" <Anna@Example.com>,bob@example.com , Carl<carl@example.com>");
  ASSERT_TRUE(list) << list.error().text;
  ASSERT_EQ(list->size(), 3U);
  EXPECT_EQ((*list)[0].description, "Müller, Anna");
  EXPECT_EQ((*list)[0].email, "Anna@Example.com");
  EXPECT_EQ((*list)[1].description, std::nullopt);
  EXPECT_EQ((*list)[2].description, "Carl");
  EXPECT_EQ(EmailAddress::list("a@b.c, nobody\n").error().text, "nobody: not an e-mail address");
  EXPECT_FALSE(EmailAddress::list("a@b.c,"));
  EXPECT_FALSE(EmailAddress::list(""));
}

}  // namespace
}  // namespace corvana
