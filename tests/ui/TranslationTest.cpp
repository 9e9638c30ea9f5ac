#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_StringTable.h"

namespace corvana {
namespace {

ZAN_StringTable::Entries textsOf(const std::string& language) {
  std::ifstream file(CORVANA_RESOURCES "/" + language + ".lproj/Localizable.strings");
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  std::vector<ZAN_StringTable::Damage> damages;
  auto texts = ZAN_StringTable::parse(bytes, damages);
  EXPECT_TRUE(damages.empty()) << language;
  return texts;
}

/// Numbered ones may come in any order, the others fill up from the left.
std::vector<std::string> placeholdersOf(const std::string& text) {
  std::vector<std::string> found;
  bool numbered = false;
  for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at)) {
    const std::size_t end = text.find_first_of("%@d ", at + 1);
    found.push_back(text.substr(at, end == std::string::npos ? end : end - at + 1));
    at += found.back().size();
    numbered = numbered || found.back().find('$') != std::string::npos;
  }
  if (numbered) std::ranges::sort(found);
  return found;
}

/// What German says in the same words.
const std::set<std::string, std::less<>> kEqualWords{
    "CardWay",        "ColumnVolume",   "KeyEnter",         "IconToolTip",      "LatestDetails",
    "OKButton",       "PrefMailPort",   "PrefMailStartTls", "PrefPageVolumes",  "PrefPercent",
    "PrefPlaceAt",    "PrefRemotePort", "StatusTitle",      "WhyRemedyCommand", "WhyRemedy",
    "StatusNextText", "WeekDay",        "WhyVolumeUuid",    "HistoryPerSecond", "RestoreColumnName",
    "RestoreVersion", "SettingsCopy",   "HistoryWhich"};

TEST(Translation, germanIsCompleteAndTakesTheSameArguments) {
  const auto english = textsOf("en");
  const auto german = textsOf("de");
  EXPECT_GT(english.size(), 300U);
  for (const auto& [key, original] : english) {
    EXPECT_NE(original, "") << key;
    const auto found = german.find(key);
    if (found == german.end()) {
      ADD_FAILURE() << key << " is not translated";
      continue;
    }
    EXPECT_NE(found->second, "") << key;
    EXPECT_EQ(placeholdersOf(found->second), placeholdersOf(original)) << key;
    EXPECT_EQ(found->second == original, kEqualWords.contains(key)) << key << ": " << original;
  }
  for (const auto& [key, text] : german)
    EXPECT_TRUE(english.contains(key) || key.starts_with("Said: ")) << key;
}

TEST(Translation, singularsStandBesideTheirPlurals) {
  for (const auto& [key, text] : textsOf("en")) {
    if (key.ends_with(".one")) {
      EXPECT_TRUE(textsOf("en").contains(key.substr(0, key.size() - 4))) << key;
    }
  }
}

}  // namespace
}  // namespace corvana
