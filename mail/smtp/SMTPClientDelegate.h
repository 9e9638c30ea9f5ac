#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

namespace corvana {

class ZAN_SMTPClient;

/// What an observer of a session is told of a failure.
struct SMTPError {
  static constexpr std::string_view kDomain = "SMTPClientErrorDomain";
  static constexpr std::int64_t kInvalidAddress = 1;
  static constexpr std::int64_t kTlsHandshake = 901;

  std::int64_t code = 0;   ///< the server's own code, one of the above, or 0: a text without a code
  std::string messageKey;  ///< the text
};

/// An observer of sessions; each part may be missing. Called on the thread of the session.
struct SMTPClientDelegate {
  /// Status numbers of the dialogue, and those that no dialogue has.
  enum Status : std::int64_t {
    connected = 0,
    helo = 1,
    ehlo = 2,
    starttls = 3,
    auth = 4,
    mailFrom = 5,
    rcptTo = 6,
    data = 7,
    quit = 8,
    unresolved = 9,  ///< the server's name leads nowhere
    notOpened = 10,  ///< the connection did not open in time
    streamFailed = 11,
  };

  std::function<void(const ZAN_SMTPClient&, std::int64_t status)> reportStatus;
  std::function<void(const ZAN_SMTPClient&, const SMTPError&)> reportError;
  std::function<void(const ZAN_SMTPClient&, const std::string& text)> reportInformation;
};

}  // namespace corvana
