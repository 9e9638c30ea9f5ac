#include <gmock/gmock.h>
#include <sys/stat.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/History.h"
#include "mail/report/EmailReport.h"
#include "mail/report/MailAccount.h"
#include "mail/report/OutgoingMail.h"
#include "mail/report/ReportPage.h"
#include "tests/core_work/WorkWorld.h"

namespace corvana {
namespace {

using testing::AllOf;
using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;
using testing::StartsWith;

constexpr double kMinute = 60, kHour = 3600, kDay = 86400;
constexpr std::uint64_t kGigabyte = 1'000'000'000;

/// The duties that mail, as an agent has them from its start to its end.
struct Agent {
  explicit Agent(Records& records)
      : sender(records.platform.clock, records.platform.runLoop, records.platform.machine,
               records.platform.processes, records.platform.systemLog, records.platform.network),
        mail(records, sender),
        report(records, mail) {
    mail.start();
    report.start();
  }
  MailSender sender;
  OutgoingMail mail;
  EmailReport report;
};

/// Tuesday 2024-01-02, 12:00 UTC, with an account that this program has set up.
class StandardReportTest : public testing::Test, public test::WorkWorld {
 protected:
  StandardReportTest() {
    set({});
    machine.network.script = [this](const std::string&, std::int64_t) {
      ++connections;
      return server;
    };
  }
  void set(std::initializer_list<std::pair<std::string_view, ZAN_Value>> more) {
    ZAN_Value all = ZAN_Value::dictionary({{"SendEmailReport", 1},
                                           {MailKey::standard, 1},
                                           {"SendReportEmailAddress", "Bob@example.com"},
                                           {"SendReportEmailSender", "Anna M <anna@example.com>"},
                                           {"SendReportEmailSMTPServer", "mail.example.com"},
                                           {"SendReportEmailSMTPServerPort", "25"}});
    for (const auto& [key, value] : more) all.setValue(key, value);
    (void)store.settings().saveMainAppSettings(all);
  }
  static PeerScript greeting() {
    return PeerScript().line("220 hi").hear("EHLO").line("250 hi").hear("MAIL FROM");
  }
  static PeerScript upToData() {
    return greeting().line("250 ok").hear("RCPT TO").line("250 ok").hear("DATA\r\n").line("354 go");
  }
  static PeerScript toItsEnd(PeerScript script) {
    return script.hear("\r\n.\r\n").line("250 taken").hear("QUIT\r\n").line("221 bye").close();
  }
  static PeerScript taking() { return toItsEnd(upToData()); }
  bool refuses = false;
  static PeerScript away() { return PeerScript().fail("Connection refused"); }

  /// What servers have heard up to the end of a message, decoded.
  struct Heard {
    std::string id, subject, text;
  };
  std::vector<Heard> heard() const {
    std::vector<Heard> mails;
    for (const auto& transcript : machine.network.transcripts) {
      const std::size_t begin = transcript->find("DATA\r\n"), end = transcript->find("\r\n.\r\n");
      if (begin == std::string::npos || end == std::string::npos) continue;
      const std::string mail = transcript->substr(begin + 6, end - begin - 6);
      const auto between = [&](const std::string& from, const std::string& to) {
        const std::size_t at = mail.find(from) + from.size();
        return mail.substr(at, mail.find(to, at) - at);
      };
      mails.push_back({between("Message-ID: ", "\r\n"), between("Subject: ", "\r\n"),
                       fromBase64(between("base64\r\n\r\n", "\r\n--")).value_or("")});
    }
    return mails;
  }
  std::vector<WaitingMail> spool() { return MailSpool(store.folder().hiddenFolderPath()).read(); }
  std::optional<ReferenceTime> delivered() {
    return preferences.prefForKey(OutgoingMail::kDelivered).asDate();
  }
  static ZAN_Value run(int ref, const std::string& title, ReferenceTime date, int code, int errors,
                       std::optional<std::uint64_t> bytes) {
    ZAN_Value entry = ZAN_Value::dictionary({{"Date", ZAN_Value::date(date)},
                                             {"EndDate", ZAN_Value::date(date + 70)},
                                             {"Title", title},
                                             {"Ref", ref},
                                             {"C", code},
                                             {"ActionErrors", errors}});
    if (bytes) {
      entry.setValue("SizeCopied", *bytes);
      entry.setValue("FilesCopied", *bytes == 0 ? 0 : 1204);
    }
    return entry;
  }
  void ran(int ref, const char* title, ReferenceTime date, int code, int errors = 0,
           std::optional<std::uint64_t> bytes = {}) {
    records.history.addHistoryEntry(run(ref, title, date, code, errors, bytes));
  }
  void logged(int ref, ReferenceTime date, int code, const char* reason) {
    actionLog.addLog(ZAN_Value::dictionary(
        {{"M", ZAN_Value::date(date)}, {"R", ref}, {"C", code}, {"F", reason}}));
  }
  ReportFacts factsSince(ReferenceTime since) { return gatherer.gather({since, now()}); }

  PeerScript server = taking();
  int connections = 0;
  ReportGatherer gatherer{store, records.history, tree, texts, strings};
};

TEST_F(StandardReportTest, ComesEveryDayAtItsTimeAlsoWhenNothingRan) {
  set({{MailKey::time, 13 * 3600}});
  Agent agent(records);
  advance(kHour - 10);
  EXPECT_EQ(connections, 0);
  advance(20);
  ASSERT_THAT(heard(), SizeIs(1));
  EXPECT_EQ(heard()[0].subject,
            "Backups of " + machine.machine.networkName() + ": nothing ran yet");
  EXPECT_THAT(heard()[0].text, HasSubstr("also when nothing ran"));
  EXPECT_NEAR(delivered().value_or(0), now(), 30);
  EXPECT_THAT(spool(), IsEmpty());
  EXPECT_THAT(notices(), IsEmpty()) << "success is silent";
  advance(2 * kDay);
  EXPECT_THAT(heard(), SizeIs(3));
  // Mondays only: the next is the 8th.
  set({{MailKey::time, 13 * 3600}, {MailKey::frequency, MailKey::kOnMondays}});
  advance(3 * kDay);
  EXPECT_THAT(heard(), SizeIs(3));
  advance(kDay);
  EXPECT_THAT(heard(), SizeIs(4));
  // After failures only.
  set({{MailKey::time, 13 * 3600}, {MailKey::frequency, MailKey::kAfterFailures}});
  ran(1, "Fine", now() + kHour, LogCode::completed);
  ZAN_Value lacks = run(3, "Home", now() + kHour, LogCode::completedWithErrors, 2, 0);
  lacks.setValue(RunKey::onlyLacks, 1);
  records.history.addHistoryEntry(lacks);
  advance(kDay);
  EXPECT_THAT(heard(), SizeIs(4)) << "what cannot be copied is no failure";
  ran(2, "Bad", now() - kHour, LogCode::timeOut);
  advance(kDay);
  ASSERT_THAT(heard(), SizeIs(5));
  EXPECT_THAT(heard()[4].text, HasSubstr("Bad: took too long"));
}

TEST_F(StandardReportTest, AServerThatIsAwayForADayGetsEverythingInTheEnd) {
  set({{MailKey::time, 12 * 3600 + 1800}});
  server = away();
  ran(7, "Photos", now() - kHour, LogCode::completed);
  Agent agent(records);
  // The report of 12:30, tried again after 5, 30 and 120 minutes and then every 6 hours.
  advance(1800 + 10);
  EXPECT_EQ(connections, 1);
  EXPECT_THAT(notices(), ElementsAre(AllOf(HasSubstr("could not be sent: mail.example.com: "
                                                     "Connection refused"),
                                           HasSubstr("tried again: 1/2/24 12:35 PM"))));
  EXPECT_EQ(state.mErrorInExecution, LogCode::message);
  ASSERT_THAT(spool(), SizeIs(1));
  struct stat status {};
  const std::string file = store.folder().hiddenFolderPath() + "/Mail/" + spool()[0].name;
  ASSERT_EQ(::stat(file.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0777U, 0600U);
  for (const auto& [after, tries] : {std::pair{4 * kMinute, 1},
                                     {6 * kMinute, 2},
                                     {29 * kMinute, 3},
                                     {115 * kMinute, 3},
                                     {2 * kMinute, 4},
                                     {5.9 * kHour, 4},
                                     {0.2 * kHour, 5}}) {
    advance(after);
    EXPECT_EQ(connections, tries) << after;
  }
  EXPECT_THAT(notices(), SizeIs(1)) << "one cause is said once";
  const ReferenceTime second = SimulatedPlatform::kFirstDate + 1800 + kDay;
  advance(second + 60 - now());
  EXPECT_THAT(spool(), SizeIs(2));
  EXPECT_EQ(delivered(), std::nullopt);
  server = taking();
  advance(301);
  ASSERT_THAT(heard(), SizeIs(2)) << "once it is back it gets all that waits";
  EXPECT_THAT(heard()[0].text + heard()[1].text,
              AllOf(HasSubstr("Photos, 1 run"), HasSubstr("nothing ran since yesterday")));
  EXPECT_NE(heard()[0].id, heard()[1].id);
  EXPECT_NEAR(delivered().value_or(0), second, 30);
  EXPECT_THAT(spool(), IsEmpty());
  EXPECT_TRUE(preferences.prefForKey(OutgoingMail::kLastFailure).isNull());
}

TEST_F(StandardReportTest, WhatCannotBeDeliveredIsGivenUpAloudAndToldAgain) {
  set({{MailKey::frequency, MailKey::kAfterFailures}});
  server = away();
  ran(7, "Photos", now() - kHour, LogCode::timeOut);
  Agent agent(records);
  agent.report.sendEmailReport(true);
  advance(60);
  advance(2.8 * kDay);
  EXPECT_EQ(connections, 14);
  ASSERT_FALSE(spool()[0].givenUp);
  advance(0.3 * kDay);
  ASSERT_TRUE(spool()[0].givenUp);
  EXPECT_EQ(spool()[0].attempts, OutgoingMail::kMostAttempts);
  EXPECT_THAT(notices(), Contains(HasSubstr("is not tried any more")));
  // The next one tells of the same days.
  server = taking();
  agent.report.sendEmailReport(true);
  advance(10);
  EXPECT_THAT(heard().back().text, HasSubstr("Photos: took too long"));
}

TEST_F(StandardReportTest, WhatTheUserDropsIsNotSent) {
  server = away();
  Agent agent(records);
  agent.report.sendEmailReport(true);
  advance(10);
  ASSERT_THAT(spool(), SizeIs(1));
  ASSERT_TRUE(MailSpool(store.folder().hiddenFolderPath()).remove(spool()[0]));
  server = taking();
  advance(kHour);
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_THAT(spool(), IsEmpty());
}

TEST(FinishedMail, NeedsASenderAndSomebodyWhoGetsIt) {
  const auto isMade = [](const char* sender, const char* recipients) {
    MailSettings settings;
    settings.sender = sender;
    settings.recipients = recipients;
    return bool(finishedMail(settings, Letter{}, 0, ZAN_DateUtils("UTC", "C")));
  };
  EXPECT_TRUE(isMade("ann@example.org", "bob@example.org, eve@example.org"));
  EXPECT_FALSE(isMade("ann@", "bob@example.org"));
  EXPECT_FALSE(isMade("ann@example.org", "bob@example.org, eve@"));
}

TEST_F(StandardReportTest, OneRefusedRecipientIsNamedAndTheOthersHaveTheMail) {
  set({{"SendReportEmailAddress", "bob@example.com, eve@example.com, late@example.com"}});
  server = toItsEnd(greeting()
                        .line("250 ok")
                        .hear("bob@")
                        .line("250 ok")
                        .hear("eve@")
                        .line("550 no such user")
                        .hear("late@")
                        .line("451 greylisted")
                        .hear("DATA\r\n")
                        .line("354 go"));
  Agent agent(records);
  agent.report.sendEmailReport(true);
  advance(10);
  EXPECT_THAT(notices(), ElementsAre(HasSubstr("but not to eve@example.com: 550 no such user")));
  ASSERT_THAT(spool(), SizeIs(1));
  EXPECT_THAT(spool()[0].mail.recipients, ElementsAre("late@example.com"));
  EXPECT_TRUE(delivered());
  server = taking();
  advance(301);
  EXPECT_THAT(spool(), IsEmpty());
  EXPECT_THAT(machine.network.transcript(), HasSubstr("RCPT TO:<late@example.com>\r\nDATA\r\n"));
  ASSERT_THAT(heard(), SizeIs(2));
  EXPECT_EQ(heard()[0].id, heard()[1].id);
}

/// The power fails at every step of a delivery: at each writing of a file, before it and behind it.
/// What is on disk then is all that the next start knows.
TEST_F(StandardReportTest, CutOffAnywhereItArrivesOnceOrTwiceUnderOneId) {
  const std::string hidden = records.store.folder().hiddenFolderPath();
  const MailSpool disk(hidden);
  int twice = 0;
  std::vector<std::unique_ptr<Agent>> agents;
  // What the disk holds at each step of a delivery that goes well; `says`: whether the server had
  // the mail by then.
  struct Moment {
    WaitingMail onDisk;
    bool serverHasIt;
  };
  WaitingMail queued = WaitingMail::made(
      {"anna@example.com", {"bob@example.com"}, "Message-ID: <1@x>\r\n\r\nhi\r\n"}, "Report",
      now());
  queued.report = ReportPeriod{now() - kDay, now()};
  WaitingMail tried = queued, begun, taken;
  tried.attempts = 1;
  begun = tried;
  begun.isDoubtful = true;
  taken = begun;
  taken.noteTaken({}, now());
  for (const Moment& moment :
       {Moment{queued, false}, {tried, false}, {begun, false}, {begun, true}, {taken, true}}) {
    ASSERT_TRUE(disk.write(moment.onDisk));
    preferences.setPref(OutgoingMail::kDelivered, {});
    machine.network.transcripts.clear();
    const std::size_t before = actionLog.readLogList().size();
    // Their timers live as long as the loop; what one has delivered does not wait for the next.
    agents.push_back(std::make_unique<Agent>(records));
    advance(120);
    const auto count = static_cast<int>(heard().size()) + (moment.serverHasIt ? 1 : 0);
    EXPECT_GE(count, 1);
    EXPECT_LE(count, 2);
    if (count == 2) {
      ++twice;
      EXPECT_EQ(heard()[0].id, "<1@x>");
    }
    EXPECT_EQ(delivered(), queued.report->until) << "whichever end, it is known";
    EXPECT_THAT(spool(), IsEmpty());
    if (moment.onDisk.isDoubtful)
      EXPECT_THAT(actionLog.readLogList().at(before).string("N"), HasSubstr("may arrive twice"));
    else
      EXPECT_EQ(actionLog.readLogList().size(), before);
  }
  EXPECT_EQ(twice, 1);
}

/// The same on the way: the connection breaks after the last byte.
TEST_F(StandardReportTest, ABrokenConnectionAfterTheLastByteIsSaid) {
  server = upToData().hear("\r\n.\r\n").close();
  Agent agent(records);
  agent.report.sendEmailReport(true);
  advance(10);
  ASSERT_THAT(spool(), SizeIs(1));
  EXPECT_TRUE(spool()[0].isDoubtful);
  server = taking();
  advance(301);
  ASSERT_THAT(heard(), SizeIs(2));
  EXPECT_EQ(heard()[0].id, heard()[1].id);
  bool isSaid = false;
  for (const ZAN_Value& entry : actionLog.readLogList().elements())
    isSaid = isSaid || entry.string("N").find("may arrive twice") != std::string::npos;
  EXPECT_TRUE(isSaid);
}

TEST_F(StandardReportTest, ATestFindsTheServerThatIsMeant) {
  set({{"SendReportEmailSMTPServer", ""}, {"SendReportEmailSMTPServerPort", ""}});
  std::vector<std::string> asked;
  machine.network.script = [&](const std::string& host, std::int64_t port) {
    asked.push_back(host + ":" + std::to_string(port));
    if (asked.back() != "mail.example.com:587") return away();
    return toItsEnd(PeerScript()
                        .line("220 hi")
                        .hear("EHLO")
                        .line("250-hi")
                        .line("250 STARTTLS")
                        .hear("STARTTLS")
                        .line("220 go")
                        .tls()
                        .hear("EHLO")
                        .line("250 hi")
                        .hear("MAIL FROM")
                        .line(refuses ? "550 not from you" : "250 ok")
                        .hear("RCPT TO")
                        .line("250 ok")
                        .hear("DATA\r\n")
                        .line("354 go"));
  };
  Agent agent(records);
  MailAccount account(records, agent.sender);
  const auto tested = [&] {
    asked.clear();
    account.test();
    machine.runLoop.runFor(kMinute);
    return account.testResult();
  };
  refuses = true;
  EXPECT_THAT(tested(), HasSubstr("mail.example.com:587 (starttls): "));
  EXPECT_THAT(account.testResult(), HasSubstr("not from you"));
  const std::vector<std::string> inOrder{"smtp.example.com:465", "mail.example.com:465",
                                         "example.com:465", "smtp.example.com:587",
                                         "mail.example.com:587"};
  EXPECT_EQ(asked, inOrder) << "the first that answers is the right one";
  const auto setServer = [&] {
    const ZAN_Value settings = store.settings().mainAppSettings();
    return settings.string("SendReportEmailSMTPServer") + ":" +
           settings.string("SendReportEmailSMTPServerPort") + " " +
           std::to_string(settings.integer(MailKey::security));
  };
  EXPECT_EQ(setServer(), ": 0");
  refuses = false;
  EXPECT_THAT(tested(), HasSubstr("taken by mail.example.com:587 (starttls)"));
  EXPECT_EQ(setServer(), "mail.example.com:587 1");
  tested();
  EXPECT_THAT(asked, ElementsAre("mail.example.com:587"));
  set({{"SendReportEmailSMTPServer", "mail.example.com"},
       {"SendReportEmailSMTPServerPort", ""},
       {MailKey::security, MailKey::kTlsFromTheStart}});
  EXPECT_THAT(tested(), HasSubstr("taken by"));
  EXPECT_THAT(asked, ElementsAre("mail.example.com:465", "mail.example.com:587"));
  EXPECT_EQ(setServer(), "mail.example.com:587 1");
}

TEST_F(StandardReportTest, ThePageBeginsWithWhatNeedsAttention) {
  const ReferenceTime since = now() - 2 * kDay;
  setActions({automatic(5, 20,
                        {{"Title", "Letters"},
                         {"TriggerScheduleMinutes", 60},
                         {"TriggerAgeAlarm", 1},
                         {"LastExecutionDate", ZAN_Value::date(now() - 4 * kDay)}}),
              automatic(6, 1,
                        {{"Title", "Music"},
                         {"TriggerScheduleTime", ZAN_Value::date(now() + 2 * kHour)},
                         {"LastScheduleDate", ZAN_Value::date(now() - kHour)}})});
  ran(1, "Photos <Summer & more>", since - kDay, LogCode::completed);
  ran(1, "Photos <Summer & more>", since + kHour, LogCode::volumeNotFound);
  ran(1, "Photos <Summer & more>", now() - kHour, LogCode::volumeNotFound);
  logged(1, now() - kHour + 71, LogCode::volumeNotFound, "the disk “Attic” is not connected");
  ran(2, "Documents", now() - 3 * kHour, LogCode::completedWithErrors, 3, 41'000'000);
  ran(2, "Documents", now() - 2 * kHour, LogCode::completed, 0, 0);
  for (int i = 0; i < 11; ++i)
    ran(3, "Projects", now() - kDay - i * kMinute, LogCode::completed, 0, i < 2 ? 1'000'000 : 0);
  ran(4, "Stopped", now() - 5 * kHour, LogCode::abortedByUser);
  for (const int ref : {7, 8}) {
    ZAN_Value lacks = run(ref, ref == 7 ? "Home" : "Since left out", now() - ref * kHour,
                          LogCode::completedWithErrors, 2, 0);
    lacks.setValue(RunKey::onlyLacks, 1);
    records.history.addHistoryEntry(lacks);
  }
  ran(8, "Since left out", now() - kHour, LogCode::completed, 0, 0);
  const auto facts = factsSince(since);
  EXPECT_EQ(facts.failed, 2);
  EXPECT_EQ(facts.completed, 15);
  const ReportPage page(facts, gatherer, texts, strings);
  EXPECT_EQ(page.subject(), "Backups of " + machine.machine.networkName() +
                                ": 2 failed, 1 overdue, 1 with errors, 15 completed");
  EXPECT_THAT(page.text(), HasSubstr("\n* Photos <Summer & more>: a disk or folder was not there\n"
                                     "  the disk “Attic” is not connected. So it went 2 times. "
                                     "Last success: Saturday at 12:00 PM. Connect the disk;"));
  EXPECT_THAT(page.text(), HasSubstr("\n* Letters: has not run for too long\n  Last success: "
                                     "Friday at 12:00 PM. “corvana9 why 5” says"));
  EXPECT_THAT(page.text(), HasSubstr("\n* Documents: 3 files could not be copied\n  Last success: "
                                     "today at 10:00 AM. It has run well since."));
  EXPECT_LT(page.text().find("* Photos"), page.text().find("* Letters"));
  EXPECT_LT(page.text().find("* Letters"), page.text().find("* Documents"));
  EXPECT_THAT(page.text(), HasSubstr("\n* Home: 2 items cannot be copied\n  Everything else is"));
  EXPECT_LT(page.text().find("* Documents"), page.text().find("* Home"));
  EXPECT_THAT(page.text(), Not(HasSubstr("* Since left out")));
  EXPECT_THAT(page.text(), HasSubstr("\n  Projects, 11 runs, nothing new in 9, 2 MB, 0:12:50\n"));
  EXPECT_THAT(page.text(), HasSubstr("\n  Music, Today at 2:00 PM\n"));
  EXPECT_THAT(page.text(), HasSubstr("\n  Stopped: stopped by the user today at 7:00 AM\n"));
  const std::string html = page.html();
  EXPECT_THAT(html, HasSubstr("<b>Photos &lt;Summer &amp; more&gt;: a disk"));
  for (const char* loaded : {"src=", "href=", "url(", "http", "<script"})
    EXPECT_THAT(html, Not(HasSubstr(loaded)));
}

TEST_F(StandardReportTest, DisksThatFillAreShownWithTheirDay) {
  const auto volume = [&](const std::string& name, std::uint64_t size, double free, double perDay) {
    std::vector<ZAN_Value> hours;
    for (int day = 20; day >= 0; --day) {
      const auto bytes = static_cast<std::uint64_t>((free - day * perDay) * 1e9);
      hours.push_back(ZAN_Value::dictionary(
          {{"D",
            ZAN_Value::unsignedInteger(static_cast<std::uint64_t>(now() - day * kDay - kHour))},
           {"E", ZAN_Value::unsignedInteger(bytes)}}));
    }
    return ZAN_Value::dictionary(
        {{"VolumeFolderName", name},
         {"VolumeFolderVolumeSize", ZAN_Value::unsignedInteger(size)},
         {"VolumeFreeSizeList", ZAN_Value::data(ZAN_Archiver::archivedDataWithRootObject(
                                    ZAN_Value::array(std::move(hours))))}});
  };
  (void)store.files().writeListToFile(
      ZAN_Value::array({volume("Backup disk", 1000 * kGigabyte, 391, 0),
                        volume("NAS", 500 * kGigabyte, 22, -2),
                        volume("Slow", 500 * kGigabyte, 200, -1)}),
      "Corvana 9 Volumes Info.cva9data");
  const auto facts = factsSince(now() - kDay);
  const ReportPage page(facts, gatherer, texts, strings);
  EXPECT_THAT(page.text(), HasSubstr("\nRoom\n  NAS, 22 GB free, full around 1/13/24\n"
                                     "  Backup disk, 391 GB free\n  Slow, 200 GB free\n"));
  EXPECT_THAT(page.html(), HasSubstr("<div class=\"bar tight\"><div style=\"width:96%\">"));
}

TEST_F(StandardReportTest, AThousandRunsStayShortWithFailuresOnTop) {
  ZAN_Value list = records.history.getProgrammedHistoryList();
  for (int i = 0; i < 1000; ++i) {
    const std::string title = "Action “" + std::to_string(i % 400) + "” " + std::string(60, 'x');
    list.append(run(i % 400 + 1, title, now() - 30000 + i * 20,
                    i % 10 == 0 ? LogCode::crashed : LogCode::completed, 0, 1000));
  }
  (void)store.files().writeListToFile(list, DataFolder::kHistory);
  Agent agent(records);
  agent.report.sendEmailReport(true);
  advance(10);
  ASSERT_THAT(heard(), SizeIs(1));
  EXPECT_LT(machine.network.transcript().size(), 100'000U);
  EXPECT_THAT(heard()[0].subject, HasSubstr("100 failed, 900 completed"));
  EXPECT_LT(heard()[0].text.find("ended unexpectedly"), heard()[0].text.find("What ran"));
}

}  // namespace
}  // namespace corvana
