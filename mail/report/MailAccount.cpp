#include "mail/report/MailAccount.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "core/record/Records.h"
#include "mail/report/OutgoingMail.h"
#include "mail/smtp/EmailAddress.h"
#include "mail/smtp/StoredMailSettings.h"
#include "platform/Clock.h"
#include "platform/Machine.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"

namespace corvana {
namespace {

constexpr const char* kSecretTool = "/usr/bin/secret-tool";
constexpr double kKeyringSeconds = 60;

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
  if (!keyringPassword(settings, processes)) return false;
  const Outcome removed = ZAN_FilesUtils::removeFile(file);
  return static_cast<bool>(removed);
}

}  // namespace

std::optional<std::string> keyringPassword(const MailSettings& settings, Processes& processes) {
  if (!ZAN_FilesUtils::exists(kSecretTool)) return std::nullopt;
  const auto found =
      processes.runTool(MailSender::keyringWords("lookup", settings), kKeyringSeconds);
  if (!found || found->empty()) return std::nullopt;
  return found->substr(0, found->find('\n'));
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
  if (!settings.passwordIsInKeyring) return test(settings, *mail);
  // The keyring knows it under the server of now, and another one may be found.
  RunLoop& loop = m.platform.runLoop;
  loop.detachThread("keyring", [this, here = std::weak_ptr<void>(mHere), &loop,
                                &processes = m.platform.processes, settings, mail = *mail] {
    const auto password = keyringPassword(settings, processes);
    loop.performOnMain([this, here, settings = settings, mail, password]() mutable {
      if (here.expired()) return;
      settings.password = password.value_or("");
      settings.passwordIsInKeyring = !password;
      test(settings, mail);
    });
  });
}

std::vector<MailServerPlace> MailAccount::placesFor(const MailSettings& settings) const {
  const auto address = EmailAddress::list(settings.sender);
  const std::string email = address && !address->empty() ? address->front().email : std::string();
  const std::int64_t port = ZAN_Value(settings.ports).integerValue();
  const auto knownPort = port > 0 ? std::optional(port) : std::nullopt;
  if (settings.server.empty()) return mailServersFor(email, {}, knownPort, {});
  const std::int64_t security = m.store.settings().mainAppSettings().integer(MailKey::security);
  auto places = mailServersFor(email, settings.server, knownPort, security);
  for (const MailServerPlace& place : mailServersFor(email, settings.server, knownPort, {}))
    if (std::ranges::find(places, place) == places.end()) places.push_back(place);
  return places;
}

void MailAccount::test(const MailSettings& settings, const FinishedMail& mail) {
  const auto ended = [this](const std::string& taker, const Delivery& delivery,
                            const std::string& reason) {
    std::string refused;
    for (const SMTPConnector::Refusal& one : delivery.refusals)
      refused += (refused.empty() ? "" : "; ") + one.address + ": " + one.reason;
    if (!delivery.isTaken)
      say(m.texts.text("MailTestFailed", {reason}));
    else
      say(refused.empty() ? m.texts.text("MailTestTaken", {taker})
                          : m.texts.text("MailTestRefused", {refused}));
  };
  if (!settings.isStandard) {
    say(m.texts.text("MailTestRuns", {settings.server}));
    return mSender.deliver(settings, mail, {}, [=](const Delivery& delivery) {
      ended(settings.server, delivery, delivery.reason);
    });
  }
  const auto places = placesFor(settings);
  if (places.empty())
    return say(m.texts.text("MailTestFailed", {m.texts.text("MailTestNoServer")}));
  const auto reasons = std::make_shared<std::string>();
  const std::weak_ptr<void> here = mHere;
  MailTrial::start(
      {[this, here](const MailServerPlace& place, MailSettings&) {
         if (!here.expired()) say(m.texts.text("MailTestRuns", {place.text()}));
         return Outcome();
       },
       [reasons](const MailServerPlace& place, const std::string& reason) {
         *reasons += (reasons->empty() ? "" : "; ") + place.text() + ": " + reason;
       },
       [this, here, ended, reasons, set = places.front(), wasSet = settings.server](
           const MailServerPlace& place, const MailSettings& used, const Delivery& delivery) {
         if (here.expired()) return;
         if (delivery.isTaken && (wasSet.empty() || place != set)) take(place, used);
         ended(place.text(), delivery, *reasons);
       }},
      mSender, settings, places, mail);
}

/// From now on mail goes there.
void MailAccount::take(const MailServerPlace& place, const MailSettings& settings) {
  const bool wasInKeyring = storedMailSettings(m.store.settings()).passwordIsInKeyring;
  change([&](ZAN_Value& all) {
    all.setValue("SendReportEmailSMTPServer", place.server);
    all.setValue("SendReportEmailSMTPServerPort", std::to_string(place.port));
    all.setValue(MailKey::security, place.security);
    all.setValue("SendReportEmailSMTPServerUseTLSCB", place.security == MailKey::kInClear ? 0 : 1);
  });
  if (wasInKeyring && !settings.password.empty()) setPassword(settings.password);
}

void MailAccount::say(std::string text) {
  mTestResult = std::move(text);
  m.changes.note(Change::preferences);
}

}  // namespace corvana
