#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"

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

}  // namespace corvana
