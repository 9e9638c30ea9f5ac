#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "mail/smtp/MailSender.h"

namespace corvana {

class SettingsFiles;

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
