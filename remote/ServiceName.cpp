#include "remote/ServiceName.h"

#include <algorithm>
#include <array>
#include <charconv>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"

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

}  // namespace corvana
