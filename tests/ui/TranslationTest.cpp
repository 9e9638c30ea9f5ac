#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <iterator>
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

/// In any order: a language may put its words in another one, when it numbers them.
std::vector<std::string> placeholdersOf(const std::string& text) {
  std::vector<std::string> found;
  for (std::size_t at = text.find('%'); at != std::string::npos; at = text.find('%', at)) {
    const std::size_t end = text.find_first_of("%@d ", at + 1);
    found.push_back(text.substr(at, end == std::string::npos ? end : end - at + 1));
    at += found.back().size();
  }
  std::ranges::sort(found);
  return found;
}

TEST(Translation, germanHasTheTextsAndThePlaceholdersOfEnglish) {
  const auto english = textsOf("en");
  const auto german = textsOf("de");
  EXPECT_GT(german.size(), 300U);
  for (const auto& [key, text] : german) {
    const auto original = english.find(key);
    ASSERT_NE(original, english.end()) << key;
    EXPECT_EQ(placeholdersOf(text), placeholdersOf(original->second)) << key;
  }
}

}  // namespace
}  // namespace corvana
