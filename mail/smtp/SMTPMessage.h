#pragma once

#include <string>
#include <vector>

#include "mail/smtp/EmailAddress.h"

namespace corvana {

/// What a session sends.
struct SMTPMessage {
  std::string message;  ///< the body, HTML, its line ends as they are to be
  std::string subject;
  EmailAddress from;
  std::vector<EmailAddress> to;

  /// Header and body as they go over the wire, the final dot included. The body is in base64, its
  /// pieces of 76 characters joined by line feeds alone.
  std::string dataBlock() const;
};

}  // namespace corvana
