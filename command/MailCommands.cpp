// The commands that mail: one message as a test, and the report of a day, which can also be shown.

#include <array>
#include <charconv>
#include <stdexcept>

#include "actions/History.h"
#include "command/CommandHome.h"
#include "command/MailTalk.h"
#include "mail/report/EmailReport.h"
#include "mail/report/OutgoingMail.h"
#include "mail/report/ReportPage.h"
#include "mail/smtp/MailMessage.h"
#include "mail/smtp/MailSender.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/qt/QtNetwork.h"

namespace corvana {

namespace {

constexpr double kDay = 86400;

/// Sends one message over SMTP and shows the dialogue as it happens. Reasons that are no part of it
/// go to `err`. Blocks.
Answer mailed(const MailSettings& settings, const std::string& subject, const std::string& body,
              const Console& console, bool json) {
  const MailTalk dialogue(Writer(console, json));
  ConsoleLog log(console);
  std::optional<QtApplication> application;
  if (settings.tlsMode != 0) application.emplace();
  SystemClock clock;
  QtNetwork network;
  const LinuxMachine machine;
  const SMTPCaller caller{machine.hostName(), machine.systemVersion(),
                          [&](const std::string& line) { log.write(line); }};
  std::shared_ptr<SMTPConnector> connector;
  const SMTPClientDelegate delegate{
      [&](const ZAN_SMTPClient&, std::int64_t status) { dialogue.status(status); },
      [&](const ZAN_SMTPClient&, const SMTPError& error) {
        dialogue.error(error);
        // Nobody wants to watch how a server waits for words that will not come.
        connector->hangUpSoon();
      },
      [&](const ZAN_SMTPClient&, const std::string& text) { dialogue.information(text); }};
  try {
    const auto client = ZAN_SMTPClient::clientWithServerAddress(
        settings.server, settings.ports, settings.tlsMode, settings.username, settings.password,
        settings.authMethod);
    client->setDelegate(std::make_shared<SMTPClientDelegate>(delegate));
    connector = client->connectorForMessage(network, clock, caller, body, subject, settings.sender,
                                            settings.recipients, settings.crFormat);
  } catch (const std::invalid_argument& exception) {
    dialogue.error({0, exception.what()});
    return Error{ErrorKind::refused, settings.server + ": " + exception.what()};
  }
  if (connector == nullptr) {
    dialogue.error({SMTPError::kInvalidAddress, "Invalid email address"});
    return Error{ErrorKind::refused, "the sender or a recipient is no e-mail address"};
  }
  connector->start();
  if (const Outcome outcome = connector->outcome(); !outcome) {
    return Error{ErrorKind::unavailable, printable(outcome.error().text)};
  }
  return {};
}

std::string firstLine(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  return line.ends_with('\r') ? line.substr(0, line.size() - 1) : line;
}

/// What the agent would mail when it is asked for a report now.
struct MadeReport {
  ComposedReport report;
  std::string html;  ///< empty for a report of the old form
};

/// The report with all that makes one.
class Maker {
 public:
  explicit Maker(CommandHome& home)
      : mHome(home),
        mHistory(home.store()),
        mStrings(home.machine().regionName(), home.machine().timeZoneName()),
        mComposer(home.store(), mHistory, mTexts, mStrings) {}

  Result<ComposedReport> compose() {
    if (!mHome.isThere())
      return Error{ErrorKind::absent, "there is nothing to report: no data folder"};
    if (const Outcome loaded = mHome.loadAgentTexts(mTexts); !loaded) return loaded.error();
    SettingsFiles& settings = mHome.store().settings();
    settings.applyDateLocaleFromSettings(mStrings);
    const auto last = settings.schedulerSettings()["DateOfLastReportSentByEmail"].asDate();
    return mComposer.compose(last, mHome.now());
  }
  /// The page, which needs no settings at all.
  Result<MadeReport> page() {
    if (const Outcome loaded = mHome.loadAgentTexts(mTexts); !loaded) return loaded.error();
    SettingsFiles& settings = mHome.store().settings();
    settings.applyDateLocaleFromSettings(mStrings);
    const ZAN_Value known = settings.schedulerSettings();
    const ReferenceTime now = mHome.now();
    const auto since = known[OutgoingMail::kDelivered].asDate();
    ReportGatherer gatherer(mHome.store(), mHistory, mHome.tree(), mTexts, mStrings);
    const ReportFacts facts = gatherer.gather({std::min(since.value_or(now - kDay), now), now});
    const ReportPage page(facts, gatherer, mTexts, mStrings,
                          settings.mainAppSettings().integer(MailKey::frequency));
    return MadeReport{{storedMailSettings(settings), page.subject(), page.text()}, page.html()};
  }
  void keep(const ComposedReport& report) { mComposer.keep(report, mHome.now()); }

 private:
  CommandHome& mHome;
  History mHistory;
  ZAN_StringTable mTexts;
  ZAN_StringUtils mStrings;
  ReportComposer mComposer;
};

/// By the system's mail program.
Outcome sendBySendmail(const ComposedReport& report, CommandHome& home) {
  MailLine line(home);
  Outcome result;
  line.sender.sendEmailWithMessage(report.message, report.subject, report.mail.recipients,
                                   [&](const Outcome& outcome) {
                                     result = outcome;
                                     line.loop.quit(0);
                                   });
  line.loop.run();
  return result;
}

/// The first instant of a day "2026-11-24"; nothing for other texts and days that do not exist.
std::optional<ReferenceTime> dayFrom(std::string_view text, const ZAN_DateUtils& calendar) {
  std::array<int, 3> numbers{};
  const char* next = text.data();
  const char* const end = text.data() + text.size();
  for (std::size_t i = 0; i < numbers.size(); ++i) {
    if (i > 0 && (next == end || *next++ != '-')) return std::nullopt;
    const auto [stop, error] = std::from_chars(next, end, numbers[i]);
    if (error != std::errc() || numbers[i] < 0) return std::nullopt;
    next = stop;
  }
  if (next != end) return std::nullopt;
  return calendar.dateForDay(numbers[2], numbers[1], numbers[0]);
}

/// Of the old form only where the main application has set up the reports.
Result<MadeReport> made(CommandHome& home, Maker& maker) {
  if (!home.isThere())
    return Error{ErrorKind::absent, "there is nothing to report: no data folder"};
  const ZAN_Value settings = home.store().settings().mainAppSettings();
  if (settings.integer("SendEmailReport") == 0 || settings.integer(MailKey::standard) != 0)
    return maker.page();
  const auto report = maker.compose();
  if (!report) return report.error();
  return MadeReport{*report, {}};
}

Answer preview(CommandHome& home, const std::optional<std::string>& htmlFile) {
  Maker maker(home);
  const auto made = corvana::made(home, maker);
  if (!made) return made.error();
  const ComposedReport& report = made->report;
  if (htmlFile) {
    if (made->html.empty()) {
      return Error{ErrorKind::absent,
                   "a report as the main application has set it up has no HTML of its own; "
                   "corvana9 mail --setup gives it one"};
    }
    const Outcome written = ZAN_FileWriter({}).write(*htmlFile, made->html, {});
    if (!written) return written.error();
  }
  const std::string by = report.mail.goesOverSmtp() ? report.mail.server : "/usr/sbin/sendmail";
  const ZAN_Value value = ZAN_Value::dictionary({{"by", report.mail.recipients.empty() ? "" : by},
                                                 {"from", report.mail.sender},
                                                 {"to", report.mail.recipients},
                                                 {"subject", report.subject},
                                                 {"message", report.message},
                                                 {"html", made->html}});
  return {value, TextForm(home.calendar())
                     .fill("{by?By: {by}\nFrom: {from}\nTo: {to}\n}Subject: {subject}\n\n"
                           "{message:lines}",
                           value)};
}

/// Mails it, in place of the agent, and keeps its record.
Answer sendReport(CommandHome& home, const Console& console, bool json) {
  Maker maker(home);
  const auto made = corvana::made(home, maker);
  if (!made) return made.error();
  const ComposedReport& report = made->report;
  if (report.mail.recipients.empty()) {
    return Error{ErrorKind::absent,
                 "nobody is named to send the report to; corvana9 mail --setup asks for it"};
  }
  Answer answer;
  if (report.mail.isStandard && report.mail.goesOverSmtp()) {
    const auto delivery =
        talkToServer(home, report.mail, {report.subject, report.message, made->html},
                     MailTalk(Writer(console, json)));
    answer = answerOf(delivery);
  } else if (report.mail.goesOverSmtp()) {
    answer = mailed(report.mail, report.subject, htmlEscaped(report.message), console, json);
  } else if (const Outcome sent = sendBySendmail(report, home); !sent) {
    answer = sent.error();
  }
  maker.keep(report);
  return answer;
}

constexpr std::string_view kStatusLines =
    "{on!Reports by e-mail are off: corvana9 mail --setup turns them on.\n}"
    "{on?Reports go to {to}.\n}"
    "{delivered?Delivered up to: {delivered:date}\n}{delivered!No report was delivered yet.\n}"
    "{failure?Last failure: {failure.date:date}  {failure.text}\n}"
    "{waiting*Waits: {subject}, tried {attempts:times}, again {next:date}{doubtful?, may come "
    "twice}\n  {reason}\n}"
    "{givenUp*Given up: {subject}, written {queued:date}\n  {reason}\n}";

/// Whether reports arrive.
Answer reportStatus(CommandHome& home) {
  ZAN_Value waiting = ZAN_Value::array(), givenUp = ZAN_Value::array();
  ZAN_Value settings, scheduler;
  if (home.isThere()) {
    settings = home.store().settings().mainAppSettings();
    scheduler = home.store().settings().schedulerSettings();
    for (const WaitingMail& mail : MailSpool(home.store().folder().hiddenFolderPath()).read()) {
      const ZAN_Value value = ZAN_Value::dictionary({{"subject", mail.subject},
                                                     {"queued", ZAN_Value::date(mail.queued)},
                                                     {"attempts", mail.attempts},
                                                     {"next", ZAN_Value::date(mail.next)},
                                                     {"doubtful", mail.isDoubtful},
                                                     {"reason", mail.reason}});
      if (mail.isWaiting()) waiting.append(value);
      if (mail.givenUp) givenUp.append(value);
    }
  }
  const ZAN_Value& failure = scheduler[OutgoingMail::kLastFailure];
  const ZAN_Value value = ZAN_Value::dictionary(
      {{"on", settings.integer("SendEmailReport") != 0},
       {"to", settings.string("SendReportEmailAddress")},
       {"delivered", scheduler[OutgoingMail::kDelivered]},
       {"failure", failure.isDictionary() ? ZAN_Value::dictionary({{"date", failure["Date"]},
                                                                   {"text", failure["Text"]}})
                                          : ZAN_Value()},
       {"waiting", waiting},
       {"givenUp", givenUp}});
  TextForm form(home.calendar());
  form.with("times", [](const ZAN_Value& count) {
    const std::int64_t times = count.integerValue();
    return times == 1 ? std::string("once") : std::to_string(times) + " times";
  });
  return {value, form.fill(kStatusLines, value)};
}

}  // namespace

Answer mailCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  if (arguments.flag("--setup")) return mailSetup(arguments, console);
  if (arguments.flag("--show")) return mailShow(arguments, console);
  if (arguments.flag("--off")) return mailOff(arguments, console);
  MailSettings settings;
  const auto server = arguments.option("--server");
  if (!server) {
    CommandHome home(console);
    if (home.isThere()) settings = storedMailSettings(home.store().settings());
  }
  settings.server = server.value_or(settings.server);
  settings.ports = arguments.option("--ports").value_or(settings.ports);
  settings.tlsMode = arguments.number("--tls", 0, 2).value_or(settings.tlsMode);
  settings.authMethod = arguments.number("--method", 0, 1000).value_or(settings.authMethod);
  settings.username = arguments.option("--user").value_or(settings.username);
  settings.sender = arguments.option("--from").value_or(settings.sender);
  settings.recipients = arguments.option("--to").value_or(settings.recipients);
  settings.crFormat = arguments.number("--crformat", -1000, 1000).value_or(settings.crFormat);
  const auto passwordFile = arguments.option("--password-file");
  const auto bodyFile = arguments.option("--body-file");
  const std::string subject = arguments.option("--subject").value_or(std::string(kTestSubject));
  if (settings.server.empty() && !server) {
    arguments.complain("--server is missing, and no mail server is set for the reports");
  }
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  if (passwordFile) {
    const auto password = readText(*passwordFile, console);
    if (!password) return password.error();
    settings.password = firstLine(*password);
  }
  std::string body(kTestBody);
  if (bodyFile) {
    auto text = readText(*bodyFile, console);
    if (!text) return text.error();
    body = std::move(text).value();
  }
  if (settings.isStandard && !server) {
    CommandHome home(console);
    return answerOf(talkToServer(home, settings, {subject, body}, MailTalk(Writer(console, json))));
  }
  return mailed(settings, subject, body, console, json);
}

Answer reportCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const bool previews = arguments.flag("--preview");
  const bool mails = arguments.flag("--mail");
  const bool asksStatus = arguments.flag("--status");
  const auto htmlFile = arguments.option("--html");
  const auto dateWord = arguments.option("--date");
  if (previews + mails + asksStatus + dateWord.has_value() > 1)
    arguments.complain("--date, --preview, --mail and --status are four different things");
  if (htmlFile && !previews) arguments.complain("--html goes with --preview");
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  if (asksStatus) return reportStatus(home);
  if (previews) return preview(home, htmlFile);
  if (mails) return sendReport(home, console, json);
  const auto day = dateWord ? dayFrom(*dateWord, home.calendar()) : home.now();
  if (!day)
    return wrongWords(
        {ErrorKind::refused, "--date wants a day as 2026-11-24, not \"" + *dateWord + "\""});
  const std::string shownDay = home.calendar().format(*day, "%Y-%m-%d");
  const Error none{ErrorKind::absent, "there is no report of " + shownDay};
  if (!home.isThere()) return none;
  const std::string path = home.store().texts().reportFileNameForDate(*day);
  if (!ZAN_FilesUtils::exists(path)) return none;
  const auto contents = ZAN_FilesUtils::readFile(path);
  if (!contents) return contents.error();
  const ZAN_Value value =
      ZAN_Value::dictionary({{"day", shownDay}, {"path", path}, {"text", contents->bytes}});
  return {value, TextForm(home.calendar()).fill("{text:lines}", value)};
}

}  // namespace corvana
