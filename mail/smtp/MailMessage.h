#pragma once

#include <optional>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "ZANCocoaFramework/ZAN_Time.h"

namespace corvana {

/// An e-mail address, with the name that is shown for it.
struct EmailAddress {
  std::string email;
  std::optional<std::string> description;  ///< nothing when there is no name, or an empty one

  /// Whether the whole text is an address. Lower-case letters only: lower-case it first. Quoted
  /// local parts and addresses of machines in brackets are known; a name needs a dot. Takes time in
  /// proportion to the length.
  static bool validateEmail(std::string_view text);

  /// Reads "address" or "Name <address>"; nothing when there is no valid address. Of a name the
  /// last character, which stands before "<", is dropped whatever it is: it should be a blank.
  static std::optional<EmailAddress> splitAddress(std::string_view text);

  /// Reads addresses with commas between them as mail programs write them: "address", "Name
  /// <address>" or "\"Name, with anything\" <address>". Names and addresses stay as written. An
  /// error names what is no address; a list without any is one.
  static Result<std::vector<EmailAddress>> list(std::string_view text);
};

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
