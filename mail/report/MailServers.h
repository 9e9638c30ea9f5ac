#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "mail/smtp/MailSender.h"

namespace corvana {

/// A server that takes mail, and the way to it.
struct MailServerPlace {
  std::string server;
  std::int64_t port = 0;
  std::int64_t security = 0;  ///< see MailKey

  bool operator==(const MailServerPlace&) const = default;
  void setIn(MailSettings& settings) const;
  /// "smtp.example.com:465 (tls)"
  std::string text() const;
};

/// The word of the commands for a security: "tls", "starttls" or "none".
std::string_view securityName(std::int64_t security);

/// Where a well-known provider takes the mail of its users, by the domain of their addresses.
std::optional<MailServerPlace> knownMailServer(std::string_view domain);

/// Where the mail of an address may be taken, in the order in which it is to be tried; what is
/// known already is left as it is. None when the port does not go with the security. Nothing is
/// guessed to be without encryption but a server on this machine.
std::vector<MailServerPlace> mailServersFor(std::string_view address,
                                            const std::optional<std::string>& server,
                                            std::optional<std::int64_t> port,
                                            std::optional<std::int64_t> security);

/// Sends a mail by the first of several servers that takes it. The first that answers is the right
/// one, and what it says holds.
struct MailTrial {
  /// Called for each place that is tried, which the settings name by then;
  /// may add what is missing. An error ends the trial as that of the place.
  std::function<Outcome(const MailServerPlace& place, MailSettings& settings)> begins;
  /// Called for each that did not take it.
  std::function<void(const MailServerPlace& place, const std::string& reason)> failed;
  /// Called at the end, with the place that took it or answered, else the last one.
  std::function<void(const MailServerPlace& place, const MailSettings& settings,
                     const Delivery& delivery)>
      ended;

  /// Thread: main, as that of the events, of which only the first `begins` comes within the call
  /// (and `ended` when that fails). The sender outlives the trial.
  static void start(MailTrial trial, MailSender& sender, const MailSettings& settings,
                    std::vector<MailServerPlace> places, const FinishedMail& mail);
};

}  // namespace corvana
