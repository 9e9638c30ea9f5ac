#include "remote/PublishedService.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <numeric>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/ActionTree.h"
#include "platform/Platform.h"

namespace corvana {

namespace {

constexpr std::string_view kBetween = "&&";

std::optional<std::int64_t> numberOf(std::string_view text) {
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string ServiceName::text() const { return text(1); }

std::string ServiceName::text(int number) const {
  const std::string rest =
      (number > 1 ? "-" + std::to_string(number) : std::string()) +
      ZAN_StringUtils::format("&&%@&&%d&&%d&&%d&&%d",
                              {identifier, user, active ? 1 : 0, locked ? 1 : 0, passwordCode});
  const std::size_t room = kMostBytes > rest.size() ? kMostBytes - rest.size() : 0;
  return std::string(beginningOfBytes(machine, room)) + rest;
}

std::optional<ServiceName> ServiceName::parse(std::string_view text) {
  std::array<std::string_view, 5> fields;
  for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
    const std::size_t at = text.rfind(kBetween);
    if (at == std::string_view::npos) return std::nullopt;
    *field = text.substr(at + kBetween.size());
    text = text.substr(0, at);
  }
  const auto user = numberOf(fields[1]);
  const auto active = numberOf(fields[2]);
  const auto locked = numberOf(fields[3]);
  const auto code = numberOf(fields[4]);
  if (!user || !active || !locked || !code) return std::nullopt;
  return ServiceName{std::string(text), std::string(fields[0]), *user,
                     *active != 0,      *locked != 0,           static_cast<std::int32_t>(*code)};
}

std::string ServiceName::machineName(std::string_view localName, std::string_view networkName) {
  std::string name = withReplacedBytes(networkName);
  if (!localName.empty()) {
    name = withoutAccents(localName);
    std::ranges::replace(name, ' ', '-');
  }
  std::erase_if(name, [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; });
  return name.empty() ? "localhost" : name;
}

std::uint32_t UtilsCommon::getPasswordCode(std::string_view password) {
  constexpr std::size_t kLeastUnits = 32;
  const std::u16string units = utf16(password);
  if (units.empty()) return 0;
  std::u16string text = units;
  while (text.size() < kLeastUnits) text += u'*' + units;
  std::uint32_t code = 0;
  for (std::size_t i = 0; i < text.size(); ++i)
    code = (text[i] * static_cast<std::uint32_t>(i) + code) * 3U;
  return code;
}

namespace {

constexpr std::size_t kMostBytesOfText = 255;
constexpr std::size_t kMostBytes = 1300;
constexpr std::string_view kKey = "Ref-";

/// Cuts the part behind the last tab off and reads it.
std::optional<std::int64_t> lastNumber(std::string_view& text) {
  const std::size_t tab = text.rfind('\t');
  if (tab == std::string_view::npos) return std::nullopt;
  const std::string_view part = text.substr(tab + 1);
  text = text.substr(0, tab);
  std::int64_t number = 0;
  const auto [end, error] = std::from_chars(part.data(), part.data() + part.size(), number);
  if (error != std::errc() || end != part.data() + part.size()) return std::nullopt;
  return number;
}

}  // namespace

std::string LaunchableAction::text() const {
  const std::string key = ZAN_StringUtils::format("Ref-%d=", {ref});
  const std::string rest = ZAN_StringUtils::format("\t%d\t%d\t%d", {mode, ref, lastScheduleDate});
  std::string whole = withReplacedBytes(title);
  std::ranges::replace_if(
      whole, [](char c) { return static_cast<unsigned char>(c) < 0x20; }, ' ');
  return key + std::string(beginningOfBytes(whole, kMostBytesOfText - key.size() - rest.size())) +
         rest;
}

std::optional<LaunchableAction> LaunchableAction::parse(std::string_view text) {
  const std::size_t sign = text.find('=');
  if (!text.starts_with(kKey) || sign == std::string_view::npos) return std::nullopt;
  text.remove_prefix(sign + 1);
  const auto last = lastNumber(text);
  const auto ref = lastNumber(text);
  const auto mode = lastNumber(text);
  if (!last || !ref || !mode || *ref == 0) return std::nullopt;
  return LaunchableAction{*ref, withReplacedBytes(text), *mode, *last};
}

std::vector<LaunchableAction> launchableActions(ProgrammedAction& root) {
  ProgrammedAction::Nodes nodes;
  root.getAllActionsInOneList(nodes, false);
  std::vector<LaunchableAction> actions;
  for (const ProgrammedAction* node : nodes) {
    const ZAN_Value& settings = node->getSettings();
    if (settings.integer("TriggerPreventRemoteLaunch") != 0) continue;
    actions.push_back(
        {node->getReference(), node->getTitle(), node->actionType(),
         ZAN_Value(settings["LastScheduleDate"].asDate().value_or(0.0)).integerValue()});
  }
  return actions;
}

LaunchableTexts::LaunchableTexts(const std::vector<LaunchableAction>& actions,
                                 std::vector<std::string> before)
    : texts(std::move(before)) {
  std::vector<std::string> all;
  all.reserve(actions.size());
  std::vector<std::size_t> order(actions.size());
  std::iota(order.begin(), order.end(), 0U);
  for (const LaunchableAction& action : actions) all.push_back(action.text());
  std::ranges::stable_sort(order, std::ranges::greater{},
                           [&](std::size_t i) { return actions[i].lastScheduleDate; });
  std::size_t bytes = 0;
  for (const std::string& text : texts) bytes += 1 + text.size();
  std::vector<std::size_t> taken;
  for (const std::size_t i : order) {
    bytes += 1 + all[i].size();
    if (bytes > kMostBytes) break;
    taken.push_back(i);
  }
  std::ranges::sort(taken);
  for (const std::size_t i : taken) texts.push_back(std::move(all[i]));
  leftOut = actions.size() - taken.size();
}

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
