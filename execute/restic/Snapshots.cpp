#include "execute/restic/Snapshots.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "execute/engine/FolderWalk.h"
#include "execute/engine/NameList.h"
#include "execute/engine/Words.h"

namespace corvana {

namespace {

struct Moment {
  std::int64_t seconds = 0;  ///< since 1970
  std::int64_t nanoseconds = 0;
};

/// "2026-11-22T11:19:21.951716893+01:00".
std::optional<Moment> momentFrom(std::string_view text) {
  const std::string whole(text);
  std::tm parts{};
  int length = 0;
  if (std::sscanf(whole.c_str(), "%d-%d-%dT%d:%d:%d%n", &parts.tm_year, &parts.tm_mon,
                  &parts.tm_mday, &parts.tm_hour, &parts.tm_min, &parts.tm_sec, &length) != 6)
    return std::nullopt;
  parts.tm_year -= 1900;
  parts.tm_mon -= 1;
  Moment moment{.seconds = ::timegm(&parts)};
  std::string_view rest = std::string_view(whole).substr(static_cast<std::size_t>(length));
  if (rest.starts_with('.')) {
    std::string digits(rest.substr(1, rest.find_first_not_of("0123456789", 1) - 1));
    rest.remove_prefix(digits.size() + 1);
    digits.resize(9, '0');
    if (!parseNumber(digits, moment.nanoseconds)) return std::nullopt;
  }
  int hours = 0;
  int minutes = 0;
  if (rest.size() == 6 &&
      std::sscanf(std::string(rest.substr(1)).c_str(), "%d:%d", &hours, &minutes) == 2)
    moment.seconds -= (rest.front() == '-' ? -1 : 1) * (hours * 3600 + minutes * 60);
  return moment;
}

constexpr std::uint32_t kPermissions = 0777;

/// restic's bits of a mode as the system's.
std::uint32_t modeFrom(std::uint64_t bits) {
  constexpr std::uint64_t kSetUser = 1 << 23;
  constexpr std::uint64_t kSetGroup = 1 << 22;
  constexpr std::uint64_t kSticky = 1 << 20;
  return static_cast<std::uint32_t>(bits & kPermissions) | ((bits & kSetUser) != 0 ? 04000 : 0) |
         ((bits & kSetGroup) != 0 ? 02000 : 0) | ((bits & kSticky) != 0 ? 01000 : 0);
}

std::vector<std::string> textsOf(const ZAN_Value& list) {
  std::vector<std::string> texts;
  for (const ZAN_Value& text : list.elements()) texts.emplace_back(text.stringView());
  return texts;
}

/// Names that restic's JSON does not tell, since it has Unicode alone: its list for people has
/// their bytes, a line each, in the same order.
class UnusualNames {
 public:
  /// Counts the item, and keeps it when its name is one of those.
  bool take(const VersionItem& item) {
    const std::size_t breaks = static_cast<std::size_t>(std::ranges::count(item.name, '\n'));
    constexpr std::string_view kReplaced = "\xef\xbf\xbd";
    const bool isUnusual = item.name.find(kReplaced) != std::string::npos;
    if (isUnusual) mItems.emplace_back(mLine, item);
    mLine += 1 + breaks;
    return isUnusual;
  }
  /// Adds those items under their real names.
  Outcome findOut(Restic& restic, const std::string& snapshot,
                  const std::vector<std::string>& places, SortedLines& lines) {
    if (mItems.empty()) return {};
    std::vector<std::string> words{"ls", "--quiet", "--recursive", snapshot};
    words.insert(words.end(), places.begin(), places.end());
    auto item = mItems.begin();
    std::size_t at = 0;
    std::string name;
    const ResticEnd end = restic.call({.words = std::move(words),
                                       .onLine =
                                           [&](std::string_view line) {
                                             const std::size_t number = at++;
                                             if (item == mItems.end() || number < item->first)
                                               return;
                                             name += (name.empty() ? "" : "\n") + std::string(line);
                                             if (withReplacedBytes(name) != "/" + item->second.name)
                                               return;
                                             item->second.name = name.substr(1);
                                             lines.add(item->second.toLine());
                                             name.clear();
                                             ++item;
                                           },
                                       .wantsEmptyLines = true});
    if (!end.isDone()) return end.error(restic.address().shown());
    if (item == mItems.end()) return {};
    return Error{ErrorKind::damaged, restic.address().shown() + ": restic's two lists of " +
                                         snapshot + " differ at /" + item->second.name};
  }

 private:
  std::vector<std::pair<std::size_t, VersionItem>> mItems;  ///< with the number of their lines
  std::size_t mLine = 0;
};

}  // namespace

std::optional<ReferenceTime> Snapshot::dateFrom(std::string_view text) {
  const auto moment = momentFrom(text);
  if (!moment) return std::nullopt;
  return static_cast<double>(moment->seconds) + static_cast<double>(moment->nanoseconds) / 1e9 -
         kReferenceEpochInUnixTime;
}

std::optional<std::string> Snapshot::tagged(std::string_view prefix) const {
  const auto found =
      std::ranges::find_if(tags, [&](const std::string& tag) { return tag.starts_with(prefix); });
  if (found == tags.end()) return std::nullopt;
  return found->substr(prefix.size());
}

std::string SnapshotTag::word(std::string text) {
  std::ranges::replace(text, ',', ';');
  return text;
}

std::string Snapshot::fileTag(std::size_t path) {
  return std::string(SnapshotTag::file) + std::to_string(path);
}

bool Snapshot::isFile(std::size_t path) const {
  return std::ranges::find(tags, fileTag(path)) != tags.end();
}

Result<std::vector<Snapshot>> Snapshot::all(Restic& restic, const std::string& tags) {
  std::vector<std::string> words{"snapshots", "--json"};
  if (!tags.empty()) words.insert(words.end(), {"--tag", tags});
  const auto text = restic.answer(std::move(words));
  if (!text) return text.error();
  const auto list = ZAN_Json::valueWithJson(*text);
  if (!list)
    return Error{ErrorKind::damaged,
                 restic.address().shown() + ": restic's list of snapshots: " + list.error().text};
  std::vector<Snapshot> snapshots;
  for (const ZAN_Value& value : list->elements()) {
    const auto date = dateFrom(value["time"].stringView());
    if (!date) continue;
    snapshots.push_back({.id = value.string("id"),
                         .date = *date,
                         .host = value.string("hostname"),
                         .user = value.string("username"),
                         .paths = textsOf(value["paths"]),
                         .tags = textsOf(value["tags"])});
  }
  std::ranges::stable_sort(snapshots, {}, &Snapshot::date);
  return snapshots;
}

std::optional<VersionItem> resticItem(const ZAN_Value& node) {
  const std::string path = node.string("path");
  const auto moment = momentFrom(node["mtime"].stringView());
  if (path.size() < 2 || !moment) return std::nullopt;
  VersionItem item{.name = path.substr(1)};
  const std::string_view type = node["type"].stringView();
  using Kind = VersionItem::Kind;
  item.kind = type == "dir"       ? Kind::folder
              : type == "file"    ? Kind::file
              : type == "symlink" ? Kind::link
                                  : Kind::other;
  item.mode = modeFrom(node["mode"].unsignedValue());
  item.user = static_cast<std::uint32_t>(node["uid"].unsignedValue());
  item.group = static_cast<std::uint32_t>(node["gid"].unsignedValue());
  item.seconds = moment->seconds;
  item.nanoseconds = moment->nanoseconds;
  if (item.kind == Kind::file) item.size = node["size"].unsignedValue();
  return item;
}

Outcome SnapshotTree::forEach(const std::string& name,
                              const std::function<bool(const Entry&)>& each,
                              const std::function<void(const std::string&)>&) const {
  return forEachOf(name.empty() ? std::vector<std::string>() : std::vector{name}, each);
}

Outcome SnapshotTree::forEachOf(const std::vector<std::string>& names,
                                const std::function<bool(const Entry&)>& each) const {
  std::vector<std::string> places;
  for (const std::string& name : names) places.push_back("/" + name);
  if (names.empty()) places = mSnapshot.paths;
  std::vector<std::string> words{"ls", "--json", "--recursive", mSnapshot.id};
  words.insert(words.end(), places.begin(), places.end());
  // restic's order is another one where a name holds a blank.
  SortedLines lines;
  UnusualNames unusual;
  const ResticEnd end =
      mRestic.call({.words = std::move(words), .onLine = [&](std::string_view line) {
                      const auto node = ZAN_Json::valueWithJson(line);
                      if (!node || node->string("struct_type") != "node") return;
                      auto item = resticItem(*node);
                      if (item && !unusual.take(*item)) lines.add(item->toLine());
                    }});
  if (!end.isDone()) return end.error(mRestic.address().shown());
  if (const Outcome named = unusual.findOut(mRestic, mSnapshot.id, places, lines); !named)
    return named;
  bool isWanted = true;
  const bool isWhole = lines.forEach([&](std::string_view line) {
    auto item = VersionItem::fromLine(line);
    if (item && !(isWanted = each({*std::move(item), nullptr}))) return false;
    return true;
  });
  if (isWhole || !isWanted) return {};
  return Error{ErrorKind::unwritable, "no room for the list of what a version has"};
}

}  // namespace corvana
