#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_Value.h"
#include "mail/smtp/MailSender.h"

namespace corvana {

struct Records;

/// A server that takes mail, and the way to it.
struct MailServerPlace {
  std::string server;
  std::int64_t port = 0;
  std::int64_t security = 0;  ///< see MailKey
};
/// Where a well-known provider takes the mail of its users, by the domain of their addresses.
std::optional<MailServerPlace> knownMailServer(std::string_view domain);

/// Keeps a password for the server and user of the settings, and notes in them where: in the
/// desktop's keyring, else in a file of mode 0600 below that folder. Blocks, up to a minute while a
/// keyring asks to be unlocked. Thread: any.
Outcome keepPassword(MailSettings& settings, const std::string& password,
                     const std::string& configurationFolder, Processes& processes);
/// Whether the desktop's keyring knows it. Blocks as well. Thread: any.
bool keyringHasPassword(const MailSettings& settings, Processes& processes);

/// The account that the reports go out by, as the user sets it up in the window of the preferences.
/// With the first change it becomes one of this program. Thread: main.
class MailAccount {
 public:
  MailAccount(Records& records, MailSender& sender) : m(records), mSender(sender) {}

  /// Stores a value under the key of the main application's settings, with what follows from it: a
  /// first address names the recipient and, of a well-known provider, the server. The password,
  /// under `kPassword`, is kept where only the user reads it.
  void set(std::string_view key, const ZAN_Value& value);
  /// Sends a mail; what comes of it is said by `testResult`.
  void test();
  /// In a sentence, with the server's own words where it refused; empty before the first test.
  const std::string& testResult() const { return mTestResult; }

  static constexpr std::string_view kPassword = "SendReportEmailSMTPServerPassword";

 private:
  void setPassword(const std::string& password);
  void change(const std::function<void(ZAN_Value&)>& body);
  void say(std::string text);

  Records& m;
  MailSender& mSender;
  std::string mTestResult;
  std::shared_ptr<void> mHere = std::make_shared<char>();  ///< gone with this object
};

}  // namespace corvana
