#pragma once

#include <string>
#include <vector>

#include "mail/smtp/EmailAddress.h"

namespace corvana {

/// What a session sends.
struct SMTPMessage {
  /// `message` is all of it, header and body, in lines that end in CR LF; `subject` does not count.
  /// The session then follows the standard where it otherwise keeps to old habits.
  bool isFinished = false;
  std::string message;  ///< the body, HTML, its line ends as they are to be
  std::string subject;
  EmailAddress from;
  std::vector<EmailAddress> to;

  /// Header and body as they go over the wire, the final dot included. Of an unfinished one the
  /// body is in base64, its pieces of 76 characters joined by line feeds alone.
  std::string dataBlock() const;
};

}  // namespace corvana
