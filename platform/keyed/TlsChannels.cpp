#include "platform/keyed/TlsChannels.h"

#include <openssl/err.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <utility>

namespace corvana {

namespace {

template <auto function>
struct Deleter {
  template <typename Object>
  void operator()(Object* object) const {
    function(object);
  }
};
using Context = std::unique_ptr<SSL_CTX, Deleter<SSL_CTX_free>>;
using Session = std::unique_ptr<SSL_SESSION, Deleter<SSL_SESSION_free>>;

constexpr int kMostAtOnce = 16384;

/// The digest of these has to be that of the key's cipher below.
constexpr const char* kCiphers = "TLS_AES_128_GCM_SHA256:TLS_CHACHA20_POLY1305_SHA256";
constexpr unsigned char kCipherOfKey[] = {0x13, 0x01};

/// The key as OpenSSL wants it: a session that is gone on with.
SSL_SESSION* sessionOf(SSL* ssl, const ChannelKey& key) {
  Session session(SSL_SESSION_new());
  const SSL_CIPHER* cipher = SSL_CIPHER_find(ssl, kCipherOfKey);
  if (!session || cipher == nullptr ||
      SSL_SESSION_set1_master_key(session.get(),
                                  reinterpret_cast<const unsigned char*>(key.bytes.data()),
                                  key.bytes.size()) != 1 ||
      SSL_SESSION_set_cipher(session.get(), cipher) != 1 ||
      SSL_SESSION_set_protocol_version(session.get(), TLS1_3_VERSION) != 1)
    return nullptr;
  return session.release();
}

class TlsChannel final : public KeyedChannel {
 public:
  TlsChannel(SSL_CTX* context, const ChannelKey* own, KeyedChannels::KeyOf keyOf)
      : mKey(own != nullptr ? *own : ChannelKey{}),
        mKeyOf(std::move(keyOf)),
        mSsl(SSL_new(context)) {
    if (!mSsl) return;
    mIn = BIO_new(BIO_s_mem());
    mOut = BIO_new(BIO_s_mem());
    // They belong to the other from now on.
    SSL_set_bio(mSsl.get(), mIn, mOut);
    SSL_set_app_data(mSsl.get(), this);
    if (own != nullptr) {
      SSL_set_connect_state(mSsl.get());
      static_cast<void>(shakeHands());
    } else {
      SSL_set_accept_state(mSsl.get());
    }
  }

  Outcome take(std::span<const std::byte> fromNetwork) override {
    if (!mSsl || mFailed) return failure();
    while (!fromNetwork.empty()) {
      const auto part = fromNetwork.first(std::min<std::size_t>(fromNetwork.size(), kMostAtOnce));
      fromNetwork = fromNetwork.subspan(part.size());
      if (BIO_write(mIn, part.data(), static_cast<int>(part.size())) !=
          static_cast<int>(part.size()))
        return fail();
      if (const Outcome shaken = shakeHands(); !shaken) return shaken;
      if (const Outcome decrypted = decrypt(); !decrypted) return decrypted;
    }
    return {};
  }

  std::vector<std::byte> toNetwork() override {
    std::vector<std::byte> bytes(mSsl ? BIO_ctrl_pending(mOut) : 0);
    if (!bytes.empty()) BIO_read(mOut, bytes.data(), static_cast<int>(bytes.size()));
    return bytes;
  }

  bool isSecured() const override { return mSecured && !mFailed; }
  const std::string& keyName() const override { return mKey.name; }
  std::vector<std::byte> read() override { return std::exchange(mSaid, {}); }

  Outcome write(std::span<const std::byte> bytes) override {
    if (!isSecured()) return failure();
    while (!bytes.empty()) {
      const auto part = bytes.first(std::min<std::size_t>(bytes.size(), kMostAtOnce));
      ERR_clear_error();
      const int count = SSL_write(mSsl.get(), part.data(), static_cast<int>(part.size()));
      if (count <= 0) return fail();
      bytes = bytes.subspan(static_cast<std::size_t>(count));
    }
    return {};
  }

  static int useKey(SSL* ssl, const EVP_MD*, const unsigned char** name, std::size_t* size,
                    SSL_SESSION** session) {
    const auto* self = static_cast<const TlsChannel*>(SSL_get_app_data(ssl));
    *name = reinterpret_cast<const unsigned char*>(self->mKey.name.data());
    *size = self->mKey.name.size();
    *session = sessionOf(ssl, self->mKey);
    return *session != nullptr ? 1 : 0;
  }

  /// Without a session there is no key, and without a certificate the handshake ends there.
  static int findKey(SSL* ssl, const unsigned char* name, std::size_t size, SSL_SESSION** session) {
    auto* self = static_cast<TlsChannel*>(SSL_get_app_data(ssl));
    *session = nullptr;
    // One that knows its key names it and no other: thousands of names would all be looked for.
    if (std::exchange(self->mWasAsked, true)) return 0;
    const auto key = self->mKeyOf(std::string(reinterpret_cast<const char*>(name), size));
    if (!key) return 1;
    self->mKey = *key;
    *session = sessionOf(ssl, *key);
    return 1;
  }

 private:
  Outcome shakeHands() {
    if (mSecured) return {};
    ERR_clear_error();
    const int result = SSL_do_handshake(mSsl.get());
    if (result != 1)
      return SSL_get_error(mSsl.get(), result) == SSL_ERROR_WANT_READ ? Outcome() : fail();
    // Somebody with a certificate could have gone on without the key.
    if (SSL_session_reused(mSsl.get()) != 1) return fail();
    mSecured = true;
    return {};
  }

  Outcome decrypt() {
    while (mSecured) {
      std::array<std::byte, kMostAtOnce> bytes;
      ERR_clear_error();
      const int count = SSL_read(mSsl.get(), bytes.data(), static_cast<int>(bytes.size()));
      if (count <= 0)
        return SSL_get_error(mSsl.get(), count) == SSL_ERROR_WANT_READ ? Outcome() : fail();
      mSaid.insert(mSaid.end(), bytes.begin(), bytes.begin() + count);
    }
    return {};
  }

  Outcome fail() {
    mFailed = true;
    const char* reason = ERR_reason_error_string(ERR_peek_last_error());
    mReason = reason != nullptr ? reason : "it ended early";
    return failure();
  }
  Error failure() const { return {ErrorKind::refused, "encrypted channel: " + mReason}; }

  ChannelKey mKey;
  const KeyedChannels::KeyOf mKeyOf;
  std::unique_ptr<SSL, Deleter<SSL_free>> mSsl;
  BIO* mIn = nullptr;
  BIO* mOut = nullptr;
  std::vector<std::byte> mSaid;
  bool mWasAsked = false;  ///< for a key
  bool mSecured = false;
  bool mFailed = false;
  std::string mReason = "there is none";
};

Context contextOf(const SSL_METHOD* method) {
  Context context(SSL_CTX_new(method));
  if (!context || SSL_CTX_set_min_proto_version(context.get(), TLS1_3_VERSION) != 1 ||
      SSL_CTX_set_ciphersuites(context.get(), kCiphers) != 1)
    return nullptr;
  // Nothing is gone on with later.
  SSL_CTX_set_session_cache_mode(context.get(), SSL_SESS_CACHE_OFF);
  SSL_CTX_set_num_tickets(context.get(), 0);
  SSL_CTX_set_options(context.get(), SSL_OP_NO_TICKET);
  SSL_CTX_set_mode(context.get(), SSL_MODE_RELEASE_BUFFERS);
  return context;
}

Error withoutTls() {
  return {ErrorKind::unavailable, "encrypted channel: OpenSSL offers no TLS 1.3 here"};
}

}  // namespace

struct TlsChannels::Contexts {
  Context asking = contextOf(TLS_client_method());
  Context answering = contextOf(TLS_server_method());
};

TlsChannels::TlsChannels() : mContexts(std::make_unique<Contexts>()) {
  if (mContexts->asking) {
    SSL_CTX_set_psk_use_session_callback(mContexts->asking.get(), TlsChannel::useKey);
    // There is no authority that anybody would be believed for: only the key counts.
    SSL_CTX_set_verify(mContexts->asking.get(), SSL_VERIFY_PEER, nullptr);
  }
  if (mContexts->answering)
    SSL_CTX_set_psk_find_session_callback(mContexts->answering.get(), TlsChannel::findKey);
}

TlsChannels::~TlsChannels() = default;

Result<std::unique_ptr<KeyedChannel>> TlsChannels::asking(const ChannelKey& key) {
  if (!mContexts->asking) return withoutTls();
  return std::unique_ptr<KeyedChannel>(
      std::make_unique<TlsChannel>(mContexts->asking.get(), &key, KeyOf()));
}

Result<std::unique_ptr<KeyedChannel>> TlsChannels::answering(KeyOf keyOf) {
  if (!mContexts->answering) return withoutTls();
  return std::unique_ptr<KeyedChannel>(
      std::make_unique<TlsChannel>(mContexts->answering.get(), nullptr, std::move(keyOf)));
}

}  // namespace corvana
