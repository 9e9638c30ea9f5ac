#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string_view>
#include <utility>
#include <variant>

#include "platform/KeyedChannel.h"

namespace corvana {

using ProofCode = std::array<std::byte, 32>;

/// What whoever knows the password of a machine can compute, and nobody else. Thread: any.
class ControlKey {
 public:
  /// Argon2id of the password, salted with the identifier of the machine that it opens, so that
  /// one password gives every machine another key. It takes a tenth of a second and 64 MB: not for
  /// the main thread. Nothing for an empty password, or where that memory cannot be had.
  static std::optional<ControlKey> of(std::string_view password, std::string_view machine);

  /// A key that two machines agreed on: 32 bytes, nothing for another number.
  static std::optional<ControlKey> from(std::span<const std::byte> bytes);
  std::span<const std::byte> bytes() const { return mBytes; }

  /// What encrypts the channel to whoever has this key as well; nothing else is told by it.
  ChannelKey channelKey() const;

  /// HMAC-SHA-256 of the bytes.
  ProofCode codeOf(std::span<const std::byte> bytes) const;
  /// Whether it is the code of the bytes; how long that takes tells nothing.
  bool made(const ProofCode& code, std::span<const std::byte> bytes) const;

 private:
  ControlKey() = default;
  std::array<std::byte, 32> mBytes{};
};

/// That the sender of a command knows the password. Thread: any.
struct CommandProof {
  static constexpr std::size_t kMostBytesOfName = 64;

  std::string challenge;     ///< of the machine that is controlled, as its service shows it
  std::string sender;        ///< tells controlling machines apart, 64 bytes at most
  std::int64_t counter = 0;  ///< rises with each command of a sender
  ProofCode code{};          ///< of `covered`

  /// What the code is computed from: the archived command and the fields above, each behind its
  /// length.
  std::vector<std::byte> covered(std::span<const std::byte> command) const;
};

/// What the controlled machine answers to a command that came with a proof. It proves itself by the
/// same key, as nobody else can tell the controller that its command was carried out. Thread: any.
struct CommandReply {
  enum class Word {
    done = 1,
    wrongPassword,  ///< the only word without a code
    newChallenge,   ///< the one used is not that of now, which is in `challenge`
    counterTooLow,  ///< `counter` was the last one of this sender
    notPermitted,   ///< the machine does not permit this kind of command
    tooQuickly,     ///< after too many others
  };
  /// Nothing for a number that is none of them.
  static std::optional<Word> wordOf(std::int64_t number);

  Word word = Word::done;
  std::string challenge;
  std::int64_t counter = 0;
  ProofCode code{};

  /// The reply to the command with that proof, as bytes to send. Without the key that made the
  /// proof there is nothing to say but that the password is wrong.
  static std::vector<std::byte> encode(CommandReply reply, const CommandProof& proof,
                                       const std::optional<ControlKey>& key);
  /// Reads bytes that need not be trusted. Nothing unless it is a reply that this key made for this
  /// command, or says that the password is wrong.
  static std::optional<CommandReply> decode(std::span<const std::byte> data,
                                            const CommandProof& proof, const ControlKey& key);

 private:
  std::vector<std::byte> covered(const CommandProof& proof) const;
};

/// Tells proven commands from others, each of which counts once. Thread: main.
class ProofChecker {
 public:
  enum class Verdict { proven, wrong, staleChallenge, counterTooLow };

  /// `forAll` proves commands of everybody, if there is such a key.
  explicit ProofChecker(const std::optional<ControlKey>& forAll) : mForAll(forAll) { renew(); }

  /// From now on each of these keys proves commands of the sender under whose name it stands.
  void setPaired(std::map<std::string, ControlKey> keys) { mPaired = std::move(keys); }
  /// 32 hexadecimal digits that nobody can foresee.
  const std::string& challenge() const { return mChallenge; }
  /// From now on there is another challenge, and nothing proves anything that was made for the one
  /// before.
  void renew();

  struct Judgement {
    Verdict verdict = Verdict::wrong;
    std::optional<ControlKey> key{};  ///< that made the code, to answer with; nothing when wrong
    std::int64_t lastCounter = 0;     ///< of the commands that this sender has proven by that key
    bool isPaired = false;            ///< that key is known to the sender alone
  };
  /// Looks at the code first, so that the other verdicts are only for those who know the password.
  Judgement check(const CommandProof& proof, std::span<const std::byte> command);

 private:
  Verdict count(const CommandProof& proof, std::map<std::string, std::int64_t>& counters);

  std::optional<ControlKey> mForAll;
  std::map<std::string, ControlKey> mPaired;
  std::string mChallenge;
  // By sender, for this challenge. Whoever knows the password can take any sender's name, but does
  // not count for a paired machine.
  std::map<std::string, std::int64_t> mCounters;
  std::map<std::string, std::int64_t> mCountersOfPaired;
};

/// What one machine tells another: an archived dictionary with one of three keys, and maybe a proof
/// that it may. Thread: any.
struct RemoteCommand {
  /// Longer texts are cut between two characters.
  static constexpr std::size_t kMostBytesOfMessage = 4000;
  static constexpr std::size_t kMostBytesOfSender = 255;

  struct Activate {
    std::int64_t value = 0;  ///< 1 switches automatic execution on, 0 off; others do nothing
  };
  struct Launch {
    std::vector<std::int64_t> references;  ///< none is 0, none comes twice
  };
  struct Message {
    std::string text;
    std::string sender;  ///< "???" when it did not say its name
  };
  std::variant<Activate, Launch, Message> what;
  std::optional<CommandProof> proof{};
  std::vector<std::byte> proven{};  ///< with a proof: the archive of the rest, which it is about

  /// Reads bytes that need not be trusted, the sequential archive first, the keyed one else. The
  /// first of the keys that is there counts, in the order above; nothing when its value is of
  /// another kind, without any of them, with a proof that is none, and for anything but a
  /// dictionary.
  static std::optional<RemoteCommand> decode(std::span<const std::byte> data);

  /// The bytes to send, without a proof.
  std::vector<std::byte> encode() const;
  /// The same with a proof, whose code is computed by that key.
  std::vector<std::byte> encode(const ControlKey& key, CommandProof& proof) const;
};

}  // namespace corvana
