#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "mail/smtp/MailSettings.h"
#include "mail/smtp/SMTPConnector.h"
#include "platform/KeyringTool.h"

namespace corvana {

class Clock;
class Machine;
class Network;
class Processes;
class RunLoop;
class SystemLog;

/// The simplest way to hand a message to a mail server. The way by the system's mail program is
/// MailSender's.
class ZAN_WebUtils {
 public:
  enum class MailError { unresolved = 1, noSocket = 2, notConnected = 3, notSent = 4 };

  /// Says the whole dialogue to port 25 in one breath, without encryption and without reading a
  /// single reply, waits 2 s and hangs up. "<br>" of the text becomes a line end. Nothing when
  /// every byte was taken. Throws std::invalid_argument "sendMailTo bad parameters" for a sender
  /// without recipient. Blocks.
  static std::optional<MailError> sendMailTo(Network& network, Clock& clock,
                                             const std::optional<std::string>& recipient,
                                             const std::optional<std::string>& sender,
                                             const std::string& subject, const std::string& text,
                                             const std::string& server);

  /// "<br>" as line ends.
  static std::string withLineEnds(std::string text);
};

/// A finished message and whom it goes to.
struct FinishedMail {
  std::string sender;
  std::vector<std::string> recipients;
  std::string message;  ///< see MailMessage
};

/// How it went.
struct Delivery {
  bool isTaken = false;      ///< by the server, for all recipients but the refused
  bool isDoubtful = false;   ///< it may have been taken: the connection broke before the answer
  bool wasAnswered = false;  ///< a mail server was reached, whatever it said
  std::string reason;        ///< why not
  std::vector<SMTPConnector::Refusal> refusals;
};

/// Sends mail without keeping the caller waiting. Thread: main.
class MailSender {
 public:
  /// Called once on the main thread, after the call that was given it has returned.
  using Done = std::function<void(const Outcome&)>;

  /// Everything outlives it and what it has sent.
  MailSender(Clock& clock, RunLoop& runLoop, Machine& machine, Processes& processes,
             SystemLog& systemLog, Network& network);
  virtual ~MailSender();

  /// Sends over SMTP, on a thread of its own. Settings without server, sender or recipients are the
  /// returned error, and `done` is not called; else `done` (may be empty) gets the result. Failures
  /// are logged.
  virtual Outcome send(const MailSettings& settings, const std::string& subject,
                       const std::string& body, Done done);

  /// What a delivery calls on its own thread: before the message goes out, which a failure
  /// prevents, and as soon as it was taken, with the refused.
  struct Steps {
    std::function<Outcome()> bodyBegins;
    std::function<void(const std::vector<SMTPConnector::Refusal>&)> taken;
  };
  /// Sends a finished message over SMTP, on a thread of its own. `done` gets the result on the main
  /// thread. Observed by `delegate`, if there is one, on the session's.
  virtual void deliver(const MailSettings& settings, const FinishedMail& mail, Steps steps,
                       std::function<void(const Delivery&)> done,
                       std::shared_ptr<const SMTPClientDelegate> delegate = {});

  /// Hands a message to the system's mail program, "/usr/sbin/sendmail", with the recipient as its
  /// only argument. "<br>" becomes a line end. Plain ASCII goes as it is; anything else, and a line
  /// that is a single dot, which would end the message, as MIME in UTF-8. `done` (may be empty)
  /// gets the error when the program is missing or does not end with 0.
  virtual void sendEmailWithMessage(const std::string& message, const std::string& subject,
                                    const std::string& recipient, Done done);

  /// Whether a message is on its way, which the end of this process would cut off.
  bool isSending() const { return mSessions.use_count() > 1; }

  /// By which the keyring knows the account's password.
  static KeyringTool::Attributes keyringAttributes(const MailSettings& settings);

 private:
  SMTPCaller caller() const;

  Clock& mClock;
  RunLoop& mRunLoop;
  Machine& mMachine;
  Processes& mProcesses;
  SystemLog& mSystemLog;
  Network& mNetwork;
  std::shared_ptr<void> mSessions;  ///< held by each message on its way, too
  std::shared_ptr<void> mHere;      ///< held by nobody else: gone with this object
};

}  // namespace corvana
