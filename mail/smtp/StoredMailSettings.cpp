#include "mail/smtp/StoredMailSettings.h"

#include "actions/SettingsFiles.h"

namespace corvana {

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
  return mail;
}

}  // namespace corvana
