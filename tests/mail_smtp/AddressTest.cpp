#include <gmock/gmock.h>

#include <stdexcept>

#include "mail/smtp/MailMessage.h"
#include "mail/smtp/MailSender.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "tests/mail_smtp/SMTPSession.h"

namespace corvana {
namespace {

using testing::ElementsAre;

TEST(Address, IsValidWhenItsPatternSaysSo) {
  for (const char* good :
       {"a@b.c", "a.b+c@sub-domain.example.com", "{x}~|!#$%&'*/=?^_`@a.b", "\"a b\"@c.de",
        "a@[127.0.0.1]", "a@[1.2.3.tag:x]", "a@[1.2.3.t-g:\\ x]", "\"\\\"\"@a.b", "a@1.2"}) {
    const bool quotedBlank = std::string(good).starts_with("\"a b");
    EXPECT_EQ(EmailAddress::validateEmail(good), !quotedBlank) << good;
  }
  for (const char* bad : {"",
                          "a",
                          "@b.c",
                          "a@",
                          "a@b",
                          "A@b.c",
                          "a@B.c",
                          ".a@b.c",
                          "a.@b.c",
                          "a..b@c.d",
                          "a@-b.c",
                          "a@b-.c",
                          "a@b..c",
                          "a@b.c.",
                          "a b@c.d",
                          "a@[256.1.1.1]",
                          "a@[1.2.3]",
                          "a@[1.2.3.-:x]",
                          "a@[1.2.3.t: x]",
                          "a@[1.2.3.t:]",
                          "\"a@b.c",
                          "\"a\"b@c.d",
                          "é@b.c",
                          "a@b.c\n",
                          "a@@b.c"})
    EXPECT_FALSE(EmailAddress::validateEmail(bad)) << bad;
  // A pattern that is tried out step by step would not come back from these.
  const std::string atoms(1 << 20, 'a');
  EXPECT_FALSE(EmailAddress::validateEmail(atoms));
  EXPECT_TRUE(EmailAddress::validateEmail(atoms + "@b.c"));
  std::string labels;
  for (int i = 0; i < 200000; ++i) labels += "a-a.";
  EXPECT_FALSE(EmailAddress::validateEmail("a@" + labels));
  EXPECT_TRUE(EmailAddress::validateEmail("a@" + labels + "c"));
}

TEST(Address, LosesTheCharacterBeforeTheBracket) {
  const auto split = [](const char* text) {
    const auto address = EmailAddress::splitAddress(text);
    return address ? address->description.value_or("-") + "|" + address->email : "none";
  };
  EXPECT_EQ(split("a@b.c"), "-|a@b.c");
  EXPECT_EQ(split("anna m <a@b.c>"), "anna m|a@b.c");
  EXPECT_EQ(split("anna<\ta@b.c >"), "ann|a@b.c");
  EXPECT_EQ(split("anné<a@b.c>"), "ann|a@b.c");
  EXPECT_EQ(split("<a@b.c>"), "-|a@b.c");
  EXPECT_EQ(split("x <a@b.c> y"), "x|a@b.c");
  for (const char* bad : {"a@b.c>", "<a@b.c", ">a@b.c<", "x <<a@b.c>", " a@b.c", "x <>", ""})
    EXPECT_EQ(split(bad), "none") << bad;
}

TEST(Client, ReadsPortsAndKeepsCredentialsOnlyWithAMethod) {
  const auto ports = [](const char* text) {
    return ZAN_SMTPClient::clientWithServerAddress("m", text, 0, "", "", 0)->ports();
  };
  EXPECT_THAT(ports(""), ElementsAre("25", "465", "587"));
  EXPECT_THAT(ports("587, 465"), ElementsAre("587", "465"));
  EXPECT_THAT(ports("587 465"), ElementsAre("587 465"));
  EXPECT_THAT(ports(" "), ElementsAre(" "));
  EXPECT_FALSE(ZAN_SMTPClient::clientWithServerAddress("m", "", 0, "u", "p", 0)->username());
  const auto client = ZAN_SMTPClient::clientWithServerAddress("m", "", 0, "u", "", 1);
  EXPECT_EQ(client->username(), "u");
  EXPECT_FALSE(client->password());
  EXPECT_THROW(ZAN_SMTPClient::clientWithServerAddress("", "", 0, "", "", 0),
               std::invalid_argument);
}

TEST(Client, SendsNothingToWhatIsNoAddress) {
  test::SMTPSession session;
  session.to = "bob@example.com, nobody";
  session.run(PeerScript());
  EXPECT_TRUE(session.machine.network.transcripts.empty());
  for (const char* injects :
       {"bob@example.com\r\nRSET", "bob@example.com\n", "\u2028bob@example.com"}) {
    session.to = injects;
    session.run(PeerScript());
    EXPECT_TRUE(session.machine.network.transcripts.empty()) << injects;
  }
  session.to = "\u00a0bob@example.com\t, <\u3000carl@example.com\r\n>\u2009";
  session.run(test::takesMail(test::greeting().hear("HELO ").line("250 hello"), 2));
  EXPECT_THAT(session.sent(), testing::HasSubstr("\r\nTo: bob@example.com, carl@example.com\r\n"));
  const auto complaint = [&](const char* from, const char* to) -> std::string {
    session.from = from;
    session.to = to;
    try {
      session.run(PeerScript());
    } catch (const std::invalid_argument& exception) {
      return exception.what();
    }
    return "";
  };
  EXPECT_EQ(complaint("", "b@c.de"), "Empty sender email address");
  EXPECT_EQ(complaint("b@c.de", ""), "Empty destination email address");
  session.machine.network.unknownHosts.insert("mail.example.com");
  EXPECT_EQ(complaint("b@c.de", "b@c.de"), "Invalid server address");

  EXPECT_EQ(ZAN_SMTPClient::message("a\nb<br>", 0, 101500), "a<br>b<br>");
  EXPECT_EQ(ZAN_SMTPClient::message("a\nb<br>", 0, 100700), "a\nb\n");
  EXPECT_EQ(ZAN_SMTPClient::message("a\nb<br>", 2, 101500), "a\nb\n");
}

TEST(WebUtils, SaysEverythingInOneBreath) {
  SimulatedPlatform machine;
  const auto send = [&](std::optional<std::string> to) {
    return ZAN_WebUtils::sendMailTo(machine.network, machine.clock, to, "a@b.c", "Hi", "x<br>y",
                                    "mail");
  };
  EXPECT_EQ(send("d@e.f"), ZAN_WebUtils::MailError::notConnected);
  machine.network.script = [](const std::string&, std::int64_t) { return PeerScript(); };
  EXPECT_EQ(send("x\r\nRSET"), std::nullopt);
  EXPECT_THAT(*machine.network.transcripts.back(), testing::HasSubstr("RCPT TO:<x  RSET>\r\n"));
  EXPECT_EQ(send("d@e.f"), std::nullopt);
  EXPECT_EQ(*machine.network.transcripts.back(),
            "<connect mail:25>HELO localhost\r\nMAIL FROM:<a@b.c>\r\nRCPT TO:<d@e.f>\r\nDATA\r\n"
            "From: a@b.c <a@b.c>\r\nTo: d@e.f\r\nContent-Type: text/plain; charset=utf-8\r\n"
            "Content-Transfer-Encoding: 8bit\r\nSubject: Hi\r\n\r\nx\ny\r\n.\r\nQUIT\r\n");
  EXPECT_THROW(send(std::nullopt), std::invalid_argument);
  machine.network.space = 10;
  EXPECT_EQ(send("d@e.f"), ZAN_WebUtils::MailError::notSent);
  machine.network.unknownHosts.insert("mail");
  EXPECT_EQ(send("d@e.f"), ZAN_WebUtils::MailError::unresolved);
}

}  // namespace
}  // namespace corvana
