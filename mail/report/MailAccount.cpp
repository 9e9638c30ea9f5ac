#include "mail/report/MailAccount.h"

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "core/record/Records.h"
#include "mail/report/OutgoingMail.h"
#include "mail/smtp/StoredMailSettings.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"

namespace corvana {
namespace {

constexpr const char* kSecretTool = "/usr/bin/secret-tool";
constexpr double kKeyringSeconds = 60;

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
bool movedToKeyring(const std::string& file, const MailSettings& settings, Processes& processes) {
  if (!ZAN_FilesUtils::exists(kSecretTool)) return false;
  std::vector<std::string> words{"/bin/sh", "-c", "exec \"$@\" < \"$0\"", file};
  for (const std::string& word : MailSender::keyringWords("store", settings)) words.push_back(word);
  words.insert(words.begin() + 6, "--label=Corvana 9: " + settings.username);
  if (!processes.runTool(words, kKeyringSeconds)) return false;
  if (!keyringHasPassword(settings, processes)) return false;
  const Outcome removed = ZAN_FilesUtils::removeFile(file);
  return static_cast<bool>(removed);
}

}  // namespace

std::optional<MailServerPlace> knownMailServer(std::string_view domain) {
  const std::string wanted = " " + std::string(domain) + " ";
  for (const Provider& provider : kProviders) {
    if ((" " + std::string(provider.domains) + " ").find(wanted) == std::string::npos) continue;
    return MailServerPlace{std::string(provider.server), provider.port, provider.security};
  }
  return std::nullopt;
}

bool keyringHasPassword(const MailSettings& settings, Processes& processes) {
  if (!ZAN_FilesUtils::exists(kSecretTool)) return false;
  const auto found =
      processes.runTool(MailSender::keyringWords("lookup", settings), kKeyringSeconds);
  return found && !found->empty();
}

Outcome keepPassword(MailSettings& settings, const std::string& password,
                     const std::string& configurationFolder, Processes& processes) {
  const std::string file =
      ZAN_FilesUtils::joinedPath(configurationFolder, "corvana9/mail-password");
  if (const Outcome kept = keepInFile(file, password); !kept) return kept;
  settings.passwordIsInKeyring = movedToKeyring(file, settings, processes);
  settings.passwordFile = settings.passwordIsInKeyring ? std::string() : file;
  return {};
}

void MailAccount::change(const std::function<void(ZAN_Value&)>& body) {
  SettingsFiles& files = m.store.settings();
  const auto held = files.lockMainAppSettings();
  ZAN_Value settings = files.mainAppSettings();
  if (!settings.isDictionary()) settings = ZAN_Value::dictionary();
  if (settings.integer(MailKey::standard) == 0) {
    settings.setValue(MailKey::standard, 1);
    if (!settings.contains(MailKey::security))
      settings.setValue(MailKey::security,
                        settings.integer("SendReportEmailSMTPServerUseTLSCB") != 0
                            ? MailKey::kStartTls
                            : MailKey::kInClear);
  }
  body(settings);
  if (const Outcome saved = files.saveMainAppSettings(settings); !saved)
    m.messages.displayStandardMessage(saved.error().text, LogCode::message);
  m.changes.note(Change::preferences);
}

void MailAccount::set(std::string_view key, const ZAN_Value& value) {
  if (key == kPassword) return setPassword(value.string());
  change([&](ZAN_Value& settings) {
    settings.setValue(key, value);
    if (key == "SendReportEmailSMTPServerLogin")
      settings.setValue("SendReportEmailSMTPServerAuthMethod", value.string().empty() ? 0 : 1);
    if (key == MailKey::security)
      settings.setValue("SendReportEmailSMTPServerUseTLSCB",
                        value.integerValue() == MailKey::kInClear ? 0 : 1);
    if (key != "SendReportEmailSender") return;
    const auto address = EmailAddress::list(value.string());
    if (!address || address->size() != 1) return;
    const std::string& email = address->front().email;
    const auto fill = [&](std::string_view one, const ZAN_Value& with) {
      if (settings.string(one).empty()) settings.setValue(one, with);
    };
    fill("SendReportEmailAddress", email);
    const auto place = knownMailServer(lowercase(email.substr(email.rfind('@') + 1)));
    if (!place || !settings.string("SendReportEmailSMTPServer").empty()) return;
    settings.setValue("SendReportEmailSMTPServer", place->server);
    settings.setValue("SendReportEmailSMTPServerPort", std::to_string(place->port));
    settings.setValue(MailKey::security, place->security);
    settings.setValue("SendReportEmailSMTPServerUseTLSCB", 1);
    fill("SendReportEmailSMTPServerLogin", email);
    settings.setValue("SendReportEmailSMTPServerAuthMethod", 1);
  });
}

/// The keyring may ask the user first: not here, then.
void MailAccount::setPassword(const std::string& password) {
  RunLoop& loop = m.platform.runLoop;
  loop.detachThread(
      "keyring", [this, here = std::weak_ptr<void>(mHere), &loop, &processes = m.platform.processes,
                  password, settings = storedMailSettings(m.store.settings()),
                  folder = m.platform.machine.configurationFolder()]() mutable {
        const Outcome kept = keepPassword(settings, password, folder, processes);
        loop.performOnMain([this, here, kept, settings] {
          if (here.expired()) return;
          if (!kept) return say(kept.error().text);
          change([&](ZAN_Value& all) {
            all.removeKey(kPassword);
            all.setValue(MailKey::passwordInKeyring, settings.passwordIsInKeyring ? 1 : 0);
            all.setValue(MailKey::passwordFile, settings.passwordFile);
          });
        });
      });
}

void MailAccount::test() {
  const MailSettings settings = storedMailSettings(m.store.settings());
  const auto mail =
      finishedMail(settings, {m.texts.text("MailTestSubject"), m.texts.text("MailTestText")},
                   m.platform.clock.now(), m.store.dates().calendar());
  if (!mail) return say(mail.error().text);
  say(m.texts.text("MailTestRuns", {settings.server}));
  mSender.deliver(settings, *mail, {}, [this, server = settings.server](const Delivery& delivery) {
    std::string refused;
    for (const SMTPConnector::Refusal& one : delivery.refusals)
      refused += (refused.empty() ? "" : "; ") + one.address + ": " + one.reason;
    if (!delivery.isTaken)
      say(m.texts.text("MailTestFailed", {delivery.reason}));
    else if (refused.empty())
      say(m.texts.text("MailTestTaken", {server}));
    else
      say(m.texts.text("MailTestRefused", {refused}));
  });
}

void MailAccount::say(std::string text) {
  mTestResult = std::move(text);
  m.changes.note(Change::preferences);
}

}  // namespace corvana
