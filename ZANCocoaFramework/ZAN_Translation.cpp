#include "ZANCocoaFramework/ZAN_Translation.h"

#include <array>
#include <optional>

#include "ZANCocoaFramework/ZAN_StringTable.h"

namespace corvana {

namespace {

constexpr std::string_view kSaid = "Said: ";
constexpr std::string_view kInWindows = "In windows: ";
constexpr std::string_view kPlace = "%@";
/// A sentence in a sentence, and no further.
constexpr int kDepth = 6;

using Differences = std::array<std::string_view, 5>;

/// What stands at the places of a sentence; nothing when the text is another one.
std::optional<Differences> differences(std::string_view text, std::string_view sentence) {
  Differences found;
  for (std::string_view& difference : found) {
    const auto place = sentence.find(kPlace);
    if (place == sentence.npos) break;
    if (!text.starts_with(sentence.substr(0, place))) return {};
    text.remove_prefix(place);
    sentence.remove_prefix(place + kPlace.size());
    const auto next = sentence.find(kPlace);
    const std::string_view words = sentence.substr(0, next);
    const auto end = next == sentence.npos && text.ends_with(words) ? text.size() - words.size()
                                                                    : text.find(words);
    if (end == text.npos) return {};
    difference = text.substr(0, end);
    text.remove_prefix(end);
  }
  return text == sentence ? std::optional(found) : std::nullopt;
}

struct Found {
  const std::string* words;
  Differences differences;
};

/// The entry that fits best, of those whose keys begin with `prefix`.
std::optional<Found> bestOf(const ZAN_StringTable& texts, std::string_view prefix,
                            std::string_view english) {
  const auto& entries = texts.entries();
  std::optional<Found> best;
  std::size_t most = 0;
  for (auto entry = entries.lower_bound(prefix);
       entry != entries.end() && entry->first.starts_with(prefix); ++entry) {
    const std::string_view sentence = std::string_view(entry->first).substr(prefix.size());
    const auto found = differences(english, sentence);
    std::size_t own = english.size() + 1;
    if (found)
      for (const std::string_view difference : *found) own -= difference.size();
    if (!found || own <= most) continue;
    most = own;
    best = {&entry->second, *found};
  }
  return best;
}

std::string translatedLine(const ZAN_StringTable& texts, std::string_view english, ReadAt where,
                           int depth) {
  if (depth == 0) return std::string(english);
  std::optional<Found> best;
  if (where == ReadAt::window) best = bestOf(texts, kInWindows, english);
  if (!best) best = bestOf(texts, kSaid, english);
  if (!best) {
    const auto colon = english.find(": ");
    if (colon == english.npos) return std::string(english);
    return std::string(english.substr(0, colon + 2)) +
           translatedLine(texts, english.substr(colon + 2), where, depth - 1);
  }
  std::array<std::string, std::tuple_size_v<Differences>> words;
  for (std::size_t i = 0; i < words.size(); ++i)
    words.at(i) = translatedLine(texts, best->differences.at(i), where, depth - 1);
  return ZAN_StringUtils::format(*best->words, {words[0], words[1], words[2], words[3], words[4]});
}

}  // namespace

std::string translated(const ZAN_StringTable& texts, std::string_view english, ReadAt where) {
  std::string text;
  for (bool isFirst = true;; isFirst = false) {
    const auto end = english.find('\n');
    if (!isFirst) text += '\n';
    text += translatedLine(texts, english.substr(0, end), where, kDepth);
    if (end == english.npos) return text;
    english.remove_prefix(end + 1);
  }
}

}  // namespace corvana
