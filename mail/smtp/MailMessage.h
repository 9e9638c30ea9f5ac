#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Time.h"
#include "mail/smtp/EmailAddress.h"

namespace corvana {

/// A message as mail programs exchange it, by the standards: RFC 5322 and MIME.
struct MailMessage {
  EmailAddress from;
  std::vector<EmailAddress> to;
  std::string subject;
  std::string text;  ///< plain, its lines end in "\n"
  std::string html;  ///< the same for readers that show it; empty: only the plain text
  ReferenceTime date = 0;
  int utcOffset = 0;      ///< of the sender, seconds east of Greenwich
  std::string messageId;  ///< with its angle brackets

  /// Header and body in lines that end in CR LF and are short enough for every server: texts in
  /// base64, headers in encoded words where they are not plain ASCII.
  std::string wireForm() const;

  /// One of its own for each message, also across restarts and machines: "<…@domain>".
  static std::string newMessageId(ReferenceTime date, const EmailAddress& from);

  /// A text on one line, in encoded words where it is not plain ASCII.
  static std::string headerText(std::string_view text);
  /// A header with its name, folded into lines that `lineEnd` ends.
  static std::string header(std::string_view name, std::string_view text, std::string_view lineEnd);
  /// base64 in lines of 76 characters that `lineEnd` ends.
  static std::string base64Lines(std::string_view text, std::string_view lineEnd);
};

/// Texts as they stand in HTML: nothing of them is markup.
std::string htmlEscaped(std::string_view text);

}  // namespace corvana
