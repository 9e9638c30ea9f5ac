#pragma once

#include "mail/smtp/MailSender.h"

namespace corvana {

class SettingsFiles;

/// How the user has set up the sending of mail in the main application. What is missing is empty or
/// 0.
MailSettings storedMailSettings(SettingsFiles& settings);

}  // namespace corvana
