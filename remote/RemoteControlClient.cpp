#include "remote/RemoteControlClient.h"

#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionTree.h"
#include "platform/Platform.h"
#include "remote/LaunchableActions.h"
#include "remote/ServiceName.h"

namespace corvana {

namespace {

/// So many machines of one name are told apart; it ends there.
constexpr int kMostNumbers = 99;

}  // namespace

RemoteControlClient::RemoteControlClient(Platform& platform, ActionTree& tree)
    : m(platform), mTree(tree) {}

bool RemoteControlClient::publishClient(std::string_view name, bool active, bool locked,
                                        std::uint32_t password, const Exposure& exposure) {
  mNetService.reset();
  const ServiceName identity{ServiceName::machineName(name, m.machine.networkName()),
                             m.machine.machineIdentifier(),
                             m.machine.userIdentifier(),
                             active,
                             locked,
                             static_cast<std::int32_t>(password)};
  const auto actions =
      exposure.showsActions ? launchableActions(mTree.rootItem()) : std::vector<LaunchableAction>();
  const LaunchableTexts texts(actions, exposure.texts);
  if (const Outcome listens = listen(exposure.port); !listens) {
    m.systemLog.write(listens.error().text);
    if (listens.error().kind == ErrorKind::refused) return false;
  }
  const std::uint16_t port = mListeningSocket ? mListeningSocket->port() : std::uint16_t{0};
  mNetService = m.services.publish(
      {identity.text(), kRemoteServiceType, kRemoteServiceDomain, port, texts.texts},
      {[](const std::string&) {},
       [this, identity, number = 1](const std::string& taken) mutable {
         std::string other = ++number > kMostNumbers ? std::string() : identity.text(number);
         m.systemLog.write("\"" + taken + "\" is another machine on the network");
         return other;
       },
       [this](int code, const std::string& reason) {
         m.systemLog.write(ZAN_StringUtils::format("NetService did not publish: %d", {code}));
         m.systemLog.write(reason);
       }});
  if (onLeftOut) onLeftOut(texts.leftOut, actions.size());
  return true;
}

Outcome RemoteControlClient::listen(std::uint16_t port) {
  if (mListeningSocket && (port == 0 || mListeningSocket->port() == port)) return {};
  mListeningSocket.reset();
  auto socket = m.serverSockets.listen(
      port, ServerSockets::Limits{},
      {[this](const std::string& address) { return !accepts || accepts(address); },
       [this](const std::string& address, std::span<const std::byte> bytes) {
         return received ? received(address, bytes) : std::vector<std::byte>();
       }});
  if (!socket) return socket.error();
  mListeningSocket = std::move(socket).value();
  return {};
}

void RemoteControlClient::stopNetServiceRCC() {
  if (!mNetService) return;
  mNetService->setTxt({"RemoteControlMachineUpdated=YES"});
  mNetService.reset();
}

}  // namespace corvana
