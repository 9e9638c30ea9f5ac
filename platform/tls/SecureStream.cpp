#include "platform/tls/SecureStream.h"

#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslError>
#include <QSslSocket>
#include <algorithm>
#include <cmath>

namespace corvana {

namespace {

/// So much may wait inside the socket before it takes no more.
constexpr qint64 kMostUnsent = 1 << 16;

QSslConfiguration configuration() {
  QSslConfiguration made = QSslConfiguration::defaultConfiguration();
  made.setPeerVerifyMode(QSslSocket::VerifyPeer);
  // Qt knows the system's authorities; of this variable, which other programs heed, it does not.
  const QString file = qEnvironmentVariable("SSL_CERT_FILE");
  if (!file.isEmpty()) made.addCaCertificates(file);
  return made;
}

std::string firstOf(const QStringList& names) {
  return names.isEmpty() ? std::string("?") : names.first().toStdString();
}

std::string described(const QSslCertificate& certificate) {
  QStringList names = certificate.subjectAlternativeNames().values();
  if (names.isEmpty()) names = certificate.subjectInfo(QSslCertificate::CommonName);
  return "it is for " + (names.isEmpty() ? std::string("?") : names.join(", ").toStdString()) +
         ", issued by " + firstOf(certificate.issuerInfo(QSslCertificate::CommonName)) +
         ", valid until " +
         certificate.expiryDate().toUTC().toString("yyyy-MM-dd HH:mm").toStdString() + " UTC";
}

std::string reasonOf(const QSslError& error, const std::string& peerName) {
  switch (error.error()) {
    case QSslError::HostNameMismatch:
      return "the certificate is not for " + peerName;
    case QSslError::CertificateExpired:
      return "the certificate has expired";
    case QSslError::CertificateNotYetValid:
      return "the certificate is not valid yet";
    case QSslError::SelfSignedCertificate:
    case QSslError::SelfSignedCertificateInChain:
    case QSslError::UnableToGetIssuerCertificate:
    case QSslError::UnableToGetLocalIssuerCertificate:
    case QSslError::CertificateUntrusted:
    case QSslError::UnableToVerifyFirstCertificate:
      return "the certificate comes from an unknown authority";
    default:
      return error.errorString().toStdString();
  }
}

}  // namespace

class SecureStream::Socket : public QSslSocket {};

SecureStream::SecureStream(ZAN_Descriptor socket, const std::string& peerName)
    : mSocket(std::make_unique<Socket>()), mPeerName(peerName) {
  if (!QSslSocket::supportsSsl()) {
    mFailure = "TLS handshake failed: there is no TLS library";
    return;
  }
  mSocket->setSslConfiguration(configuration());
  mSocket->setPeerVerifyName(QString::fromStdString(peerName));
  if (!socket || !mSocket->setSocketDescriptor(socket.get())) {
    mFailure = "TLS handshake failed: the connection is gone";
    return;
  }
  // It belongs to the encrypting socket from now on.
  static_cast<void>(socket.release());
  mSocket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
  mSocket->startClientEncryption();
}

SecureStream::~SecureStream() = default;

std::string SecureStream::handshakeFailure() const {
  std::string reasons;
  for (const QSslError& error : mSocket->sslHandshakeErrors()) {
    const std::string reason = reasonOf(error, mPeerName);
    if (reasons.find(reason) != std::string::npos) continue;
    reasons += (reasons.empty() ? "" : ", ") + reason;
  }
  if (reasons.empty())
    reasons = mSocket->errorString().toStdString();
  else if (!mSocket->peerCertificate().isNull())
    reasons += " (" + described(mSocket->peerCertificate()) + ")";
  return "TLS handshake failed: " + reasons;
}

StreamConnection::Event SecureStream::waitForHandshake(int milliseconds) {
  if (mSocket->isEncrypted() || mSocket->waitForEncrypted(milliseconds)) {
    mSecured = true;
    return Event::secured;
  }
  const auto error = mSocket->error();
  const bool isOnlyLate =
      error == QAbstractSocket::SocketTimeoutError || error == QAbstractSocket::UnknownSocketError;
  if (isOnlyLate && mSocket->state() == QAbstractSocket::ConnectedState) return Event::nothing;
  mFailure = handshakeFailure();
  mIsRefused = !mSocket->sslHandshakeErrors().isEmpty();
  return Event::failed;
}

StreamConnection::Event SecureStream::brokenOr(Event event) {
  if (mSocket->state() == QAbstractSocket::ConnectedState) return event;
  if (mSocket->bytesAvailable() > 0) return Event::received;
  const auto error = mSocket->error();
  if (error == QAbstractSocket::RemoteHostClosedError ||
      error == QAbstractSocket::UnknownSocketError || error == QAbstractSocket::SocketTimeoutError)
    return Event::ended;
  mFailure = mSocket->errorString().toStdString();
  return Event::failed;
}

StreamConnection::Event SecureStream::wait(double seconds, bool wantsSpace) {
  if (!mFailure.empty()) return Event::failed;
  const int milliseconds = static_cast<int>(std::clamp(std::ceil(seconds * 1000), 0.0, 1e6));
  if (!mSecured) return waitForHandshake(milliseconds);
  if (mSocket->bytesAvailable() > 0) return Event::received;
  if (wantsSpace) {
    if (mSocket->encryptedBytesToWrite() + mSocket->bytesToWrite() < kMostUnsent)
      return brokenOr(Event::space);
    const bool written = mSocket->waitForBytesWritten(milliseconds);
    if (mSocket->bytesAvailable() > 0) return Event::received;
    return brokenOr(written ? Event::space : Event::nothing);
  }
  const bool ready = mSocket->waitForReadyRead(milliseconds);
  if (mSocket->bytesAvailable() > 0) return Event::received;
  return brokenOr(ready ? Event::received : Event::nothing);
}

std::string SecureStream::read(std::size_t limit) {
  return mSocket->read(static_cast<qint64>(limit)).toStdString();
}

Result<std::size_t> SecureStream::send(std::string_view bytes) {
  if (!mFailure.empty()) return Error{ErrorKind::unavailable, mFailure};
  if (!mSecured) return std::size_t{0};
  if (mSocket->encryptedBytesToWrite() + mSocket->bytesToWrite() >= kMostUnsent)
    return std::size_t{0};
  const qint64 count = mSocket->write(
      bytes.data(), static_cast<qint64>(std::min<std::size_t>(bytes.size(), kMostUnsent)));
  if (count < 0) return Error{ErrorKind::unavailable, mSocket->errorString().toStdString()};
  mSocket->flush();
  return static_cast<std::size_t>(count);
}

}  // namespace corvana

extern "C" __attribute__((visibility("default"))) corvana::StreamConnection*
corvana9OpenSecureStream(int socket, const char* peerName) {
  return new corvana::SecureStream(corvana::ZAN_Descriptor(socket), peerName);
}
