#include "mail/smtp/MailSettings.h"

#include <charconv>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/SettingsFiles.h"
#include "mail/smtp/ZAN_SMTPClient.h"

namespace corvana {

std::optional<std::int64_t> secondsOfClock(std::string_view text) {
  int hour = 0, minute = 0;
  const char* end = text.data() + text.size();
  const auto [colon, error] = std::from_chars(text.data(), end, hour);
  if (error != std::errc() || colon == end || *colon != ':') return std::nullopt;
  const auto [stop, wrong] = std::from_chars(colon + 1, end, minute);
  if (wrong != std::errc() || stop != end || hour < 0 || hour > 23 || minute < 0 || minute > 59)
    return std::nullopt;
  return hour * 3600 + minute * 60;
}

std::string clockOfSeconds(std::int64_t seconds) {
  return ZAN_StringUtils::twoDigits(seconds / 3600) + ":" +
         ZAN_StringUtils::twoDigits(seconds / 60 % 60);
}

std::int64_t tlsModeOf(std::int64_t security) {
  if (security == MailKey::kInClear) return 0;
  return security == MailKey::kStartTls ? 2 : ZAN_SMTPClient::kTlsFromTheStart;
}

MailSettings storedMailSettings(SettingsFiles& files) {
  const ZAN_Value settings = files.mainAppSettings();
  MailSettings mail;
  mail.recipients = settings.string("SendReportEmailAddress");
  mail.sender = settings.string("SendReportEmailSender");
  mail.server = settings.string("SendReportEmailSMTPServer");
  mail.ports = settings.string("SendReportEmailSMTPServerPort");
  mail.username = settings.string("SendReportEmailSMTPServerLogin");
  mail.password = SettingsFiles::decompressPassword(settings["SendReportEmailSMTPServerPassword"]);
  mail.authMethod = settings.integer("SendReportEmailSMTPServerAuthMethod");
  mail.tlsMode = settings.integer("SendReportEmailSMTPServerUseTLSCB") != 0 ? 2 : 0;
  mail.crFormat = settings.integer("SendReportEmailCRMode");
  mail.isStandard = settings.integer(MailKey::standard) != 0;
  if (!mail.isStandard) return mail;
  mail.tlsMode = tlsModeOf(settings.integer(MailKey::security));
  mail.passwordFile = settings.string(MailKey::passwordFile);
  mail.passwordIsInKeyring = settings.integer(MailKey::passwordInKeyring) != 0;
  return mail;
}

}  // namespace corvana
