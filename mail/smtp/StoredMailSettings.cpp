#include "mail/smtp/StoredMailSettings.h"

#include "actions/SettingsFiles.h"
#include "mail/smtp/ZAN_SMTPClient.h"

namespace corvana {

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
