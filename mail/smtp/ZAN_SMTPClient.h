#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "mail/smtp/MailMessage.h"

namespace corvana {

class Clock;
class Network;
class RunLoop;
class SMTPConnector;
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

/// Who calls a server. `log` gets one line a call, on the thread of the session.
struct SMTPCaller {
  std::string hostName;   ///< of this machine
  int systemVersion = 0;  ///< 10.8.0 is 100800; 0: not known
  std::function<void(const std::string& line)> log;
};

/// A mail server and how to log in there. Each message makes a session of its own, which only reads
/// this object; so it may be shared once it is set up. Thread: any.
class ZAN_SMTPClient : public std::enable_shared_from_this<ZAN_SMTPClient> {
  struct Key {};

 public:
  /// A `tlsMode` for finished messages: encrypted before anything is said.
  static constexpr std::int64_t kTlsFromTheStart = 3;

  /// `ports`: one, or several by comma, with or without blanks; empty: 25, 465, 587. Blanks alone
  /// do not separate. `tlsMode`: 0 none, 1 when the server offers it, 2 required.
  /// `preferedAuthMethod`: 0 none, 1 LOGIN, 2 CRAM-MD5; with 0 the credentials are dropped.
  /// Throws std::invalid_argument "Invalid server address" for an empty address.
  static std::shared_ptr<ZAN_SMTPClient> clientWithServerAddress(
      const std::string& address, const std::string& ports, std::int64_t tlsMode,
      const std::string& username, const std::string& password, std::int64_t preferedAuthMethod);
  ZAN_SMTPClient(Key, const std::string& address, const std::string& ports, std::int64_t tlsMode,
                 const std::string& username, const std::string& password,
                 std::int64_t preferedAuthMethod);

  const std::string& address() const { return mAddress; }
  const std::vector<std::string>& ports() const { return mPorts; }
  std::int64_t tlsMode() const { return mTlsMode; }
  std::int64_t authMethod() const { return mAuthMethod; }
  const std::optional<std::string>& username() const { return mAuthUsername; }
  const std::optional<std::string>& password() const { return mAuthPassword; }
  const std::shared_ptr<const SMTPClientDelegate>& delegate() const { return mDelegate; }

  /// Set later, they count with method 0 too, which then takes the best that the server offers.
  void setCredentials(std::optional<std::string> username, std::optional<std::string> password);
  void setDelegate(std::shared_ptr<const SMTPClientDelegate> delegate);

  /// Line ends of a body. Format 1 makes each "\n" a "<br>"; 0 does the same from system 10.8 on;
  /// anything else makes each "<br>" a "\n".
  static std::string message(const std::string& text, std::int64_t crFormat, int systemVersion);

  /// Sends on a thread of its own and returns; the outcome is told to the delegate and in the log.
  /// Sender and recipients (by comma) count in lower case, "address" or "Name <address>"; when one
  /// of them is no address nothing is sent. Throws std::invalid_argument: "Empty sender email
  /// address", "Empty destination email address", "Invalid server address". Waits for the name
  /// service. Network and clock outlive the session.
  void sendMessage(RunLoop& runLoop, Network& network, Clock& clock, const SMTPCaller& caller,
                   const std::string& message, const std::string& subject, const std::string& from,
                   const std::string& to, std::int64_t crFormat) const;

  /// The same without starting it: a session for the caller's own thread. Null when nothing is to
  /// be sent.
  std::shared_ptr<SMTPConnector> connectorForMessage(Network& network, Clock& clock,
                                                     const SMTPCaller& caller,
                                                     const std::string& message,
                                                     const std::string& subject,
                                                     const std::string& from, const std::string& to,
                                                     std::int64_t crFormat) const;

 private:
  static std::vector<std::string> portsFrom(const std::string& text);

  std::string mAddress;
  std::vector<std::string> mPorts;
  std::int64_t mTlsMode;
  std::int64_t mAuthMethod;
  std::optional<std::string> mAuthUsername;
  std::optional<std::string> mAuthPassword;
  std::shared_ptr<const SMTPClientDelegate> mDelegate;
};

}  // namespace corvana
