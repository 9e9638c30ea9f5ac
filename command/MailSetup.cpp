// The account that the reports go out by: finding its server, trying it, storing it.

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "command/MailTalk.h"
#include "mail/smtp/MailMessage.h"
#include "mail/smtp/StoredMailSettings.h"

namespace corvana {

namespace {

constexpr const char* kSecretTool = "/usr/bin/secret-tool";
constexpr double kKeyringSeconds = 60;
constexpr std::int64_t kEightOClock = 8 * 3600;

/// Where a provider takes mail of its users.
struct Provider {
  std::string_view domains;  ///< by blanks
  std::string_view server;
  std::int64_t port;
  std::int64_t security;
};
constexpr std::array kProviders{
    Provider{"gmail.com googlemail.com", "smtp.gmail.com", 465, MailKey::kTlsFromTheStart},
    Provider{"outlook.com hotmail.com live.com msn.com outlook.de", "smtp-mail.outlook.com", 587,
             MailKey::kStartTls},
    Provider{"yahoo.com yahoo.de yahoo.fr yahoo.co.uk ymail.com", "smtp.mail.yahoo.com", 465,
             MailKey::kTlsFromTheStart},
    Provider{"icloud.com me.com mac.com", "smtp.mail.me.com", 587, MailKey::kStartTls},
    Provider{"gmx.de gmx.net gmx.at gmx.ch", "mail.gmx.net", 465, MailKey::kTlsFromTheStart},
    Provider{"gmx.com", "mail.gmx.com", 465, MailKey::kTlsFromTheStart},
    Provider{"web.de", "smtp.web.de", 587, MailKey::kStartTls},
    Provider{"t-online.de", "securesmtp.t-online.de", 465, MailKey::kTlsFromTheStart},
    Provider{"posteo.de posteo.net", "posteo.de", 465, MailKey::kTlsFromTheStart},
    Provider{"mailbox.org", "smtp.mailbox.org", 465, MailKey::kTlsFromTheStart},
    Provider{"fastmail.com fastmail.fm", "smtp.fastmail.com", 465, MailKey::kTlsFromTheStart},
    Provider{"aol.com", "smtp.aol.com", 465, MailKey::kTlsFromTheStart},
    Provider{"orange.fr wanadoo.fr", "smtp.orange.fr", 465, MailKey::kTlsFromTheStart},
    Provider{"free.fr", "smtp.free.fr", 465, MailKey::kTlsFromTheStart},
    Provider{"zoho.com", "smtp.zoho.com", 465, MailKey::kTlsFromTheStart}};

/// A server and a way to it.
struct Candidate {
  std::string server;
  std::int64_t port = 0;
  std::int64_t security = 0;
};

std::int64_t usualPort(std::int64_t security) {
  if (security == MailKey::kTlsFromTheStart) return 465;
  return security == MailKey::kStartTls ? 587 : 25;
}

std::string_view securityName(std::int64_t security) {
  if (security == MailKey::kTlsFromTheStart) return "tls";
  return security == MailKey::kStartTls ? "starttls" : "none";
}

/// What to try, in order. Nothing is guessed to be without encryption but a server on this machine.
std::vector<Candidate> candidates(const std::string& domain,
                                  const std::optional<std::string>& server,
                                  std::optional<std::int64_t> port,
                                  std::optional<std::int64_t> security) {
  std::vector<Candidate> found;
  const auto add = [&](const std::string& host, std::int64_t way) {
    if (security && *security != way) return;
    // These two ports tell the way by themselves.
    if (port && !security && ((*port == 465) != (way == MailKey::kTlsFromTheStart)) &&
        (*port == 465 || *port == 587))
      return;
    found.push_back({host, port.value_or(usualPort(way)), way});
  };
  if (server) {
    const bool isHere = *server == "localhost" || server->starts_with("127.");
    if (isHere && !security) {
      add(*server, MailKey::kInClear);
    } else {
      for (const std::int64_t way :
           {MailKey::kTlsFromTheStart, MailKey::kStartTls, MailKey::kInClear})
        if (way != MailKey::kInClear || security) add(*server, way);
    }
    return found;
  }
  for (const Provider& provider : kProviders) {
    const std::string domains = " " + std::string(provider.domains) + " ";
    if (domains.find(" " + domain + " ") == std::string::npos) continue;
    return {{std::string(provider.server), port.value_or(provider.port),
             security.value_or(provider.security)}};
  }
  for (const std::int64_t way : {MailKey::kTlsFromTheStart, MailKey::kStartTls})
    for (const char* prefix : {"smtp.", "mail.", ""}) add(prefix + domain, way);
  return found;
}

std::optional<std::int64_t> timeFrom(std::string_view text) {
  int hour = 0, minute = 0;
  const char* end = text.data() + text.size();
  const auto [colon, error] = std::from_chars(text.data(), end, hour);
  if (error != std::errc() || colon == end || *colon != ':') return std::nullopt;
  const auto [stop, wrong] = std::from_chars(colon + 1, end, minute);
  if (wrong != std::errc() || stop != end || hour < 0 || hour > 23 || minute < 0 || minute > 59)
    return std::nullopt;
  return hour * 3600 + minute * 60;
}

/// What was asked for.
struct Wanted {
  std::string address, name, to, user;
  std::optional<std::string> server, passwordFile;
  std::optional<std::int64_t> port, security;
  std::int64_t time = kEightOClock, frequency = MailKey::kDaily;
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
    const auto time = timeFrom(*word);
    if (!time) arguments.complain("--at wants a time as 18:30, not \"" + *word + "\"");
    wanted.time = time.value_or(kEightOClock);
  }
  wanted.name = arguments.option("--name").value_or("");
  wanted.to = arguments.option("--to").value_or("");
  wanted.user = arguments.option("--user").value_or("");
  wanted.passwordFile = arguments.option("--password-file");
  wanted.logsIn = !arguments.flag("--no-login");
  wanted.tests = !arguments.flag("--no-test");
  return wanted;
}

bool keyringHas(const MailSettings& settings, LinuxProcesses& processes) {
  const auto found =
      processes.runTool(MailSender::keyringWords("lookup", settings), kKeyringSeconds);
  return found && !found->empty();
}

/// In a file of the user's own.
Outcome keepInFile(const std::string& path, const std::string& password) {
  if (const Outcome made =
          ZAN_FilesUtils::createFolder(std::string(ZAN_FilesUtils::parentPath(path)), 0700);
      !made)
    return made;
  ZAN_FileWriter::Options options;
  options.attributes.mode = 0600;
  return ZAN_FileWriter({}).write(path, password + "\n", options);
}

/// From a file, as a password is no argument of a program.
bool movedToKeyring(const std::string& file, const MailSettings& settings,
                    LinuxProcesses& processes) {
  if (!ZAN_FilesUtils::exists(kSecretTool)) return false;
  std::vector<std::string> words{"/bin/sh", "-c", "exec \"$@\" < \"$0\"", file};
  for (const std::string& word : MailSender::keyringWords("store", settings)) words.push_back(word);
  words.insert(words.begin() + 6, "--label=Corvana 9: " + settings.username);
  if (!processes.runTool(words, kKeyringSeconds)) return false;
  if (!keyringHas(settings, processes)) return false;
  const Outcome removed = ZAN_FilesUtils::removeFile(file);
  return static_cast<bool>(removed);
}

/// Where the password will be found at each sending; asked for if nobody knows it yet.
Outcome findPassword(CommandHome& home, const Console& console, const Wanted& wanted,
                     MailSettings& settings) {
  settings.authMethod = 1;
  if (wanted.passwordFile && *wanted.passwordFile != "-") {
    std::error_code ignored;
    settings.passwordFile = std::filesystem::absolute(*wanted.passwordFile, ignored).string();
    return {};
  }
  MailLine line(home);
  std::string password;
  if (wanted.passwordFile) {
    const auto text = readText("-", console);
    if (!text) return text.error();
    password = text->substr(0, text->find_first_of("\r\n"));
  } else {
    if (ZAN_FilesUtils::exists(kSecretTool) && keyringHas(settings, line.processes)) {
      settings.passwordIsInKeyring = true;
      return {};
    }
    const auto typed = typedPassword(settings.username);
    if (!typed) return typed.error();
    password = *typed;
  }
  const std::string file =
      ZAN_FilesUtils::joinedPath(home.machine().configurationFolder(), "corvana9/mail-password");
  if (const Outcome kept = keepInFile(file, password); !kept) return kept;
  settings.passwordIsInKeyring = movedToKeyring(file, settings, line.processes);
  if (!settings.passwordIsInKeyring) settings.passwordFile = file;
  return {};
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
      settings.contains(MailKey::time) ? settings.integer(MailKey::time) : kEightOClock;
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
       {"time",
        ZAN_StringUtils::twoDigits(time / 3600) + ":" + ZAN_StringUtils::twoDigits(time / 60 % 60)},
       {"frequency", frequency == MailKey::kOnMondays       ? "on Mondays"
                     : frequency == MailKey::kAfterFailures ? "when something failed"
                                                            : "every day"}});
}

Answer shown(CommandHome& home) {
  const ZAN_Value value = shownSettings(home);
  return {value, TextForm(home.calendar()).fill(kShownLines, value)};
}

}  // namespace

Delivery talkToServer(CommandHome& home, const MailSettings& settings, const Letter& letter,
                      const std::optional<MailTalk>& talk) {
  Delivery result;
  const auto from = EmailAddress::list(settings.sender);
  const auto to = EmailAddress::list(settings.recipients);
  if (!from || !to) {
    result.reason = from ? to.error().text : from.error().text;
    return result;
  }
  const MailMessage message{from->front(),
                            *to,
                            letter.subject,
                            letter.text,
                            letter.html,
                            home.now(),
                            home.calendar().components(home.now()).utcOffset,
                            MailMessage::newMessageId(home.now(), from->front())};
  FinishedMail mail{from->front().email, {}, message.wireForm()};
  for (const EmailAddress& address : *to) mail.recipients.push_back(address.email);
  std::shared_ptr<SMTPClientDelegate> delegate;
  if (talk) {
    delegate = std::make_shared<SMTPClientDelegate>(SMTPClientDelegate{
        [talk](const ZAN_SMTPClient&, std::int64_t status) { talk->status(status); },
        [talk](const ZAN_SMTPClient&, const SMTPError& error) { talk->error(error); },
        [talk](const ZAN_SMTPClient&, const std::string& text) { talk->information(text); }});
  }
  MailLine line(home);
  line.sender.deliver(
      settings, mail, {},
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
  const auto ways = candidates(lowercase(email.substr(email.rfind('@') + 1)), wanted.server,
                               wanted.port, wanted.security);
  if (ways.empty())
    return wrongWords({ErrorKind::refused, "this port does not go with this encryption"});

  CommandHome home(console);
  Writer writer(console, arguments.wantsJson());
  std::string reasons;
  std::optional<MailSettings> passwordOf;
  for (const Candidate& way : ways) {
    mail.server = way.server;
    mail.ports = std::to_string(way.port);
    mail.tlsMode = tlsModeOf(way.security);
    if (wanted.logsIn && (!passwordOf || passwordOf->server != mail.server)) {
      mail.username = wanted.user.empty() ? email : wanted.user;
      // The keyring knows it by the server; a typed one is kept for the first that answers.
      if (!passwordOf || passwordOf->passwordIsInKeyring) {
        if (const Outcome found = findPassword(home, console, wanted, mail); !found)
          return found.error();
      }
      passwordOf = mail;
    }
    if (wanted.tests) {
      const Delivery delivery = talkToServer(
          home, mail, {std::string(kTestSubject), std::string(kTestBody)}, std::nullopt);
      const std::string where =
          way.server + ":" + mail.ports + " (" + std::string(securityName(way.security)) + ")";
      if (!delivery.isTaken) {
        writer.complain(where + ": " + printable(delivery.reason));
        reasons = delivery.reason;
        // It is the right one, and what it says holds.
        if (delivery.wasAnswered) break;
        continue;
      }
      if (const Answer refused = answerOf(delivery); refused.code != kDone)
        writer.complain(refused.reason);
    }
    if (const Outcome saved = stored(home, mail, wanted, way.security); !saved)
      return saved.error();
    Answer answer = shown(home);
    if (wanted.tests) answer.text = "A test mail was taken by " + way.server + ".\n" + answer.text;
    return answer;
  }
  return Error{ErrorKind::unavailable,
               "no mail was sent and nothing was changed: " + printable(reasons)};
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
