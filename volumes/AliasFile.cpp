#include "volumes/AliasFile.h"

#include <charconv>
#include <filesystem>
#include <system_error>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "platform/Processes.h"

namespace corvana {

namespace {

constexpr std::uint64_t kMostBytes = 64U << 10;

std::string percentDecoded(std::string_view text) {
  std::string result;
  while (!text.empty()) {
    unsigned code = 0;
    if (text.size() >= 3 && text.front() == '%' &&
        std::from_chars(text.data() + 1, text.data() + 3, code, 16).ptr == text.data() + 3) {
      result.push_back(static_cast<char>(code));
      text.remove_prefix(3);
    } else {
      result.push_back(text.front());
      text.remove_prefix(1);
    }
  }
  return result;
}

/// The address of a desktop link entry; empty when the text is none.
std::string linkAddress(std::string_view text) {
  bool isInEntry = false;
  bool isLink = false;
  std::string address;
  while (!text.empty()) {
    const auto end = std::min(text.find('\n'), text.size());
    const std::string_view line = ZAN_StringUtils::trimmed(text.substr(0, end));
    text.remove_prefix(std::min(end + 1, text.size()));
    if (line.starts_with('[')) {
      isInEntry = line == "[Desktop Entry]";
      continue;
    }
    const auto equals = line.find('=');
    if (!isInEntry || equals == std::string_view::npos) continue;
    const std::string_view key = ZAN_StringUtils::trimmed(line.substr(0, equals));
    const std::string_view value = ZAN_StringUtils::trimmed(line.substr(equals + 1));
    if (key == "Type") isLink = value == "Link";
    if (key == "URL") address = value;
  }
  return isLink ? address : std::string();
}

std::optional<std::string> placeOf(const std::string& address) {
  if (address.starts_with("file://")) {
    const auto slash = address.find('/', 7);
    if (slash == std::string::npos) return std::nullopt;
    return percentDecoded(std::string_view(address).substr(slash));
  }
  if (address.starts_with('/') || address.find("://") != std::string::npos) return address;
  return std::nullopt;
}

constexpr int kCannotResolve = -1;
constexpr double kMostSecondsToResolve = 60;
/// What no alias leads to.
constexpr const char* kMissing = "missing";
constexpr const char* kThere = "there";
constexpr const char* kShareTool = "/usr/bin/gio";

}  // namespace

bool AliasFile::isAlias(const std::string& path) {
  const auto info = ZAN_FilesUtils::finderInfo(path);
  if (info && info->isAlias()) return true;
  if (ZAN_FilesUtils::pathExtension(path) != "desktop") return false;
  const auto contents = ZAN_FilesUtils::readFile(path, kMostBytes);
  return contents && !linkAddress(contents->bytes).empty();
}

std::optional<std::string> AliasFile::target(const std::string& path) {
  std::error_code none;
  const auto link = std::filesystem::read_symlink(path, none);
  if (!link.empty()) {
    return (link.is_absolute() ? link : std::filesystem::path(path).parent_path() / link)
        .lexically_normal()
        .string();
  }
  const auto contents = ZAN_FilesUtils::readFile(path, kMostBytes);
  if (!contents) return std::nullopt;
  const std::string address = linkAddress(contents->bytes);
  return placeOf(address.empty() ? std::string(ZAN_StringUtils::trimmed(contents->bytes))
                                 : address);
}

int AliasFile::mountFromAliasFile(Processes& processes, const std::string& path) {
  // Looking at a path there mounts it where an automounter does that.
  const auto look = [&]() -> std::string {
    if (!ZAN_FilesUtils::exists(path)) return kMissing;
    const auto place = target(path);
    if (!place) return {};
    return place->starts_with('/') && ZAN_FilesUtils::exists(*place) ? std::string(kThere) : *place;
  };
  const auto place = processes.askExpendable(look, kMostSecondsToResolve);
  if (!place || place->empty()) return kCannotResolve;
  if (*place == kMissing) return kNoSuchFile;
  if (*place == kThere) return 0;
  if (place->starts_with('/')) return kCannotResolve;
  return processes.runTool({kShareTool, "mount", *place}, kMostSecondsToResolve) ? 0
                                                                                 : kCannotResolve;
}

}  // namespace corvana
