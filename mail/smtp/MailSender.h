#pragma once

#include "ZANCocoaFramework/ZAN_Result.h"
#include "mail/smtp/SMTPConnector.h"
#include "platform/KeyringTool.h"

namespace corvana {

class Clock;
class Machine;
class Network;
class Processes;
class RunLoop;
class SettingsFiles;
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
  /// Set up by this program: mail is sent as finished messages, by the standards.
  bool isStandard = false;
  // Where the password is, if not above.
  bool passwordIsInKeyring = false;  ///< under server and user name
  std::string passwordFile;          ///< its first line; a file that only the user may read

  /// Else by the system's mail program.
  bool goesOverSmtp() const { return !sender.empty() && !server.empty(); }
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

/// Keys beside those of the main application, which this program sets for the accounts that it sets
/// up. Without them everything is as the main application knows it.
namespace MailKey {
/// An integer, non-zero: mail is sent by the standards, reports have their readable form, and what
/// could not be sent waits and is tried again.
inline constexpr std::string_view standard = "SendReportEmailStandard";
/// An integer: how the connection is encrypted.
inline constexpr std::string_view security = "SendReportEmailSecurity";
inline constexpr std::int64_t kInClear = 0, kStartTls = 1, kTlsFromTheStart = 2;
/// An integer, non-zero: the desktop's keyring has the password.
inline constexpr std::string_view passwordInKeyring = "SendReportEmailPasswordInKeyring";
/// A text: the path of a file whose first line is the password.
inline constexpr std::string_view passwordFile = "SendReportEmailPasswordFile";
/// An integer: the time of the report in seconds of the day; 8:00 without it.
inline constexpr std::string_view time = "SendReportEmailTime";
inline constexpr std::int64_t kUsualTime = 8 * 3600;
/// An integer: when a report comes.
inline constexpr std::string_view frequency = "SendReportEmailFrequency";
inline constexpr std::int64_t kDaily = 0, kOnMondays = 1, kAfterFailures = 2;
}  // namespace MailKey

/// Seconds in the day of "18:30"; nothing for other texts.
std::optional<std::int64_t> secondsOfClock(std::string_view text);
/// The same in digits.
std::string clockOfSeconds(std::int64_t seconds);

/// The `MailSettings::tlsMode` that goes with a security.
std::int64_t tlsModeOf(std::int64_t security);

/// How the user has set up the sending of mail in the main application. What is missing is empty or
/// 0.
MailSettings storedMailSettings(SettingsFiles& settings);

}  // namespace corvana
