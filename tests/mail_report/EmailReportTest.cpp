#include "mail/report/EmailReport.h"

#include <gmock/gmock.h>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/History.h"
#include "mail/report/OutgoingMail.h"
#include "tests/core_work/WorkWorld.h"
#include "tests/support/RecordingMail.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

constexpr std::uint64_t kGigabyte = 1'000'000'000;
constexpr double kDay = 86400;

/// Tuesday 2024-01-02, 12:00 UTC; the last report was on Monday at that time.
class EmailReportTest : public testing::Test, public test::WorkWorld {
 protected:
  EmailReportTest() {
    set({});
    preferences.setPref("DateOfLastReportSentByEmail", ZAN_Value::date(last));
    writeReport(last, "first line\nsecond line\n");
  }

  /// Settings over the usual ones.
  void set(std::initializer_list<std::pair<std::string_view, ZAN_Value>> more) {
    ZAN_Value all = ZAN_Value::dictionary(
        {{"SendEmailReport", 1},
         {"SendReportEmailAddress", "bob@example.com"},
         {"SendReportEmailSender", "Anna <anna@example.com>"},
         {"SendReportEmailSMTPServer", "mail.example.com"},
         {"SendReportEmailSMTPServerPort", "587"},
         {"SendReportEmailSMTPServerLogin", "anna"},
         {"SendReportEmailSMTPServerPassword", SettingsFiles::compressPassword("secret")},
         {"SendReportEmailSMTPServerAuthMethod", 2},
         {"SendReportEmailSMTPServerUseTLSCB", 1},
         {"SendReportEmailCRMode", 1}});
    for (const auto& [key, value] : more) all.setValue(key, value);
    (void)store.settings().saveMainAppSettings(all);
  }
  void writeReport(ReferenceTime day, const std::string& text) {
    const std::string path = store.texts().reportFileNameForDate(day);
    machine.folder.write(path.substr(machine.folder.path().size() + 1), text);
  }
  void executed(ReferenceTime date, int errors, int code) {
    history.addHistoryEntry(ZAN_Value::dictionary(
        {{"Date", ZAN_Value::date(date)}, {"Title", "A"}, {"ActionErrors", errors}, {"C", code}}));
  }
  struct Hour {
    double age;  ///< days
    std::uint64_t low, high;
  };
  ZAN_Value volume(const std::string& name, std::uint64_t size, std::vector<Hour> hours) {
    std::vector<ZAN_Value> records;
    for (const Hour& hour : hours) {
      records.push_back(ZAN_Value::dictionary(
          {{"D", ZAN_Value::unsignedInteger(static_cast<std::uint64_t>(now() - hour.age * kDay))},
           {"L", ZAN_Value::unsignedInteger(hour.low)},
           {"H", ZAN_Value::unsignedInteger(hour.high)}}));
    }
    const auto bytes =
        ZAN_Archiver::archivedDataWithRootObject(ZAN_Value::array(std::move(records)));
    return ZAN_Value::dictionary({{"VolumeFolderName", name},
                                  {"VolumeFolderVolumeSize", ZAN_Value::unsignedInteger(size)},
                                  {"VolumeFreeSizeList", ZAN_Value::data(bytes)}});
  }
  std::string kept() {
    const auto file = ZAN_FilesUtils::readFile(store.texts().reportEmailFileNameForDate(now()));
    return file ? file->bytes : "";
  }
  ReferenceTime lastDate() {
    return preferences.prefForKey("DateOfLastReportSentByEmail").asDate().value_or(0);
  }

  const ReferenceTime last = now() - kDay;
  History& history = records.history;
  test::RecordingMail mail{machine.clock,     machine.runLoop,   machine.machine,
                           machine.processes, machine.systemLog, machine.network};
  OutgoingMail outgoing{records, mail};
  EmailReport report{records, outgoing};
};

TEST_F(EmailReportTest, TellsWhatHappenedSinceTheLastOne) {
  executed(last - 1, 5, 5);
  executed(last, 0, 2);
  executed(last + 60, 3, 14);
  executed(last + 120, 0, 6);
  const std::uint64_t size = 100 * kGigabyte;
  (void)store.files().writeListToFile(
      ZAN_Value::array({
          volume("Disk", size,
                 {{9, kGigabyte, 99 * kGigabyte},
                  {6, 30 * kGigabyte, 60 * kGigabyte},
                  {0.6, 41 * kGigabyte, 50 * kGigabyte},
                  {0.5, 40 * kGigabyte, 45 * kGigabyte}}),
          volume("Full", size,
                 {{3, 10 * kGigabyte, 20 * kGigabyte},
                  {2, 11 * kGigabyte, 20 * kGigabyte},
                  {1.5, 12 * kGigabyte, 20 * kGigabyte},
                  {0.5, 12 * kGigabyte, 20 * kGigabyte}}),
          volume("Three", size, {{0.3, 1, 1}, {0.2, 1, 1}, {0.1, 1, 1}}),
          volume("Unseen", size, {{5, 1, 1}, {4, 1, 1}, {3, 1, 1}, {2, 1, 1}}),
          volume("Nothing", 0, {{0.4, 1, 1}, {0.3, 1, 1}, {0.2, 1, 1}, {0.1, 1, 1}}),
      }),
      "Corvana 9 Volumes Info.cva9data");
  report.start();
  advance(299);
  EXPECT_THAT(mail.sent, IsEmpty());
  advance(2);
  ASSERT_EQ(mail.sent.size(), 1U);
  const auto& sent = mail.sent[0];
  EXPECT_EQ(sent.subject, "Corvana 9: report for anna since 1/1/24, with errors");
  EXPECT_EQ(sent.body,
            "Report of Corvana 9 (version 9.0.0)\n"
            "Written: 1/2/24 12:05 PM\n"
            "Last report: 1/1/24 12:00 PM\n\n"
            "Actions executed since the last report: 3\n"
            "With errors: 1\n"
            "Failed or interrupted: 2\n\n"
            "Space on volumes\n"
            "Almost full: Full\n"
            "Disk (100 GB): 40 % free; 30 to 60 % over the last 7 days\n"
            "Full (100 GB): 12 % free; 10 to 20 % over the last 7 days - almost full\n"
            "\n"
            "What happened (3 lines)\n\n"
            "first line\nsecond line\n");
  EXPECT_EQ(sent.settings.tlsMode, 2);
  EXPECT_EQ(sent.settings.password, "secret");
  EXPECT_EQ(kept(),
            "SMPT: mail.example.com\nPort: 587\nTLS Mode:2\nUser name: anna\nPassword: ****\n"
            "Auth method: 2\n\nSubject: Corvana 9: report for anna since 1/1/24, with errors\n"
            "From: Anna <anna@example.com>\nTo: bob@example.com\nCrFormat: 1\n- - - - - - -\n\n" +
                sent.body);
  EXPECT_THAT(notices(), ElementsAre("The report is sent to bob@example.com"));
  // The day is done; one that is asked for comes all the same and leaves the date alone.
  const ReferenceTime date = lastDate();
  EXPECT_NEAR(date, now(), 2);
  report.sendEmailReport(false);
  EXPECT_EQ(mail.sent.size(), 1U);
  advance(60);
  writeReport(now(), "today");
  report.sendDailyReportNow();
  advance(0.4);
  EXPECT_EQ(mail.sent.size(), 1U);
  advance(0.2);
  ASSERT_EQ(mail.sent.size(), 2U);
  EXPECT_EQ(mail.sent[1].subject, "Corvana 9: report for anna since 1/2/24");
  EXPECT_EQ(lastDate(), date);
}

TEST_F(EmailReportTest, WhatArrivesAndWhatDoesNotIsKnown) {
  writeReport(last, "“Photos <Summer & more>” <a href=\"http://example.org\">x</a>");
  report.sendEmailReport(false);
  ASSERT_EQ(mail.sent.size(), 1U);
  EXPECT_THAT(mail.sent[0].body, HasSubstr("“Photos &lt;Summer &amp; more&gt;” &lt;a href=&quot;"));
  EXPECT_THAT(kept(), HasSubstr("“Photos <Summer & more>”"));
  const auto delivered = [&] { return preferences.prefForKey(OutgoingMail::kDelivered).asDate(); };
  const ReferenceTime sent = now();
  advance(60);
  mail.sent[0].done(Error{ErrorKind::unavailable, "mail.example.com: eve@x.org was refused: 550"});
  EXPECT_EQ(delivered(), std::nullopt);
  const std::string said =
      "The e-mail could not be sent: mail.example.com: eve@x.org was refused: 550";
  EXPECT_THAT(notices(), testing::Contains(said));
  EXPECT_EQ(preferences.prefForKey(OutgoingMail::kLastFailure).string("Text"), said);
  EXPECT_EQ(actionLog.readLogList().elements().back().string("N"), said);
  EXPECT_EQ(records.state.mErrorInExecution, LogCode::message);
  mail.sent[0].done({});
  EXPECT_EQ(delivered(), sent);
  EXPECT_TRUE(preferences.prefForKey(OutgoingMail::kLastFailure).isNull());
}

TEST_F(EmailReportTest, TheFirstAutomaticOneOnlyMarksTheDay) {
  preferences.setPref("DateOfLastReportSentByEmail", {});
  writeReport(now(), "today");
  report.sendEmailReport(true);
  ASSERT_EQ(mail.sent.size(), 1U);
  EXPECT_THAT(mail.sent[0].body, HasSubstr("Last report: –\n"));
  report.sendEmailReport(false);
  EXPECT_EQ(mail.sent.size(), 1U);
  EXPECT_EQ(lastDate(), now());
}

TEST_F(EmailReportTest, NothingIsSentWithoutWishFileOrRecipient) {
  const auto sends = [&] {
    preferences.setPref("DateOfLastReportSentByEmail", ZAN_Value::date(last));
    mail.sent.clear();
    report.sendEmailReport(false);
    return mail.sent.size();
  };
  EXPECT_EQ(sends(), 1U);
  set({{"SendEmailReport", 0}});
  EXPECT_EQ(sends(), 0U);
  set({{"SendReportEmailAddress", ""}});
  EXPECT_EQ(sends(), 0U);
  set({});
  (void)ZAN_FilesUtils::removeFile(store.texts().reportFileNameForDate(last));
  EXPECT_EQ(sends(), 0U);
  EXPECT_EQ(lastDate(), now());
}

TEST_F(EmailReportTest, WithoutAServerTheSystemsMailProgramSendsIt) {
  set({{"SendReportEmailSMTPServer", ""}});
  ChildScript fails;
  fails.status = 75;
  machine.processes.script([&](const std::vector<std::string>&) { return fails; });
  report.sendEmailReport(true);
  ASSERT_EQ(machine.processes.starts.size(), 1U);
  EXPECT_THAT(machine.processes.starts[0]->arguments,
              ElementsAre("/usr/sbin/sendmail", "bob@example.com"));
  EXPECT_THAT(kept(), StartsWith("Subject: Corvana 9: report for anna since 1/1/24\n"
                                 "To: bob@example.com\n- - - - - - -\n\n"));
  advance(5);
  EXPECT_THAT(notices(), testing::Contains("The e-mail could not be sent: /usr/sbin/sendmail: "
                                           "ended with status 75"));
  EXPECT_NE(records.state.mErrorInExecution, 0);

  set({{"SendReportEmailSMTPServer", "nowhere"}});
  (void)ZAN_FilesUtils::removeFile(store.texts().reportEmailFileNameForDate(now()));
  report.sendEmailReport(true);
  EXPECT_THAT(kept(), IsEmpty());
}

}  // namespace
}  // namespace corvana
