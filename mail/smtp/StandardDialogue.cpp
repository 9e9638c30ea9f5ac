// What the session of a finished message says, by what the server says.
#include <algorithm>

#include "ZANCocoaFramework/ZAN_DataUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "mail/smtp/SMTPConnector.h"
#include "mail/smtp/SMTPTexts.h"

namespace corvana {
namespace {

using Status = SMTPClientDelegate;

constexpr std::size_t kMostReplyLines = 200;
constexpr double kBodyTimeout = 600;  // a server may look for viruses first

bool isYes(std::int64_t code) { return code >= 200 && code < 300; }
bool isForGood(std::int64_t code) { return code >= 500; }

}  // namespace

/// A reply has lines "250-text" and a last one "250 text".
void SMTPConnector::handleStandardLine(std::string_view line) {
  const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
  const std::string_view digits = line.substr(0, 3);
  const char separator = line.size() > 3 ? line[3] : ' ';
  if (digits.size() < 3 || !std::ranges::all_of(digits, isDigit) ||
      (separator != ' ' && separator != '-'))
    throw SMTPException("This is no mail server: \"" + inOneLine(line.substr(0, 80)) + "\"");
  const std::int64_t code = integerValue(digits);
  mReplyLines.push_back(inOneLine(line.size() > 4 ? line.substr(4) : std::string_view()));
  if (code != 334)
    reportInformation("Code: " + std::to_string(code) + " - Message: " + mReplyLines.back());
  if (mReplyLines.size() > kMostReplyLines)
    throw SMTPException("A reply of the server is too long");
  if (separator == '-') return;
  if (isForGood(code) || code == 421) reportError({code, replyText()});
  handleReply(code);
  mReplyLines.clear();
}

std::string SMTPConnector::replyText() const {
  std::string text;
  for (const std::string& line : mReplyLines) text += (text.empty() ? "" : " ") + line;
  return text;
}

void SMTPConnector::handleReply(std::int64_t code) {
  if (mIsRefused || mSuccess) {
    if (mSmtpStatus == Status::quit) handleFarewell();
    return;
  }
  const std::string refusal = std::to_string(code) + " " + replyText();
  switch (mSmtpStatus) {
    case Status::connected:
      return handleGreetingReply(code);
    case Status::ehlo:
      return handleExtensions(code);
    case Status::helo:
      return isYes(code) ? logIn() : giveUp(refusal);
    case Status::starttls:
      if (code != 220) return giveUp("STARTTLS: " + refusal);
      // What was said in clear is hearsay.
      mAuthModes.clear();
      mCanStartTLS = false;
      startTLS();
      return ehlo();
    case Status::auth:
      return handleLogIn(code);
    case Status::mailFrom:
      if (!isYes(code)) return giveUp(mMessage.from.email + " as sender: " + refusal);
      mRcptToCount = static_cast<std::int64_t>(mMessage.to.size());
      setSmtpStatus(Status::rcptTo);
      return nextRecipient("RCPT TO:");
    case Status::rcptTo:
      return handleRecipientReply(code);
    case Status::data:
      return handleDataReply(code);
    default:
      return giveUp(refusal);
  }
}

void SMTPConnector::handleGreetingReply(std::int64_t code) {
  mWasGreeted = true;
  if (code != 220) return giveUp(std::to_string(code) + " " + replyText());
  ehlo();
}

void SMTPConnector::handleExtensions(std::int64_t code) {
  if (isYes(code)) {
    handleStandardExtensions();
    if (mIsTLS || tlsMode() == 0) return logIn();
    if (mCanStartTLS) {
      writeLine("STARTTLS");
      return setSmtpStatus(Status::starttls);
    }
    if (tlsMode() >= 2) return giveUp("the server offers no encryption (STARTTLS)");
    return logIn();
  }
  // Servers of the old days know only the old greeting; nothing can be asked of them.
  if (!isForGood(code) || hasCredentials() || (tlsMode() >= 2 && !mIsTLS))
    return giveUp(std::to_string(code) + " " + replyText());
  writeLine("HELO " + hostName());
  setSmtpStatus(Status::helo);
}

void SMTPConnector::handleStandardExtensions() {
  for (std::size_t i = 1; i < mReplyLines.size(); ++i) {
    const auto words = splitAtWhitespace(lowercase(mReplyLines[i]));
    if (words.front() == "starttls") mCanStartTLS = true;
    if (words.front() != "auth") continue;
    for (const std::string& word : words) mAuthModes.push_back(word);
  }
}

/// The best that both sides know. In clear, if the user wants that, a word that only proves the
/// password goes first; encrypted, what every server knows.
void SMTPConnector::logIn() {
  if (!hasCredentials()) {
    writeLine("MAIL FROM:<" + mMessage.from.email + ">");
    return setSmtpStatus(Status::mailFrom);
  }
  const bool prefersProof = !mIsTLS || mClient->authMethod() == 2;
  if (prefersProof && offers("cram-md5")) return beginAuth("AUTH CRAM-MD5", kCramMd5);
  if (offers("plain")) {
    const std::string zero(1, '\0');
    return beginAuth(
        "AUTH PLAIN " + base64Of(zero + *mClient->username() + zero + *mClient->password()),
        kPlain);
  }
  if (offers("login")) return beginAuth("AUTH LOGIN", kLogin);
  if (offers("cram-md5")) return beginAuth("AUTH CRAM-MD5", kCramMd5);
  giveUp(mAuthModes.empty() ? "the server offers no way to log in"
                            : "the server offers no way to log in that is known here");
}

void SMTPConnector::handleLogIn(std::int64_t code) {
  if (code == 235) {
    writeLine("MAIL FROM:<" + mMessage.from.email + ">");
    return setSmtpStatus(Status::mailFrom);
  }
  if (code != 334) {
    return giveUp("logging in as " + *mClient->username() + ": " + std::to_string(code) + " " +
                  replyText());
  }
  const std::string prompt = fromBase64(replyText()).value_or("");
  reportInformation("Code: 334 - Message: " + prompt);
  if (mSmtpSubstatus == kCramMd5) {
    writeLine(
        base64Of(*mClient->username() + " " + lowercase(cramMD5(prompt, *mClient->password()))));
  } else if (mSmtpSubstatus == kLogin && mPrompts < 2) {
    // The wording differs from server to server, the order does not.
    writeLine(base64Of(mPrompts++ == 0 ? *mClient->username() : *mClient->password()));
  } else {
    writeLine("*");
  }
}

/// Who is refused does not keep the mail from the others.
void SMTPConnector::handleRecipientReply(std::int64_t code) {
  if (!isYes(code)) {
    mRefusals.push_back(
        {recipientAsked().email, std::to_string(code) + " " + replyText(), isForGood(code)});
    if (code == 421) return giveUp(mRefusals.back().reason);
  }
  if (--mRcptToCount != 0) return nextRecipient("RCPT TO:");
  if (mRefusals.size() == mMessage.to.size())
    return giveUp(mRefusals.front().address + " was refused: " + mRefusals.front().reason);
  writeLine("DATA");
  setSmtpStatus(Status::data);
}

void SMTPConnector::handleDataReply(std::int64_t code) {
  if (!mIsBodySent) {
    if (code != 354) return giveUp(std::to_string(code) + " " + replyText());
    return sendBody();
  }
  if (!isYes(code)) {
    mIsBodySent = false;
    return giveUp(std::to_string(code) + " " + replyText());
  }
  if (onTaken) onTaken();
  mSuccess = true;
  mReplyTimer = monotonic() + kQuitTimeout;
  writeLine("QUIT");
  setSmtpStatus(Status::quit);
}

void SMTPConnector::sendBody() {
  if (onBodyBegins) {
    if (const Outcome noted = onBodyBegins(); !noted) throw SMTPException(noted.error().text);
  }
  mIsBodySent = true;
  writeData(mMessage.dataBlock());
  mReplyTimer = monotonic() + kBodyTimeout;
}

/// Nothing more is sent but a good-bye.
void SMTPConnector::giveUp(const std::string& reason) {
  mLastReason = reason;
  mIsRefused = true;
  writeLine("QUIT");
  setSmtpStatus(Status::quit);
  mReplyTimer = monotonic() + kFarewellTimeout;
}

}  // namespace corvana
