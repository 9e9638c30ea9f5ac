// What the session says, by what the server says.
#include <algorithm>

#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/SMTPTexts.h"

namespace corvana {
namespace {

using Status = SMTPClientDelegate;

constexpr std::size_t kLongestHostName = 127;
constexpr std::string_view kNoMechanism =
    "Server doesn't allow any authentication techniques supported by this client.";

/// How a reply is told to an observer.
std::string described(std::int64_t code, const std::optional<std::string>& message) {
  const std::string text = "Code: " + std::to_string(code);
  return message && !message->empty() ? text + " - Message: " + *message : text;
}

}  // namespace

void SMTPConnector::handleData() {
  if (!mIbuffer.empty()) mDataTimeoutTimer.reset();
  for (;;) {
    const std::size_t end = mIbuffer.find("\r\n");
    if (end == std::string::npos) break;
    const std::string line = mIbuffer.substr(0, end);
    mIbuffer.erase(0, end + 2);
    // It may clear the buffer.
    if (!line.empty()) handleLine(line);
    if (mConnectionStatus == kClosed) return;
  }
  if (mIbuffer.size() > kLongestLine) throw SMTPException("A reply of the server is too long");
}

void SMTPConnector::handleLine(const std::string& line) {
  if (isStandard()) return handleStandardLine(line);
  const SplitText reply = splitStringAtCharacterFromSet(line, " -");
  const std::int64_t code = integerValue(reply.first);
  if (code == 0) throw SMTPException("Couldn't parse line");
  handleCode(code, reply.rest, reply.separator);
}

void SMTPConnector::handleCode(std::int64_t code, const Reply& message, char separator) {
  if (code != 334) reportInformation(described(code, message));
  if (code >= 500 || code == 421) return handleRefusal(code, message);
  switch (mSmtpStatus) {
    case Status::connected:
      if (code == 220) return handleGreeting();
      break;
    case Status::helo:
    case Status::ehlo:
      if (code == 250 && separator == '-') return handleExtension(message.value_or(""));
      if (code == 250) return handleLastExtension();
      break;
    case Status::starttls:
      if (code == 220) {
        startTLS();
        return ehlo();
      }
      break;
    case Status::auth:
      if (handleAuthentication(code, message)) return;
      break;
    case Status::mailFrom:
      if (code == 250) return handleSender();
      break;
    case Status::rcptTo:
      if (code == 250) return handleRecipient();
      break;
    case Status::data:
      if (code == 354) return writeData(mMessage.dataBlock());
      if (code == 250 || code == 0) return handleAccepted(code);
      break;
    case Status::quit:
      if (code == 221 || code == 0) return handleFarewell();
      break;
    default:
      break;
  }
  throw SMTPException("Don't know how to act with status " + std::to_string(mSmtpStatus) +
                      ", code " + std::to_string(code));
}

/// The server says no: nothing more is sent, and the session ends when the server hangs up.
void SMTPConnector::handleRefusal(std::int64_t code, const Reply& message) {
  const std::string text = message.value_or("");
  noteRefusal(code, text);
  if (takesErrors()) {
    reportError({code, text});
  } else if (code == 421) {
    log("Connection timeout...");
  } else if (code == 535) {
    log("Authentication failure...");
  } else {
    throw SMTPException("Error " + std::to_string(code) + ": " + text);
  }
}

/// A refusal may take several lines; they are one reason and share one patience.
void SMTPConnector::noteRefusal(std::int64_t code, const std::string& text) {
  if (!mIsRefused) {
    mIsRefused = true;
    mLastReason = named(std::to_string(code) + " " + text);
    mReplyTimer = monotonic() + kRefusedTimeout;
  } else if (mLastReason.size() < kLongestLine) {
    mLastReason += "; " + text;
  }
}

void SMTPConnector::handleGreeting() {
  if ((!mIsTLS && tlsMode() != 0) || hasCredentials()) return ehlo();
  writeLine("HELO " + hostName());
  setSmtpStatus(Status::helo);
}

void SMTPConnector::handleExtension(const std::string& text) {
  const SplitText words = splitStringAtCharacterFromSet(text, " \t");
  if (words.first == "AUTH") mAuthModes = splitAtWhitespace(words.rest.value_or(""));
  if (words.first == "STARTTLS") mCanStartTLS = true;
}

void SMTPConnector::handleLastExtension() {
  if (mIsTLS || tlsMode() == 0) return auth();
  if (mCanStartTLS) {
    writeLine("STARTTLS");
    setSmtpStatus(Status::starttls);
    return;
  }
  if (tlsMode() == 2) throw SMTPException("Server doesn't support STARTTLS");
  auth();
}

void SMTPConnector::ehlo() {
  writeLine("EHLO " + hostName());
  setSmtpStatus(Status::ehlo);
}

std::string SMTPConnector::hostName() const {
  const std::string name = inOneLine(mCaller.hostName).substr(0, kLongestHostName);
  return name.find('.') == std::string::npos ? name + ".local" : name;
}

bool SMTPConnector::hasCredentials() const {
  return mClient->username().has_value() && mClient->password().has_value();
}

bool SMTPConnector::offers(std::string_view mechanism) const {
  return std::ranges::find(mAuthModes, mechanism) != mAuthModes.end();
}

void SMTPConnector::beginAuth(const std::string& line, Substatus mechanism) {
  writeLine(line);
  setSmtpStatus(Status::auth);
  mSmtpSubstatus = mechanism;
}

void SMTPConnector::auth() {
  if (!hasCredentials()) return mail();
  const std::int64_t method = mClient->authMethod();
  if ((method == 0 || method == 2) && offers("CRAM-MD5"))
    return beginAuth("AUTH CRAM-MD5", kCramMd5);
  if (method == 0 && offers("PLAIN")) {
    const std::string zero(1, '\0');
    const std::string& user = *mClient->username();
    return beginAuth("AUTH PLAIN " + base64Of(user + zero + user + zero + *mClient->password()),
                     kPlain);
  }
  // The one is asked for, the other is spoken: so servers know this client.
  if ((method == 0 && offers("LOGIN")) || (method == 1 && offers("PLAIN")))
    return beginAuth("AUTH LOGIN", kLogin);
  throw SMTPException(std::string(kNoMechanism));
}

/// False for a reply that has no place here.
bool SMTPConnector::handleAuthentication(std::int64_t code, const Reply& message) {
  if (mSmtpSubstatus == kNone) return false;
  if (code == 235) {
    mail();
    return true;
  }
  if (code != 334 || mSmtpSubstatus == kPlain) return false;
  const std::string prompt = fromBase64(message.value_or("")).value_or("");
  reportInformation("Code: 334 - Message: " + prompt);
  if (mSmtpSubstatus == kCramMd5)
    writeLine(base64Of(*mClient->username() + " " + cramMD5(prompt, *mClient->password())));
  else if (prompt == "Username:")
    writeLine(base64Of(*mClient->username()));
  else if (prompt == "Password:")
    writeLine(base64Of(*mClient->password()));
  else
    mail();
  return true;
}

void SMTPConnector::mail() {
  writeLine("MAIL FROM: <" + mMessage.from.email + ">");
  setSmtpStatus(Status::mailFrom);
}

/// One address after the other: servers take it amiss when several are named in one breath.
void SMTPConnector::handleSender() {
  mRcptToCount = static_cast<std::int64_t>(mMessage.to.size());
  setSmtpStatus(Status::rcptTo);
  nextRecipient("RCPT TO: ");
}

void SMTPConnector::handleRecipient() {
  if (--mRcptToCount != 0) return nextRecipient("RCPT TO: ");
  writeLine("DATA");
  setSmtpStatus(Status::data);
}

const EmailAddress& SMTPConnector::recipientAsked() const {
  return mMessage.to[mMessage.to.size() - static_cast<std::size_t>(mRcptToCount)];
}

void SMTPConnector::nextRecipient(std::string_view command) {
  const std::string& email = recipientAsked().email;
  const bool isBare = email.find_first_of("<>") == std::string::npos;
  writeLine(std::string(command) + (isBare ? "<" + email + ">" : email));
}

/// With the address, where the server said it of one.
std::string SMTPConnector::named(const std::string& refusal) const {
  if (mSmtpStatus != Status::rcptTo || mRcptToCount <= 0) return refusal;
  return recipientAsked().email + " was refused: " + refusal;
}

/// Nothing is left to say; some servers leave the hanging up to the client.
void SMTPConnector::handleFarewell() { mReplyTimer = monotonic() + kGoodByeTimeout; }

void SMTPConnector::handleAccepted(std::int64_t code) {
  mSuccess = true;
  mReplyTimer = monotonic() + kQuitTimeout;
  writeLine("QUIT");
  setSmtpStatus(Status::quit);
  if (code == 0) reset();
}

}  // namespace corvana
