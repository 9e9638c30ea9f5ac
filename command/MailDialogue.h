#pragma once

#include <string>

#include "command/Commands.h"
#include "mail/smtp/MailSender.h"

namespace corvana {

/// Sends one message over SMTP and prints the dialogue as it happens: "status N", "info TEXT",
/// "error CODE TEXT", or one JSON object a line. Reasons that are no part of it go to `err`. Gives
/// the exit code. Blocks.
int printMailDialogue(const MailSettings& settings, const std::string& subject,
                      const std::string& body, bool json, const Console& console);

}  // namespace corvana
