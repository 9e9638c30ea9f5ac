#pragma once

#include "ZANCocoaFramework/ZAN_Value.h"
#include "mail/smtp/MailSender.h"

namespace corvana {

struct Records;

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

/// Keeps a password for the server and user of the settings, and notes in them where: in the
/// desktop's keyring, else in a file of mode 0600 below that folder. Blocks, up to a minute while a
/// keyring asks to be unlocked. Thread: any.
Outcome keepPassword(MailSettings& settings, const std::string& password,
                     const std::string& configurationFolder, Processes& processes);
/// What the desktop's keyring knows for server and user of the settings. Blocks as well. Thread:
/// any.
std::optional<std::string> keyringPassword(const MailSettings& settings, Processes& processes);

/// The account that the reports go out by, as the user sets it up in the window of the preferences.
/// With the first change it becomes one of this program. Thread: main.
class MailAccount {
 public:
  MailAccount(Records& records, MailSender& sender) : m(records), mSender(sender) {}

  /// Stores a value under the key of the main application's settings, with what follows from it: a
  /// first address names the recipient and, of a well-known provider, the server. The password,
  /// under `kPassword`, is kept where only the user reads it.
  void set(std::string_view key, const ZAN_Value& value);
  /// Sends a mail by the server that is set, or where none is or that does not answer by one that
  /// may be meant, which is set then. What comes of it is said by `testResult`.
  void test();
  /// In a sentence, with the server's own words where it refused; empty before the first test.
  const std::string& testResult() const { return mTestResult; }

  static constexpr std::string_view kPassword = "SendReportEmailSMTPServerPassword";

 private:
  void test(const MailSettings& settings, const FinishedMail& mail);
  std::vector<MailServerPlace> placesFor(const MailSettings& settings) const;
  void take(const MailServerPlace& place, const MailSettings& settings);
  void setPassword(const std::string& password);
  void change(const std::function<void(ZAN_Value&)>& body);
  void say(std::string text);

  Records& m;
  MailSender& mSender;
  std::string mTestResult;
  std::shared_ptr<void> mHere = std::make_shared<char>();  ///< gone with this object
};

}  // namespace corvana
