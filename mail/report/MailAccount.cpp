#include "mail/report/MailAccount.h"

#include <algorithm>
#include <array>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "core/record/Records.h"
#include "mail/report/OutgoingMail.h"

namespace corvana {

namespace {

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

std::int64_t usualPort(std::int64_t security) {
  if (security == MailKey::kTlsFromTheStart) return 465;
  return security == MailKey::kStartTls ? 587 : 25;
}

/// Whoever says the place has named the server.
std::string withoutName(const std::string& reason, const std::string& server) {
  return reason.starts_with(server + ": ") ? reason.substr(server.size() + 2) : reason;
}

/// A trial that goes on.
struct RunningTrial {
  MailTrial events;
  MailSender& sender;
  const MailSettings settings;
  const std::vector<MailServerPlace> places;
  const FinishedMail mail;
  std::size_t next = 0;

  static void tryNext(const std::shared_ptr<RunningTrial>& trial) {
    const MailServerPlace& place = trial->places[trial->next++];
    MailSettings settings = trial->settings;
    place.setIn(settings);
    if (const Outcome ready = trial->events.begins(place, settings); !ready) {
      Delivery none;
      none.reason = ready.error().text;
      return trial->events.ended(place, settings, none);
    }
    trial->sender.deliver(settings, trial->mail, {},
                          [trial, place, settings](const Delivery& delivery) {
                            ended(trial, place, settings, delivery);
                          });
  }
  static void ended(const std::shared_ptr<RunningTrial>& trial, const MailServerPlace& place,
                    const MailSettings& settings, const Delivery& delivery) {
    if (!delivery.isTaken) trial->events.failed(place, withoutName(delivery.reason, place.server));
    if (delivery.isTaken || delivery.wasAnswered || trial->next == trial->places.size())
      return trial->events.ended(place, settings, delivery);
    tryNext(trial);
  }
};

}  // namespace

void MailServerPlace::setIn(MailSettings& settings) const {
  settings.server = server;
  settings.ports = std::to_string(port);
  settings.tlsMode = tlsModeOf(security);
}

std::string MailServerPlace::text() const {
  return server + ":" + std::to_string(port) + " (" + std::string(securityName(security)) + ")";
}

std::string_view securityName(std::int64_t security) {
  if (security == MailKey::kTlsFromTheStart) return "tls";
  return security == MailKey::kStartTls ? "starttls" : "none";
}

std::optional<MailServerPlace> knownMailServer(std::string_view domain) {
  const std::string wanted = " " + std::string(domain) + " ";
  for (const Provider& provider : kProviders) {
    if ((" " + std::string(provider.domains) + " ").find(wanted) == std::string::npos) continue;
    return MailServerPlace{std::string(provider.server), provider.port, provider.security};
  }
  return std::nullopt;
}

std::vector<MailServerPlace> mailServersFor(std::string_view address,
                                            const std::optional<std::string>& server,
                                            std::optional<std::int64_t> port,
                                            std::optional<std::int64_t> security) {
  const std::string domain = lowercase(address.substr(address.rfind('@') + 1));
  std::vector<MailServerPlace> found;
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
  if (const auto known = knownMailServer(domain)) {
    return {{known->server, port.value_or(known->port), security.value_or(known->security)}};
  }
  for (const std::int64_t way : {MailKey::kTlsFromTheStart, MailKey::kStartTls})
    for (const char* prefix : {"smtp.", "mail.", ""}) add(prefix + domain, way);
  return found;
}

void MailTrial::start(MailTrial trial, MailSender& sender, const MailSettings& settings,
                      std::vector<MailServerPlace> places, const FinishedMail& mail) {
  if (places.empty()) return;
  RunningTrial::tryNext(std::make_shared<RunningTrial>(
      RunningTrial{std::move(trial), sender, settings, std::move(places), mail}));
}

namespace {

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

bool movedToKeyring(const std::string& file, const MailSettings& settings, Processes& processes) {
  if (!KeyringTool::isThere()) return false;
  const auto words =
      KeyringTool::store(MailSender::keyringAttributes(settings), settings.username, file);
  if (!processes.runTool(words, KeyringTool::kSeconds)) return false;
  if (!keyringPassword(settings, processes)) return false;
  const Outcome removed = ZAN_FilesUtils::removeFile(file);
  return static_cast<bool>(removed);
}

}  // namespace

std::optional<std::string> keyringPassword(const MailSettings& settings, Processes& processes) {
  if (!KeyringTool::isThere()) return std::nullopt;
  const auto found = processes.runTool(KeyringTool::lookUp(MailSender::keyringAttributes(settings)),
                                       KeyringTool::kSeconds);
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
