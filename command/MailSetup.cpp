// The account that the reports go out by: finding its server, trying it, storing it.

#include <filesystem>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/MailTalk.h"
#include "mail/report/MailAccount.h"

namespace corvana {

namespace {

/// What was asked for.
struct Wanted {
  std::string address, name, to, user;
  std::optional<std::string> server, passwordFile;
  std::optional<std::int64_t> port, security;
  std::int64_t time = MailKey::kUsualTime, frequency = MailKey::kDaily;
  bool logsIn = true, tests = true;
};

std::int64_t chosen(Arguments& arguments, const std::string& option, const std::string& word,
                    std::initializer_list<std::pair<std::string_view, std::int64_t>> choices) {
  std::string names;
  for (const auto& [name, value] : choices) {
    if (name == word) return value;
    names += (names.empty() ? "" : ", ") + std::string(name);
  }
  arguments.complain(option + " is one of " + names + ", not \"" + word + "\"");
  return 0;
}

Wanted wantedFrom(Arguments& arguments) {
  Wanted wanted;
  wanted.server = arguments.option("--server");
  wanted.port = arguments.number("--port", 1, 65535);
  if (const auto word = arguments.option("--security"))
    wanted.security = chosen(arguments, "--security", *word,
                             {{"tls", MailKey::kTlsFromTheStart},
                              {"starttls", MailKey::kStartTls},
                              {"none", MailKey::kInClear}});
  if (const auto word = arguments.option("--every"))
    wanted.frequency = chosen(arguments, "--every", *word,
                              {{"day", MailKey::kDaily},
                               {"week", MailKey::kOnMondays},
                               {"failure", MailKey::kAfterFailures}});
  if (const auto word = arguments.option("--at")) {
    const auto time = secondsOfClock(*word);
    if (!time) arguments.complain("--at wants a time as 18:30, not \"" + *word + "\"");
    wanted.time = time.value_or(MailKey::kUsualTime);
  }
  wanted.name = arguments.option("--name").value_or("");
  wanted.to = arguments.option("--to").value_or("");
  wanted.user = arguments.option("--user").value_or("");
  wanted.passwordFile = arguments.option("--password-file");
  wanted.logsIn = !arguments.flag("--no-login");
  wanted.tests = !arguments.flag("--no-test");
  return wanted;
}

/// Where the password will be found at each sending; asked for if nobody knows it yet.
Outcome findPassword(CommandHome& home, const Console& console, const Wanted& wanted,
                     MailSettings& settings, Processes& processes) {
  settings.authMethod = 1;
  if (wanted.passwordFile && *wanted.passwordFile != "-") {
    std::error_code ignored;
    settings.passwordFile = std::filesystem::absolute(*wanted.passwordFile, ignored).string();
    return {};
  }
  std::string password;
  if (wanted.passwordFile) {
    const auto text = readText("-", console);
    if (!text) return text.error();
    password = text->substr(0, text->find_first_of("\r\n"));
  } else {
    if (keyringPassword(settings, processes)) {
      settings.passwordIsInKeyring = true;
      return {};
    }
    const auto typed = typedPassword(settings.username);
    if (!typed) return typed.error();
    password = *typed;
  }
  return keepPassword(settings, password, home.machine().configurationFolder(), processes);
}

Outcome stored(CommandHome& home, const MailSettings& mail, const Wanted& wanted,
               std::int64_t security) {
  SettingsFiles& files = home.store().settings();
  const auto held = files.lockMainAppSettings();
  ZAN_Value settings = files.mainAppSettings();
  if (!settings.isDictionary()) settings = ZAN_Value::dictionary();
  for (const auto& [key, value] : std::initializer_list<std::pair<std::string_view, ZAN_Value>>{
           {"SendEmailReport", 1},
           {"SendReportEmailAddress", mail.recipients},
           {"SendReportEmailSender", mail.sender},
           {"SendReportEmailSMTPServer", mail.server},
           {"SendReportEmailSMTPServerPort", mail.ports},
           {"SendReportEmailSMTPServerLogin", mail.username},
           {"SendReportEmailSMTPServerPassword", {}},
           {"SendReportEmailSMTPServerAuthMethod", mail.authMethod},
           {"SendReportEmailSMTPServerUseTLSCB", security == MailKey::kInClear ? 0 : 1},
           {MailKey::standard, 1},
           {MailKey::security, security},
           {MailKey::passwordInKeyring, mail.passwordIsInKeyring ? 1 : 0},
           {MailKey::passwordFile, mail.passwordFile},
           {MailKey::time, wanted.time},
           {MailKey::frequency, wanted.frequency}}) {
    if (value.isNull())
      settings.removeKey(key);
    else
      settings.setValue(key, value);
  }
  return files.saveMainAppSettings(settings);
}

constexpr std::string_view kShownLines =
    "{on!Reports by e-mail are off.\n}{server!{on?They go to {to} by /usr/sbin/sendmail.\n}}"
    "{server?From {from} to {to}\nBy {server}, port {port}, encryption {security}{user?, as "
    "{user}, password {password}}\n}"
    "{standard?{on?Comes {frequency} at {time}.\n}}"
    "{standard!{on?Set up in the main application.\n}}";

ZAN_Value shownSettings(CommandHome& home) {
  const ZAN_Value settings =
      home.isThere() ? home.store().settings().mainAppSettings() : ZAN_Value();
  const MailSettings mail =
      home.isThere() ? storedMailSettings(home.store().settings()) : MailSettings{};
  const std::int64_t security = mail.isStandard
                                    ? settings.integer(MailKey::security)
                                    : (mail.tlsMode != 0 ? MailKey::kStartTls : MailKey::kInClear);
  const std::int64_t time =
      settings.contains(MailKey::time) ? settings.integer(MailKey::time) : MailKey::kUsualTime;
  const std::int64_t frequency = settings.integer(MailKey::frequency);
  std::string password = "in the settings";
  if (mail.passwordIsInKeyring) password = "in the keyring";
  if (!mail.passwordFile.empty()) password = "in " + mail.passwordFile;
  return ZAN_Value::dictionary(
      {{"on", settings.integer("SendEmailReport") != 0},
       {"standard", mail.isStandard},
       {"from", mail.sender},
       {"to", mail.recipients},
       {"server", mail.server},
       {"port", mail.ports.empty() ? "25, 465, 587" : mail.ports},
       {"security", securityName(security)},
       {"user", mail.authMethod == 0 ? std::string() : mail.username},
       {"password", password},
       {"time", clockOfSeconds(time)},
       {"frequency", frequency == MailKey::kOnMondays       ? "on Mondays"
                     : frequency == MailKey::kAfterFailures ? "when something failed"
                                                            : "every day"}});
}

Answer shown(CommandHome& home) {
  const ZAN_Value value = shownSettings(home);
  return {value, TextForm(home.calendar()).fill(kShownLines, value)};
}

/// Stores the account when a server has taken the test.
Answer endOfTrial(CommandHome& home, const Writer& writer, const Wanted& wanted,
                  const MailServerPlace& place, const MailSettings& mail,
                  const Delivery& delivery) {
  if (!delivery.isTaken)
    return Error{ErrorKind::unavailable,
                 "no mail was sent and nothing was changed: " + printable(delivery.reason)};
  if (const Answer refused = answerOf(delivery); refused.code != kDone)
    writer.complain(refused.reason);
  if (const Outcome saved = stored(home, mail, wanted, place.security); !saved)
    return saved.error();
  Answer answer = shown(home);
  answer.text = "A test mail was taken by " + place.server + ".\n" + answer.text;
  return answer;
}

}  // namespace

Delivery talkToServer(CommandHome& home, const MailSettings& settings, const Letter& letter,
                      const std::optional<MailTalk>& talk) {
  Delivery result;
  const auto mail = finishedMail(settings, letter, home.now(), home.calendar());
  if (!mail) {
    result.reason = mail.error().text;
    return result;
  }
  std::shared_ptr<SMTPClientDelegate> delegate;
  if (talk) {
    delegate = std::make_shared<SMTPClientDelegate>(SMTPClientDelegate{
        [talk](const ZAN_SMTPClient&, std::int64_t status) { talk->status(status); },
        [talk](const ZAN_SMTPClient&, const SMTPError& error) { talk->error(error); },
        [talk](const ZAN_SMTPClient&, const std::string& text) { talk->information(text); }});
  }
  MailLine line(home);
  line.sender.deliver(
      settings, *mail, {},
      [&](const Delivery& delivery) {
        result = delivery;
        line.loop.quit(0);
      },
      delegate);
  line.loop.run();
  return result;
}

Answer answerOf(const Delivery& delivery) {
  if (!delivery.isTaken) return Error{ErrorKind::unavailable, printable(delivery.reason)};
  if (delivery.refusals.empty()) return {};
  std::string refused;
  for (const SMTPConnector::Refusal& refusal : delivery.refusals)
    refused += (refused.empty() ? "" : "; ") + refusal.address + ": " + refusal.reason;
  return Error{ErrorKind::refused, "sent, but not to " + printable(refused)};
}

Answer mailSetup(Arguments& arguments, const Console& console) {
  const Wanted wanted = wantedFrom(arguments);
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const auto address = EmailAddress::list(words->front());
  if (!address || address->size() != 1)
    return wrongWords({ErrorKind::refused, "\"" + words->front() + "\" is no e-mail address"});
  const std::string& email = address->front().email;
  MailSettings mail;
  mail.isStandard = true;
  mail.sender = wanted.name.empty() ? words->front() : "\"" + wanted.name + "\" <" + email + ">";
  mail.recipients = wanted.to.empty() ? email : wanted.to;
  for (const std::string* list : {&mail.sender, &mail.recipients})
    if (const auto read = EmailAddress::list(*list); !read) return wrongWords(read.error());
  const auto ways = mailServersFor(email, wanted.server, wanted.port, wanted.security);
  if (ways.empty())
    return wrongWords({ErrorKind::refused, "this port does not go with this encryption"});

  CommandHome home(console);
  Writer writer(console, arguments.wantsJson());
  MailLine line(home);
  std::optional<MailSettings> passwordOf;
  Outcome found;
  const auto begins = [&](const MailServerPlace&, MailSettings& at) {
    if (!wanted.logsIn) return Outcome();
    // The keyring knows it by the server; a typed one is kept for the first that answers.
    if (passwordOf && (passwordOf->server == at.server || !passwordOf->passwordIsInKeyring)) {
      const MailSettings place = at;
      at = *passwordOf;
      at.server = place.server;
      at.ports = place.ports;
      at.tlsMode = place.tlsMode;
      return Outcome();
    }
    at.username = wanted.user.empty() ? email : wanted.user;
    found = findPassword(home, console, wanted, at, line.processes);
    passwordOf = at;
    return found;
  };
  if (!wanted.tests) {
    ways.front().setIn(mail);
    if (const Outcome ready = begins(ways.front(), mail); !ready) return ready.error();
    if (const Outcome saved = stored(home, mail, wanted, ways.front().security); !saved)
      return saved.error();
    return shown(home);
  }
  const auto test = finishedMail(mail, {std::string(kTestSubject), std::string(kTestBody)},
                                 home.now(), home.calendar());
  if (!test) return test.error();
  std::optional<Answer> answer;
  MailTrial::start(
      {begins,
       [&](const MailServerPlace& place, const std::string& reason) {
         writer.complain(place.text() + ": " + printable(reason));
       },
       [&](const MailServerPlace& place, const MailSettings& used, const Delivery& delivery) {
         answer = endOfTrial(home, writer, wanted, place, used, delivery);
         line.loop.quit(0);
       }},
      line.sender, mail, ways, *test);
  if (!answer) line.loop.run();
  return found ? *answer : Answer(found.error());
}

Answer mailShow(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  return shown(home);
}

/// What was written before goes its way, unless it is not wanted.
Answer mailOff(Arguments& arguments, const Console& console) {
  const bool drops = arguments.flag("--drop");
  const auto words = arguments.words(0, 0);
  if (!words) return wrongWords(words.error());
  CommandHome home(console);
  if (home.isThere()) {
    const Outcome saved = home.store().settings().setMainAppSetting(0, "SendEmailReport");
    if (!saved) return saved.error();
  }
  Answer answer = shown(home);
  std::size_t waiting = 0;
  ZAN_Value dropped = ZAN_Value::array();
  const MailSpool spool(home.store().folder().hiddenFolderPath());
  for (const WaitingMail& mail : home.isThere() ? spool.read() : std::vector<WaitingMail>()) {
    if (!mail.isWaiting()) continue;
    if (!drops) {
      ++waiting;
      continue;
    }
    if (const Outcome removed = spool.remove(mail); !removed) return removed.error();
    dropped.append(mail.subject);
    answer.text += "Dropped: " + printable(mail.subject) + "\n";
  }
  if (waiting > 0) {
    answer.text += (waiting == 1 ? "1 mail still waits and goes"
                                 : std::to_string(waiting) + " mails still wait and go") +
                   std::string(
                       " out when the server takes it; corvana9 mail --off --drop drops "
                       "what waits.\n");
  }
  answer.value->setValue("waiting", static_cast<std::int64_t>(waiting));
  answer.value->setValue("dropped", dropped);
  return answer;
}

}  // namespace corvana
