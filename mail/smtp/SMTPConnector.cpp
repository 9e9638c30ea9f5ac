#include "mail/smtp/SMTPConnector.h"

#include <utility>

#include "mail/smtp/SMTPTexts.h"
#include "platform/Clock.h"

namespace corvana {
namespace {

constexpr double kOpenTimeout = 10.0;
constexpr double kDataTimeout = 5.0;
constexpr double kSlice = 1.0;
constexpr std::size_t kChunk = 2048;
/// Sums of doubles miss a date by less.
constexpr double kRounding = 1e-6;

}  // namespace

SMTPConnector::SMTPConnector(std::shared_ptr<const ZAN_SMTPClient> client, Network& network,
                             Clock& clock, SMTPCaller caller, SMTPMessage message)
    : mClient(std::move(client)),
      mNetwork(network),
      mClock(clock),
      mCaller(std::move(caller)),
      mMessage(std::move(message)) {}

double SMTPConnector::monotonic() const { return mClock.monotonic(); }

Outcome SMTPConnector::outcome() const {
  if (mSuccess) return {};
  return Error{ErrorKind::unavailable,
               mClient->address() + ": " + (mLastReason.empty() ? "not sent" : mLastReason)};
}

void SMTPConnector::start() {
  std::optional<std::string> failure;
  for (const std::string& port : mClient->ports()) {
    try {
      if (!runSession(integerValue(port))) return;
    } catch (const std::exception& exception) {
      failure = exception.what();
      // A refusal, or what went on after the message was taken, is the better reason.
      if (!mIsRefused) mLastReason = named(*failure);
      log("SMTP Exception: " + *failure);
    }
    closeStream();
    // What a mail server has said to a finished message holds for all of its ports.
    if (mSuccess || (isStandard() && mWasGreeted)) break;
  }
  if (!failure || mSuccess) return;
  const bool isHandshake = failure->find("TLS handshake") != std::string::npos;
  reportError({isHandshake ? SMTPError::kTlsHandshake : 0, *failure});
}

/// False when no port needs to be tried any more, as there is no such machine.
bool SMTPConnector::runSession(std::int64_t port) {
  reset();
  mConnectionStatus = kOpening;
  if (!mNetwork.resolves(mClient->address())) {
    mLastReason = "there is no such machine";
    reportStatus(SMTPClientDelegate::unresolved);
    return false;
  }
  mStream = mNetwork.connect(mClient->address(), port, Network::Family::any);
  mOpenTimeoutTimer = monotonic() + kOpenTimeout;
  mSessionTimer = monotonic() + kSessionTimeout;
  while (mConnectionStatus != kClosed) runSlice();
  return true;
}

void SMTPConnector::reset() {
  closeStream();
  mConnectionStatus = kClosed;
  mIbuffer.clear();
  mObuffer.clear();
  mIsTLS = false;
  mIsSecured = false;
  mIsRefused = false;
  mReceived = 0;
  setSmtpStatus(SMTPClientDelegate::connected);
  mAuthModes.clear();
  mCanStartTLS = false;
  mRcptToCount = 0;
  mReplyLines.clear();
  mRefusals.clear();
  mPrompts = 0;
  reportStatus(mSmtpStatus);
}

void SMTPConnector::closeStream() {
  mStream.reset();
  mOpenTimeoutTimer.reset();
  mDataTimeoutTimer.reset();
  mHandshakeTimer.reset();
  mReplyTimer.reset();
  mSessionTimer.reset();
}

void SMTPConnector::runSlice() {
  double seconds = kSlice;
  const double now = monotonic();
  for (const auto& timer :
       {mOpenTimeoutTimer, mDataTimeoutTimer, mHandshakeTimer, mReplyTimer, mSessionTimer})
    if (timer) seconds = std::min(seconds, std::max(*timer - now, 0.0));
  handleEvent(mStream->wait(seconds, !mObuffer.empty()));
  fireTimers();
}

void SMTPConnector::handleEvent(StreamConnection::Event event) {
  switch (event) {
    case StreamConnection::Event::nothing:
      break;
    case StreamConnection::Event::opened:
      mOpenTimeoutTimer.reset();
      mConnectionStatus = kOpen;
      expectProgress();
      if (isStandard()) {
        if (tlsMode() == ZAN_SMTPClient::kTlsFromTheStart) startTLS();
        break;
      }
      mDataTimeoutTimer = monotonic() + kDataTimeout;
      break;
    case StreamConnection::Event::secured:
      mIsSecured = true;
      mHandshakeTimer.reset();
      mConnectionStatus = kOpen;
      expectProgress();
      trySendingDataNow();
      break;
    case StreamConnection::Event::received:
      receive();
      break;
    case StreamConnection::Event::space:
      trySendingDataNow();
      break;
    case StreamConnection::Event::ended:
      if (!mIsRefused) mLastReason = "the server has closed the connection";
      closeStream();
      mConnectionStatus = kClosed;
      break;
    case StreamConnection::Event::failed:
      streamFailed();
      break;
  }
}

void SMTPConnector::receive() {
  std::size_t count = kChunk;
  while (count == kChunk && mStream != nullptr && mConnectionStatus != kClosed) {
    const std::string bytes = mStream->read(kChunk);
    count = bytes.size();
    mReceived += count;
    if (mReceived > kMostReceived) throw SMTPException("The server talks too much");
    mIbuffer += bytes;
    handleData();
  }
}

void SMTPConnector::streamFailed() {
  mLastReason = mStream->failure();
  if (mStream->isCertificateRefused()) mMustUseTls = true;
  closeStream();
  log("Stream error: " + mLastReason);
  mConnectionStatus = kClosed;
  reportStatus(SMTPClientDelegate::streamFailed);
}

void SMTPConnector::fireTimers() {
  const double now = monotonic() + kRounding;
  const auto isDue = [now](std::optional<double>& timer) {
    if (!timer || *timer > now) return false;
    timer.reset();
    return true;
  };
  if (isDue(mOpenTimeoutTimer)) openTimeout();
  if (isDue(mDataTimeoutTimer)) dataTimeout();
  if (isDue(mHandshakeTimer)) throw SMTPException("The TLS handshake was not finished in time");
  if (isDue(mReplyTimer)) replyTimeout();
  if (isDue(mSessionTimer)) throw SMTPException("The session took too long");
}

void SMTPConnector::openTimeout() {
  mLastReason = "the connection did not open in time";
  reportStatus(SMTPClientDelegate::notOpened);
  reset();
}

/// A server that waits for TLS from the start says nothing.
void SMTPConnector::dataTimeout() {
  if (tlsMode() == 0) {
    throw SMTPException("Connection stalled, probably wants TLS handshake, user said no TLS");
  }
  startTLS();
}

void SMTPConnector::replyTimeout() {
  if (!mIsRefused && !mSuccess) throw SMTPException("The server did not answer in time");
  closeStream();
  mConnectionStatus = kClosed;
}

void SMTPConnector::hangUpSoon() {
  const double soon = monotonic() + kFarewellTimeout;
  mReplyTimer = mReplyTimer ? std::min(*mReplyTimer, soon) : soon;
}

void SMTPConnector::startTLS() {
  mConnectionStatus = kOpening;
  // Whoever sits on the line could have put words in the server's mouth while it was clear.
  mIbuffer.clear();
  mIsTLS = true;
  mHandshakeTimer = monotonic() + kHandshakeTimeout;
  mStream->startTLS(mClient->address());
}

void SMTPConnector::writeLine(const std::string& line) { writeData(line + "\r\n"); }

void SMTPConnector::writeData(std::string_view bytes) {
  mObuffer += bytes;
  if (mConnectionStatus != kClosed) trySendingDataNow();
}

void SMTPConnector::trySendingDataNow() {
  std::size_t sent = 0;
  while (sent < mObuffer.size() && mStream != nullptr) {
    const auto taken = mStream->send(std::string_view(mObuffer).substr(sent));
    if (!taken) {
      log("<SMTPConnector: " + mClient->address() + "> Send error: " + taken.error().text);
      mObuffer.clear();
      return;
    }
    if (*taken == 0) break;
    sent += *taken;
    if (!mIsRefused && !mSuccess) expectProgress();
  }
  mObuffer.erase(0, sent);
}

void SMTPConnector::setSmtpStatus(std::int64_t status) {
  mSmtpStatus = status;
  mSmtpSubstatus = kNone;
  reportStatus(status);
}

void SMTPConnector::reportStatus(std::int64_t status) const {
  const auto& delegate = mClient->delegate();
  if (delegate != nullptr && delegate->reportStatus) delegate->reportStatus(*mClient, status);
}

void SMTPConnector::reportError(const SMTPError& error) const {
  if (takesErrors()) mClient->delegate()->reportError(*mClient, error);
}

void SMTPConnector::reportInformation(const std::string& text) const {
  const auto& delegate = mClient->delegate();
  if (delegate != nullptr && delegate->reportInformation)
    delegate->reportInformation(*mClient, text);
}

bool SMTPConnector::takesErrors() const {
  return mClient->delegate() != nullptr && mClient->delegate()->reportError;
}

void SMTPConnector::log(const std::string& line) const {
  if (mCaller.log) mCaller.log(line);
}

}  // namespace corvana
