#include "remote/RemoteCommand.h"

#include <unordered_set>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

namespace {

constexpr const char* kActivate = "RemoteControlMachineActivate";
constexpr const char* kLaunch = "RemoteControlMachineLaunchAction";
constexpr const char* kMessage = "RemoteControlMachineMessage";
constexpr const char* kSender = "RemoteControllerMachineName";

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
  return std::string(beginningOfBytes(withReplacedBytes(text), bytes));
}

}  // namespace

std::optional<RemoteCommand> RemoteCommand::decode(std::span<const std::byte> data) {
  auto decoded = ZAN_Unarchiver::unarchiveObjectWithData(data);
  if (!decoded) decoded = ZAN_KeyedUnarchiver::unarchiveObjectWithData(data);
  if (!decoded || !decoded->isDictionary()) return std::nullopt;
  const ZAN_Value& command = *decoded;
  if (command.contains(kActivate)) {
    const ZAN_Value& value = command[kActivate];
    if (!value.isNumber()) return std::nullopt;
    return RemoteCommand{Activate{value.integerValue()}};
  }
  if (command.contains(kLaunch)) {
    const ZAN_Value& value = command[kLaunch];
    if (!value.isString()) return std::nullopt;
    return RemoteCommand{Launch{referencesIn(value.stringView())}};
  }
  if (command.contains(kMessage)) {
    const ZAN_Value& value = command[kMessage];
    if (!value.isString()) return std::nullopt;
    const std::string_view sender = command[kSender].stringView();
    return RemoteCommand{Message{cut(value.stringView(), kMostBytesOfMessage),
                                 sender.empty() ? "???" : cut(sender, kMostBytesOfSender)}};
  }
  return std::nullopt;
}

std::vector<std::byte> RemoteCommand::encode() const {
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
  return ZAN_Archiver::archivedDataWithRootObject(command);
}

}  // namespace corvana
