#include "remote/RemoteCommand.h"

#include <sodium.h>

#include <algorithm>
#include <limits>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

namespace {

// Both machines have to compute alike: these numbers are part of the protocol.
constexpr unsigned long long kPasses = 2;
constexpr std::size_t kMemory = std::size_t{64} << 20U;
constexpr std::string_view kSaltPrefix = "corvana remote control 1 ";

/// Senders whose counters are kept; only who knows the password can be one.
constexpr std::size_t kMostSenders = 1000;

constexpr std::size_t kBytesOfName = 16;

constexpr const char* kReply = "RemoteControlMachineReply";
constexpr const char* kChallenge = "RemoteControlMachineChallenge";
constexpr const char* kCounter = "RemoteControlMachineCounter";
constexpr const char* kCode = "RemoteControlMachineProofCode";

unsigned char* raw(std::byte* bytes) { return reinterpret_cast<unsigned char*>(bytes); }
const unsigned char* raw(const std::byte* bytes) {
  return reinterpret_cast<const unsigned char*>(bytes);
}

std::string hexadecimal(std::span<const std::byte> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  for (const std::byte byte : bytes) {
    text += kDigits[std::to_integer<unsigned>(byte) >> 4U];
    text += kDigits[std::to_integer<unsigned>(byte) & 0xFU];
  }
  return text;
}

void append(std::vector<std::byte>& all, std::uint64_t number) {
  for (int shift = 56; shift >= 0; shift -= 8)
    all.push_back(static_cast<std::byte>(number >> static_cast<unsigned>(shift) & 0xFFU));
}

void append(std::vector<std::byte>& all, std::span<const std::byte> bytes) {
  append(all, static_cast<std::uint64_t>(bytes.size()));
  all.insert(all.end(), bytes.begin(), bytes.end());
}

void append(std::vector<std::byte>& all, std::string_view text) {
  append(all, std::as_bytes(std::span(text)));
}

}  // namespace

std::optional<ControlKey> ControlKey::of(std::string_view password, std::string_view machine) {
  if (password.empty() || sodium_init() < 0) return std::nullopt;
  std::array<unsigned char, crypto_pwhash_SALTBYTES> salt{};
  const std::string salted = std::string(kSaltPrefix) + std::string(machine);
  crypto_generichash(salt.data(), salt.size(), raw(std::as_bytes(std::span(salted)).data()),
                     salted.size(), nullptr, 0);
  ControlKey key;
  if (crypto_pwhash(raw(key.mBytes.data()), key.mBytes.size(), password.data(), password.size(),
                    salt.data(), kPasses, kMemory, crypto_pwhash_ALG_ARGON2ID13) != 0)
    return std::nullopt;
  return key;
}

std::optional<ControlKey> ControlKey::from(std::span<const std::byte> bytes) {
  ControlKey key;
  if (bytes.size() != key.mBytes.size()) return std::nullopt;
  std::ranges::copy(bytes, key.mBytes.begin());
  return key;
}

ChannelKey ControlKey::channelKey() const {
  const auto derived = [this](std::string_view purpose) {
    return codeOf(std::as_bytes(std::span(purpose)));
  };
  const ProofCode name = derived("corvana channel name 1");
  return {hexadecimal(std::span(name).first(kBytesOfName)), derived("corvana channel key 1")};
}

ProofCode ControlKey::codeOf(std::span<const std::byte> bytes) const {
  ProofCode code{};
  crypto_auth_hmacsha256(raw(code.data()), raw(bytes.data()), bytes.size(), raw(mBytes.data()));
  return code;
}

bool ControlKey::made(const ProofCode& code, std::span<const std::byte> bytes) const {
  return crypto_auth_hmacsha256_verify(raw(code.data()), raw(bytes.data()), bytes.size(),
                                       raw(mBytes.data())) == 0;
}

std::vector<std::byte> CommandProof::covered(std::span<const std::byte> command) const {
  std::vector<std::byte> all;
  append(all, command);
  append(all, challenge);
  append(all, sender);
  append(all, static_cast<std::uint64_t>(counter));
  return all;
}

std::optional<CommandReply::Word> CommandReply::wordOf(std::int64_t number) {
  if (number < static_cast<int>(Word::done) || number > static_cast<int>(Word::tooQuickly))
    return std::nullopt;
  return static_cast<Word>(number);
}

std::vector<std::byte> CommandReply::covered(const CommandProof& proof) const {
  std::vector<std::byte> all;
  append(all, static_cast<std::uint64_t>(word));
  append(all, challenge);
  append(all, static_cast<std::uint64_t>(counter));
  append(all, proof.code);
  return all;
}

std::vector<std::byte> CommandReply::encode(CommandReply reply, const CommandProof& proof,
                                            const std::optional<ControlKey>& key) {
  if (!key) reply = {Word::wrongPassword, {}, 0, {}};
  ZAN_Value value = ZAN_Value::dictionary({{kReply, static_cast<int>(reply.word)},
                                           {kChallenge, reply.challenge},
                                           {kCounter, reply.counter}});
  if (key) value.setValue(kCode, ZAN_Value::data(key->codeOf(reply.covered(proof))));
  return ZAN_Archiver::archivedDataWithRootObject(value);
}

std::optional<CommandReply> CommandReply::decode(std::span<const std::byte> data,
                                                 const CommandProof& proof, const ControlKey& key) {
  const auto value = ZAN_Unarchiver::unarchiveObjectWithData(data);
  if (!value || !value->isDictionary()) return std::nullopt;
  const auto word = wordOf(value->integer(kReply));
  if (!word) return std::nullopt;
  CommandReply reply{*word, value->string(kChallenge), value->integer(kCounter), {}};
  if (reply.word == Word::wrongPassword) return reply;
  const ZAN_Value& code = (*value)[kCode];
  if (code.bytes().size() != reply.code.size()) return std::nullopt;
  std::ranges::copy(code.bytes(), reply.code.begin());
  if (!key.made(reply.code, reply.covered(proof))) return std::nullopt;
  return reply;
}

void ProofChecker::renew() {
  std::array<std::byte, 16> random{};
  randombytes_buf(random.data(), random.size());
  mChallenge = hexadecimal(random);
  mCounters.clear();
  mCountersOfPaired.clear();
}

ProofChecker::Judgement ProofChecker::check(const CommandProof& proof,
                                            std::span<const std::byte> command) {
  const auto covered = proof.covered(command);
  const auto judged = [&](const ControlKey& key, std::map<std::string, std::int64_t>& counters) {
    const auto known = counters.find(proof.sender);
    const std::int64_t last = known == counters.end() ? 0 : known->second;
    return Judgement{count(proof, counters), key, last};
  };
  const auto paired = mPaired.find(proof.sender);
  if (paired != mPaired.end() && paired->second.made(proof.code, covered)) {
    Judgement judgement = judged(paired->second, mCountersOfPaired);
    judgement.isPaired = true;
    return judgement;
  }
  if (mForAll && mForAll->made(proof.code, covered)) return judged(*mForAll, mCounters);
  return {};
}

ProofChecker::Verdict ProofChecker::count(const CommandProof& proof,
                                          std::map<std::string, std::int64_t>& counters) {
  if (proof.challenge != mChallenge) return Verdict::staleChallenge;
  const auto known = counters.find(proof.sender);
  // Nobody could count on from the last number there is, and to forget one sender would let its
  // commands in again.
  if (proof.counter == std::numeric_limits<std::int64_t>::max() ||
      (known == counters.end() && counters.size() >= kMostSenders)) {
    renew();
    return Verdict::staleChallenge;
  }
  if (known != counters.end() && proof.counter <= known->second) return Verdict::counterTooLow;
  counters[proof.sender] = proof.counter;
  return Verdict::proven;
}

namespace {

constexpr const char* kActivate = "RemoteControlMachineActivate";
constexpr const char* kLaunch = "RemoteControlMachineLaunchAction";
constexpr const char* kMessage = "RemoteControlMachineMessage";
constexpr const char* kSender = "RemoteControllerMachineName";
constexpr const char* kProof = "RemoteControlMachineProof";
constexpr const char* kProofChallenge = "Challenge";
constexpr const char* kProofSender = "Sender";
constexpr const char* kProofCounter = "Counter";
constexpr const char* kProofCode = "Code";

std::vector<std::int64_t> referencesIn(std::string_view text) {
  std::vector<std::int64_t> references;
  std::unordered_set<std::int64_t> known;
  for (;;) {
    const std::size_t comma = text.find(',');
    const std::int64_t ref = ZAN_Value(text.substr(0, comma)).integerValue();
    if (ref != 0 && known.insert(ref).second) references.push_back(ref);
    if (comma == std::string_view::npos) break;
    text.remove_prefix(comma + 1);
  }
  return references;
}

std::string cut(std::string_view text, std::size_t bytes) {
  return std::string(beginningOfBytes(ZAN_StringUtils::oneLine(withReplacedBytes(text)), bytes));
}

std::optional<CommandProof> proofIn(const ZAN_Value& value) {
  const std::string_view challenge = value[kProofChallenge].stringView();
  const std::string_view sender = value[kProofSender].stringView();
  CommandProof proof{std::string(challenge), std::string(sender), value.integer(kProofCounter), {}};
  const auto code = value[kProofCode].bytes();
  if (code.size() != proof.code.size() || challenge.size() > CommandProof::kMostBytesOfName ||
      sender.size() > CommandProof::kMostBytesOfName)
    return std::nullopt;
  std::ranges::copy(code, proof.code.begin());
  return proof;
}

std::optional<RemoteCommand> commandIn(const ZAN_Value& command) {
  if (command.contains(kActivate)) {
    const ZAN_Value& value = command[kActivate];
    if (!value.isNumber()) return std::nullopt;
    return RemoteCommand{RemoteCommand::Activate{value.integerValue()}};
  }
  if (command.contains(kLaunch)) {
    const ZAN_Value& value = command[kLaunch];
    if (!value.isString()) return std::nullopt;
    return RemoteCommand{RemoteCommand::Launch{referencesIn(value.stringView())}};
  }
  if (command.contains(kMessage)) {
    const ZAN_Value& value = command[kMessage];
    if (!value.isString()) return std::nullopt;
    const std::string_view sender = command[kSender].stringView();
    return RemoteCommand{RemoteCommand::Message{
        cut(value.stringView(), RemoteCommand::kMostBytesOfMessage),
        sender.empty() ? "???" : cut(sender, RemoteCommand::kMostBytesOfSender)}};
  }
  return std::nullopt;
}

ZAN_Value valueOf(const RemoteCommand& given) {
  using Activate = RemoteCommand::Activate;
  using Launch = RemoteCommand::Launch;
  using Message = RemoteCommand::Message;
  const auto& what = given.what;
  ZAN_Value command = ZAN_Value::dictionary();
  if (const auto* activate = std::get_if<Activate>(&what)) {
    command.setValue(kActivate, static_cast<int>(activate->value));
  } else if (const auto* launch = std::get_if<Launch>(&what)) {
    std::string references;
    for (const std::int64_t ref : launch->references)
      references += (references.empty() ? "" : ",") + std::to_string(ref);
    command.setValue(kLaunch, references);
  } else if (const auto* message = std::get_if<Message>(&what)) {
    command.setValue(kMessage, message->text);
    command.setValue(kSender, message->sender);
  }
  return command;
}

}  // namespace

std::optional<RemoteCommand> RemoteCommand::decode(std::span<const std::byte> data) {
  auto decoded = ZAN_Unarchiver::unarchiveObjectWithData(data);
  if (!decoded) decoded = ZAN_KeyedUnarchiver::unarchiveObjectWithData(data);
  if (!decoded || !decoded->isDictionary()) return std::nullopt;
  auto command = commandIn(*decoded);
  if (!command || !decoded->contains(kProof)) return command;
  command->proof = proofIn((*decoded)[kProof]);
  if (!command->proof) return std::nullopt;
  decoded->removeKey(kProof);
  command->proven = ZAN_Archiver::archivedDataWithRootObject(*decoded);
  return command;
}

std::vector<std::byte> RemoteCommand::encode() const {
  return ZAN_Archiver::archivedDataWithRootObject(valueOf(*this));
}

std::vector<std::byte> RemoteCommand::encode(const ControlKey& key, CommandProof& proof) const {
  ZAN_Value command = valueOf(*this);
  proof.code = key.codeOf(proof.covered(ZAN_Archiver::archivedDataWithRootObject(command)));
  command.setValue(kProof, ZAN_Value::dictionary({{kProofChallenge, proof.challenge},
                                                  {kProofSender, proof.sender},
                                                  {kProofCounter, proof.counter},
                                                  {kProofCode, ZAN_Value::data(proof.code)}}));
  return ZAN_Archiver::archivedDataWithRootObject(command);
}

}  // namespace corvana
