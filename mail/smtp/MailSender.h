#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "ZANCocoaFramework/ZAN_Result.h"

namespace corvana {

class Clock;
class Machine;
class Network;
class Processes;
class RunLoop;
class SystemLog;

/// How a mail reaches its server.
struct MailSettings {
  std::string server;
  std::string ports;         ///< one, or several by comma; empty: 25, 465, 587
  std::int64_t tlsMode = 0;  ///< 0 none, 1 when the server offers it, 2 required
  std::string username;
  std::string password;
  std::int64_t authMethod = 0;  ///< 0 none, 1 LOGIN, 2 CRAM-MD5
  std::string sender;
  std::string recipients;  ///< several by comma
  std::int64_t crFormat =
      0;  ///< line ends of the body: 0 by system, 1 "\n" to "<br>", else the reverse
};

/// Sends mail without keeping the caller waiting. Thread: main.
class MailSender {
 public:
  /// Called once on the main thread, after the call that was given it has returned.
  using Done = std::function<void(const Outcome&)>;

  /// What it leans on; everything outlives it and what it has sent.
  struct Surroundings {
    Clock& clock;
    RunLoop& runLoop;
    Machine& machine;
    Processes& processes;
    SystemLog& systemLog;
    Network& network;
  };

  explicit MailSender(const Surroundings& surroundings);
  virtual ~MailSender();

  /// Sends over SMTP, on a thread of its own. Settings without server, sender or recipients are the
  /// returned error, and `done` is not called; else `done` (may be empty) gets the result. Failures
  /// are logged.
  virtual Outcome send(const MailSettings& settings, const std::string& subject,
                       const std::string& body, Done done);

  /// Hands a message to the system's mail program, "/usr/sbin/sendmail", with the recipient as its
  /// only argument. "<br>" becomes a line end; accents and the like are dropped,
  /// what is like nothing in ASCII becomes "?". `done` (may be empty)
  /// gets the error when the program is missing or does not end with 0.
  virtual void sendEmailWithMessage(const std::string& message, const std::string& subject,
                                    const std::string& recipient, Done done);

  /// Whether a message is on its way, which the end of this process would cut off.
  bool isSending() const { return mSessions.use_count() > 1; }

 private:
  const Surroundings m;
  std::shared_ptr<void> mSessions;  ///< held by each message on its way, too
  std::shared_ptr<void> mHere;      ///< held by nobody else: gone with this object
};

}  // namespace corvana
