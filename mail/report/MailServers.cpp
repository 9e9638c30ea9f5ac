#include "mail/report/MailServers.h"

#include <array>
#include <memory>
#include <utility>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "mail/smtp/StoredMailSettings.h"

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

}  // namespace corvana
