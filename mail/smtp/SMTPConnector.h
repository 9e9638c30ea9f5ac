#pragma once

#include <algorithm>
#include <stdexcept>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "mail/smtp/ZAN_SMTPClient.h"
#include "platform/Network.h"

namespace corvana {

/// Why a session ended before its time; the next port is tried.
class SMTPException : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The session that sends one message: it tries the ports of the client, one after the other, until
/// the server of one has taken the message. All of it happens inside `start`, on the thread that
/// calls it.
///
/// Nothing waits for ever: a connection opens within 10 s, a handshake and each step of the
/// dialogue have bounds of their own, and so have the whole and what the server may say. After a
/// certificate was refused nothing is sent in clear any more, to no port.
class SMTPConnector {
 public:
  // Bounds beyond what the dialogue itself knows, in seconds.
  static constexpr double kHandshakeTimeout = 60;
  static constexpr double kReplyTimeout = 300;
  static constexpr double kRefusedTimeout = 30;  ///< for the server to hang up after a refusal
  static constexpr double kQuitTimeout = 10;
  static constexpr double kFarewellTimeout = 1;  ///< for the rest of what is wrong
  /// For the server to hang up after its good-bye; some wait for the client to.
  static constexpr double kGoodByeTimeout = 0.25;
  static constexpr double kSessionTimeout = 1800;
  // And in bytes.
  static constexpr std::size_t kLongestLine = 8192;
  static constexpr std::size_t kMostReceived = 1 << 20;

  /// Network and clock outlive it.
  SMTPConnector(std::shared_ptr<const ZAN_SMTPClient> client, Network& network, Clock& clock,
                SMTPCaller caller, SMTPMessage message);

  /// Sends; returns when the message was taken or every port was tried. Blocks.
  void start();

  /// Whether a server has taken the message.
  bool success() const { return mSuccess; }
  /// The same, with the last reason why not.
  Outcome outcome() const;

  /// For an observer that is told of a refusal: the server may finish its sentence, but is not
  /// waited for any longer.
  void hangUpSoon();

  // For a finished message.
  /// An address that the server has refused, in its words.
  struct Refusal {
    std::string address;
    std::string reason;
    bool isForGood = false;  ///< 5xx: asking again would not help
  };
  /// Those of the session that ended last.
  const std::vector<Refusal>& refusals() const { return mRefusals; }
  /// Whether a server has greeted: it is one, whatever it said then.
  bool wasGreeted() const { return mWasGreeted; }
  /// Whether the end of the message was sent and never answered: it may have been taken.
  bool isDoubtful() const { return mIsBodySent && !mSuccess; }
  /// Called just before the message goes out, and at once when it was taken, on the thread of the
  /// session. Without a yes to the first the message does not go out.
  std::function<Outcome()> onBodyBegins;
  std::function<void()> onTaken;

 private:
  static constexpr std::int64_t kClosed = 0;
  static constexpr std::int64_t kOpening = 1;
  static constexpr std::int64_t kOpen = 2;
  enum Substatus : std::int64_t { kNone = 0, kPlain = 1, kLogin = 2, kCramMd5 = 3 };
  using Reply = std::optional<std::string>;

  // The session
  bool runSession(std::int64_t port);
  void reset();
  void closeStream();
  void runSlice();
  void handleEvent(StreamConnection::Event event);
  void receive();
  void streamFailed();
  void fireTimers();
  void openTimeout();
  void dataTimeout();
  void replyTimeout();
  void startTLS();
  std::int64_t tlsMode() const {
    return mMustUseTls ? std::max<std::int64_t>(mClient->tlsMode(), 2) : mClient->tlsMode();
  }

  // The dialogue
  void handleData();
  void handleLine(const std::string& line);
  void handleCode(std::int64_t code, const Reply& message, char separator);
  void handleRefusal(std::int64_t code, const Reply& message);
  void noteRefusal(std::int64_t code, const std::string& text);
  void handleGreeting();
  void handleExtension(const std::string& text);
  void handleLastExtension();
  bool handleAuthentication(std::int64_t code, const Reply& message);
  void handleSender();
  void handleRecipient();
  void nextRecipient(std::string_view command);
  const EmailAddress& recipientAsked() const;
  std::string named(const std::string& refusal) const;
  void handleAccepted(std::int64_t code);
  void handleFarewell();
  void ehlo();
  void auth();
  void mail();
  void beginAuth(const std::string& line, Substatus mechanism);
  std::string hostName() const;
  bool hasCredentials() const;
  bool offers(std::string_view mechanism) const;

  // The dialogue of a finished message
  bool isStandard() const { return mMessage.isFinished; }
  void handleStandardLine(std::string_view line);
  void handleReply(std::int64_t code);
  void handleGreetingReply(std::int64_t code);
  void handleExtensions(std::int64_t code);
  void handleStandardExtensions();
  void logIn();
  void handleLogIn(std::int64_t code);
  void handleRecipientReply(std::int64_t code);
  void handleDataReply(std::int64_t code);
  void sendBody();
  void giveUp(const std::string& reason);
  std::string replyText() const;

  // Writing
  void writeLine(const std::string& line);
  void writeData(std::string_view bytes);
  void trySendingDataNow();

  // Telling
  void setSmtpStatus(std::int64_t status);
  void reportStatus(std::int64_t status) const;
  void reportError(const SMTPError& error) const;
  void reportInformation(const std::string& text) const;
  bool takesErrors() const;
  void log(const std::string& line) const;

  double monotonic() const;
  void expectProgress() { mReplyTimer = monotonic() + kReplyTimeout; }

  const std::shared_ptr<const ZAN_SMTPClient> mClient;
  Network& mNetwork;
  Clock& mClock;
  const SMTPCaller mCaller;
  const SMTPMessage mMessage;

  std::unique_ptr<StreamConnection> mStream;
  std::string mIbuffer;
  std::string mObuffer;
  std::int64_t mConnectionStatus = kClosed;
  std::int64_t mSmtpStatus = SMTPClientDelegate::connected;
  std::int64_t mSmtpSubstatus = kNone;
  std::vector<std::string> mAuthModes;
  bool mCanStartTLS = false;
  std::int64_t mRcptToCount = 0;
  bool mIsTLS = false;
  bool mIsSecured = false;  ///< the handshake is over
  bool mIsRefused = false;  ///< the server has said no, and nothing more is sent
  bool mMustUseTls = false;
  bool mSuccess = false;
  std::size_t mReceived = 0;  ///< bytes in this session
  std::vector<std::string> mReplyLines;
  std::vector<Refusal> mRefusals;
  std::size_t mPrompts = 0;  ///< of LOGIN, answered
  bool mWasGreeted = false;
  bool mIsBodySent = false;
  std::string mLastReason;

  // When each one-shot timer fires, in monotonic seconds.
  std::optional<double> mOpenTimeoutTimer;
  std::optional<double> mDataTimeoutTimer;
  std::optional<double> mHandshakeTimer;
  std::optional<double> mReplyTimer;
  std::optional<double> mSessionTimer;
};

}  // namespace corvana
