#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace corvana {

class SettingsFiles;

/// How a mail reaches its server.
struct MailSettings {
  std::string server;
  std::string ports;         ///< one, or several by comma; empty: 25, 465, 587
  std::int64_t tlsMode = 0;  ///< 0 none, 1 when the server offers it, 2 required
  std::string username;
  std::string password;
  std::int64_t authMethod = 0;  ///< 0 none, 1 LOGIN, 2 CRAM-MD5
  std::string sender;
  std::string recipients;  ///< several by comma
  std::int64_t crFormat =
      0;  ///< line ends of the body: 0 by system, 1 "\n" to "<br>", else the reverse
  /// Set up by this program: mail is sent as finished messages, by the standards.
  bool isStandard = false;
  // Where the password is, if not above.
  bool passwordIsInKeyring = false;  ///< under server and user name
  std::string passwordFile;          ///< its first line; a file that only the user may read

  /// Else by the system's mail program.
  bool goesOverSmtp() const { return !sender.empty() && !server.empty(); }
};

/// Keys beside those of the main application, which this program sets for the accounts that it sets
/// up. Without them everything is as the main application knows it.
namespace MailKey {
/// An integer, non-zero: mail is sent by the standards, reports have their readable form, and what
/// could not be sent waits and is tried again.
inline constexpr std::string_view standard = "SendReportEmailStandard";
/// An integer: how the connection is encrypted.
inline constexpr std::string_view security = "SendReportEmailSecurity";
inline constexpr std::int64_t kInClear = 0, kStartTls = 1, kTlsFromTheStart = 2;
/// An integer, non-zero: the desktop's keyring has the password.
inline constexpr std::string_view passwordInKeyring = "SendReportEmailPasswordInKeyring";
/// A text: the path of a file whose first line is the password.
inline constexpr std::string_view passwordFile = "SendReportEmailPasswordFile";
/// An integer: the time of the report in seconds of the day; 8:00 without it.
inline constexpr std::string_view time = "SendReportEmailTime";
inline constexpr std::int64_t kUsualTime = 8 * 3600;
/// An integer: when a report comes.
inline constexpr std::string_view frequency = "SendReportEmailFrequency";
inline constexpr std::int64_t kDaily = 0, kOnMondays = 1, kAfterFailures = 2;
}  // namespace MailKey

/// Seconds in the day of "18:30"; nothing for other texts.
std::optional<std::int64_t> secondsOfClock(std::string_view text);
/// The same in digits.
std::string clockOfSeconds(std::int64_t seconds);

/// The `MailSettings::tlsMode` that goes with a security.
std::int64_t tlsModeOf(std::int64_t security);

/// How the user has set up the sending of mail in the main application. What is missing is empty or
/// 0.
MailSettings storedMailSettings(SettingsFiles& settings);

}  // namespace corvana
