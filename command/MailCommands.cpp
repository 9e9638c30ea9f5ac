// The commands that mail: one message as a test, and the report of a day, which can also be shown.

#include <array>
#include <charconv>
#include <stdexcept>

#include "actions/History.h"
#include "command/CommandHome.h"
#include "mail/report/ReportComposer.h"
#include "mail/smtp/EmailAddress.h"
#include "mail/smtp/MailMessage.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/StoredMailSettings.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/qt/QtNetwork.h"
#include "platform/qt/QtRunLoop.h"

namespace corvana {

namespace {

constexpr const char* kTestSubject = "Corvana 9";
constexpr const char* kTestBody =
    "This message was sent to test how Corvana 9 reaches your mail server.\n";

/// What an observer hears, as it comes.
class Dialogue {
 public:
  explicit Dialogue(Writer writer) : mWriter(writer) {}

  void status(std::int64_t status) const {
    mWriter.tell(ZAN_Value::dictionary({{"status", status}}), "status " + std::to_string(status));
  }
  void information(const std::string& text) const {
    mWriter.tell(ZAN_Value::dictionary({{"info", text}}), "info " + text);
  }
  void error(const SMTPError& error) const {
    const ZAN_Value value =
        ZAN_Value::dictionary({{"code", error.code}, {"text", error.messageKey}});
    mWriter.tell(ZAN_Value::dictionary({{"error", value}}),
                 "error " + std::to_string(error.code) + ' ' + error.messageKey);
  }

 private:
  Writer mWriter;
};

/// Sends one message over SMTP and shows the dialogue as it happens. Reasons that are no part of it
/// go to `err`. Blocks.
Answer mailed(const MailSettings& settings, const std::string& subject, const std::string& body,
              const Console& console, bool json) {
  const Dialogue dialogue(Writer(console, json));
  ConsoleLog log(console);
  std::optional<QtApplication> application;
  if (settings.tlsMode != 0) application.emplace();
  SystemClock clock;
  QtNetwork network;
  const LinuxMachine machine;
  const SMTPSurroundings surroundings{network, clock, machine.hostName(), machine.systemVersion(),
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
    connector = client->connectorForMessage(surroundings, body, subject, settings.sender,
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

/// The report with all that makes one.
class Maker {
 public:
  explicit Maker(CommandHome& home)
      : mHome(home),
        mHistory(home.store()),
        mStrings(home.machine().regionName(), home.machine().timeZoneName()),
        mComposer({home.store(), mHistory, mTexts, mStrings}) {}

  Result<ComposedReport> compose() {
    if (!mHome.isThere())
      return Error{ErrorKind::absent, "there is nothing to report: no data folder"};
    if (const Outcome loaded = mHome.loadAgentTexts(mTexts); !loaded) return loaded.error();
    SettingsFiles& settings = mHome.store().settings();
    settings.applyDateLocaleFromSettings(mStrings);
    const auto last = settings.schedulerSettings()["DateOfLastReportSentByEmail"].asDate();
    return mComposer.compose(last, mHome.now());
  }
  void keep(const ComposedReport& report) { mComposer.keep(report, mHome.now()); }

 private:
  CommandHome& mHome;
  History mHistory;
  ZAN_StringTable mTexts;
  ZAN_StringUtils mStrings;
  ReportComposer mComposer;
};

class SilentLog final : public SystemLog {
 public:
  void write(const std::string&) override {}
};

/// By the system's mail program.
Outcome sendBySendmail(const ComposedReport& report, CommandHome& home) {
  const QtApplication application;
  QtRunLoop loop;
  SystemClock clock;
  SilentLog log;
  QtNetwork network;
  LinuxProcesses processes(loop, {{}, clock.now(), home.machine().homeFolder()});
  MailSender sender({clock, loop, home.machine(), processes, log, network});
  Outcome result;
  sender.sendEmailWithMessage(report.message, report.subject, report.mail.recipients,
                              [&](const Outcome& outcome) {
                                result = outcome;
                                loop.quit(0);
                              });
  loop.run();
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

/// What the agent would mail when it is asked for a report now.
Answer preview(CommandHome& home) {
  const auto report = Maker(home).compose();
  if (!report) return report.error();
  const std::string by = report->mail.goesOverSmtp() ? report->mail.server : "/usr/sbin/sendmail";
  const ZAN_Value value = ZAN_Value::dictionary({{"by", by},
                                                 {"from", report->mail.sender},
                                                 {"to", report->mail.recipients},
                                                 {"subject", report->subject},
                                                 {"message", report->message}});
  return {
      value,
      TextForm(home.calendar())
          .fill("By: {by}\nFrom: {from}\nTo: {to}\nSubject: {subject}\n\n{message:lines}", value)};
}

/// Mails it, in place of the agent, and keeps its record.
Answer sendReport(CommandHome& home, const Console& console, bool json) {
  Maker maker(home);
  const auto report = maker.compose();
  if (!report) return report.error();
  Answer answer;
  if (report->mail.goesOverSmtp()) {
    answer = mailed(report->mail, report->subject, htmlEscaped(report->message), console, json);
  } else if (const Outcome sent = sendBySendmail(*report, home); !sent) {
    answer = sent.error();
  }
  maker.keep(*report);
  return answer;
}

}  // namespace

Answer mailCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
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
  const std::string subject = arguments.option("--subject").value_or(kTestSubject);
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
  std::string body = kTestBody;
  if (bodyFile) {
    auto text = readText(*bodyFile, console);
    if (!text) return text.error();
    body = std::move(text).value();
  }
  return mailed(settings, subject, body, console, json);
}

Answer reportCommand(Arguments& arguments, const Console& console) {
  const bool json = arguments.json();
  const bool previews = arguments.flag("--preview");
  const bool mails = arguments.flag("--mail");
  const auto dateWord = arguments.option("--date");
  if ((previews && mails) || (dateWord && (previews || mails)))
    arguments.complain("--date, --preview and --mail are three different things");
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  if (previews) return preview(home);
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
