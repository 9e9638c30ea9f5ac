#include "remote/RemoteCommand.h"

#include <algorithm>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

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
