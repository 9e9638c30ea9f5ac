// What another machine sends: a command is understood or it is none, and one that is understood
// can be sent again and means the same. What is published about this machine is read as well.

#include <array>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <span>
#include <string_view>

#include "platform/keyed/TlsChannels.h"
#include "remote/PairedChannel.h"
#include "remote/Pairing.h"
#include "remote/PublishedService.h"
#include "remote/RemoteCommand.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace corvana;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (const auto command = RemoteCommand::decode(std::as_bytes(std::span(data, size)))) {
    const auto again = RemoteCommand::decode(command->encode());
    if (!again || again->encode() != command->encode()) std::abort();
    static const auto key = corvana::ControlKey::of("password", "5eed0123beef");
    static ProofChecker checker(*key);
    if (command->proof &&
        checker.check(*command->proof, command->proven).verdict != ProofChecker::Verdict::wrong)
      std::abort();
    const CommandProof proof{checker.challenge(), "fuzzer", 1, {}};
    const auto reply = CommandReply::decode(std::as_bytes(std::span(data, size)), proof, *key);
    if (reply && reply->word != CommandReply::Word::wrongPassword) std::abort();
  }
  const auto message = std::as_bytes(std::span(data, size));
  for (const auto role : {Pairing::Role::asking, Pairing::Role::accepting}) {
    Pairing side(role, {"fuzzer", "f022e4", 1});
    if (side.receive(message)) static_cast<void>(side.receive(message));
    if (side.paired()) std::abort();
  }
  // What comes through the channel, and what comes to it from somebody without the key.
  if (const auto request = ChannelRequest::decode(message)) {
    const auto again = ChannelRequest::decode(request->encode());
    if (!again || again->encode() != request->encode()) std::abort();
  }
  static_cast<void>(ChannelReply::decode(message));
  Frames frames(4, 1000);
  frames.take(message);
  for (auto next = frames.next(); next && *next; next = frames.next())
    if ((*next)->size() > 1000) std::abort();
  static TlsChannels channels;
  const auto key = ControlKey::from(std::array<std::byte, 32>{})->channelKey();
  const auto channel = channels.answering([&](const std::string&) { return std::optional(key); });
  if ((*channel)->take(message) && !(*channel)->read().empty()) std::abort();
  if ((*channel)->isSecured()) std::abort();
  ChannelCall call(std::move(*channels.asking(key)), {});
  static_cast<void>(call.toNetwork());
  static_cast<void>(call.take(message));
  if (call.isSecured() || call.reply()) std::abort();
  if (const auto name = ServiceName::parse(text)) {
    // Room for the rest is certain for identifiers as this program makes them.
    if (name->identifier.size() <= 12 && name->text().size() > ServiceName::kMostBytes)
      std::abort();
  }
  if (const auto action = LaunchableAction::parse(text)) {
    const std::string published = action->text();
    if (published.size() > 255 || !LaunchableAction::parse(published)) std::abort();
  }
  if (size < 1000) static_cast<void>(UtilsCommon::getPasswordCode(text));
  return 0;
}
