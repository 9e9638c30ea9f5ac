#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "ZANCocoaFramework/ZAN_Translation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "platform/simulated/TemporaryFolder.h"

namespace corvana {
namespace {

using Damages = std::vector<ZAN_StringTable::Damage>;

TEST(StringTable, ReadsWhatTranslatorsWrite) {
  Damages damages;
  const auto entries = ZAN_StringTable::parse(
      "/* A comment\n   of two lines */\n"
      "\"Plain\" = \"text\"; \"Second\" = \"in the same line\";\n"
      "// \"Out\" = \"of use\";\n"
      "\"Escapes\" = \"a \\\"quote\\\"\\n\\tand \\u00e9 \\U0001 \\ud83d\\ude00 \\\\\";\n"
      "\"Long\" = \"over\nlines\";\n"
      "bare.key-1=bare_value;\r\n"
      "\"Plain\" = \"again\";",
      damages);
  EXPECT_TRUE(damages.empty());
  const ZAN_StringTable::Entries expected{
      {"Plain", "again"},
      {"Second", "in the same line"},
      {"Escapes", "a \"quote\"\n\tand \u00e9 \x01 \U0001F600 \\"},
      {"Long", "over\nlines"},
      {"bare.key-1", "bare_value"}};
  EXPECT_EQ(entries, expected);
}

TEST(StringTable, ReadsBothOrdersOfUtf16) {
  const std::u16string text = u"\"Key\" = \"\u00e9\u20ac\U0001F600\";";
  for (const bool little : {true, false}) {
    std::string bytes = little ? "\xFF\xFE" : "\xFE\xFF";
    for (const char16_t unit : text) {
      const char low = static_cast<char>(unit & 0xFF);
      const char high = static_cast<char>(unit >> 8);
      bytes += {little ? low : high, little ? high : low};
    }
    Damages damages;
    const auto entries = ZAN_StringTable::parse(bytes, damages);
    EXPECT_TRUE(damages.empty());
    EXPECT_EQ(entries.at("Key"), "\u00e9\u20ac\U0001F600");
  }
  Damages damages;
  EXPECT_EQ(ZAN_StringTable::parse("\xEF\xBB\xBF\"Key\" = \"x\";", damages).at("Key"), "x");
}

TEST(StringTable, DamageCostsItsOwnLine) {
  Damages damages;
  const auto entries = ZAN_StringTable::parse(
      "\"A\" = \"1\";\n"
      "\"Open\" = \"no end;\n"
      "\"B\" = \"2\";\n"
      "\"NoEnd\" = \"x\"\n"
      "\"C\" \"3\";\n"
      "garbage \x80\xff {\n"
      "\"D\" = \"4\";\n"
      "/* open\n"
      "\"E\" = \"5\";\n"
      "\"Latin\" = \"caf\xe9\";\n"
      "\"Nul\" = \"a\\u0000\";\n"
      "\"Last\" = \"",
      damages);
  const ZAN_StringTable::Entries expected{{"A", "1"}, {"B", "2"}, {"D", "4"}, {"E", "5"}};
  EXPECT_EQ(entries, expected);
  std::vector<int> lines;
  for (const auto& damage : damages) lines.push_back(damage.line);
  EXPECT_EQ(lines, (std::vector<int>{2, 4, 5, 6, 8, 10, 11, 12}));
}

TEST(StringTable, EnglishStandsBehindTheWantedLanguages) {
  const TemporaryFolder folder;
  folder.write("en.lproj/Localizable.strings",
               "\"A\" = \"a\"; \"B\" = \"b\"; \"C\" = \"%@ c\";"
               "\"Days\" = \"%2$d days\"; \"Days.one\" = \"a day\"; \"Tage.one\" = \"a day\";");
  folder.write("fr.lproj/Localizable.strings",
               "\"A\" = \"fa\"; \"C\" = \"\"; \"Tage\" = \"%d Tage\";");
  folder.write("fr-CA.lproj/Localizable.strings", "\"A\" = \"ca\";");
  folder.write("de.lproj/Localizable.strings", "\"A\" = \"da\"; \"B\" = \"db\";\n\"Bad\"");
  ZAN_StringTable table;

  EXPECT_TRUE(table.load(folder.path(), {"xx", "fr_CA.UTF-8"}));
  EXPECT_EQ(table.text("A"), "ca");
  EXPECT_EQ(table.text("B"), "b");
  EXPECT_EQ(table.text("C", {"the"}), "the c") << "an empty text is not a translation";
  EXPECT_EQ(table.text("Missing"), "");
  EXPECT_EQ(table.text("Days", {"x", 1}), "a day");
  EXPECT_EQ(table.text("Days", {"x", 2}), "2 days");
  EXPECT_EQ(table.text("Days", {1, 2, "x"}), "2 days") << "the last number decides";
  EXPECT_EQ(table.text("Tage", {1}), "1 Tage") << "no singular of another language";

  EXPECT_TRUE(table.load(folder.path(), {"en", "de"}));
  EXPECT_EQ(table.text("B"), "b");

  const Outcome outcome = table.load(folder.path(), {"de"});
  ASSERT_FALSE(outcome);
  EXPECT_NE(outcome.error().text.find("de.lproj/Localizable.strings:2: "), std::string::npos);
  EXPECT_EQ(table.text("B"), "db");

  ASSERT_FALSE(table.load(folder.at("nowhere"), {"../fr"}));
  EXPECT_EQ(table.text("A"), "");
}

TEST(Translation, FindsTheSentenceAndWhatDiffersInIt) {
  const ZAN_StringTable texts(
      {{"Said: %@: it is gone", "%1$@ ist weg"},
       {"Said: %@: %@", "%1$@ - %2$@"},
       {"Said: %@ of %@ are lost; stop %@", "Halt %3$@: %1$@ von %2$@ fehlen"},
       {"Said: all", "alle"},
       {"Said: no room", "kein Platz"},
       {"In windows: all of %@ are lost; %@", "%1$@ fehlen; %2$@"},
       {"Unsaid: all", "falsch"}});
  EXPECT_EQ(translated(texts, "/a: b: it is gone"), "/a - b ist weg") << "most words first";
  EXPECT_EQ(translated(texts, "all of 5 are lost; stop it"), "Halt it: alle von 5 fehlen");
  EXPECT_EQ(translated(texts, "all of 5 are lost; no room", ReadAt::window),
            "5 fehlen; kein Platz");
  EXPECT_EQ(translated(texts, "2 of 5 are lost; stop "), "Halt : 2 von 5 fehlen");
  EXPECT_EQ(translated(texts, "all\n\nno room\nfalse"), "alle\n\nkein Platz\nfalse");
  const ZAN_StringTable few(ZAN_StringTable::Entries{{"Said: no room", "kein Platz"}});
  EXPECT_EQ(translated(few, "tool: /d: no room"), "tool: /d: kein Platz");
  EXPECT_EQ(translated(few, "tool: /d: %@ no room %"), "tool: /d: %@ no room %");
  EXPECT_EQ(translated(ZAN_StringTable(), "no room"), "no room");
}

/// The literals in the first argument of each `text(` of a source.
std::set<std::string> keysLookedUp(const std::string& source) {
  std::set<std::string> keys;
  const std::string call = "text(";
  for (auto at = source.find(call); at != std::string::npos; at = source.find(call, at + 1)) {
    if (at > 0 && (std::isalnum(source[at - 1]) != 0 || source[at - 1] == '_')) continue;
    int depth = 1;
    for (auto i = at + call.size(); i < source.size() && depth > 0; ++i) {
      const char c = source[i];
      if (c == '(' || c == '{') ++depth;
      if (c == ')' || c == '}') --depth;
      if (c == ',' && depth == 1) break;
      if (c != '"') continue;
      const auto end = source.find('"', i + 1);
      keys.insert(source.substr(i + 1, end - i - 1));
      i = end;
    }
  }
  return keys;
}

TEST(StringTable, EnglishHasEveryTextThatIsLookedUp) {
  EXPECT_EQ(keysLookedUp(
                "t.text(a ? \"One\" : \"Two\"); t->text(\"Three\", {f(\"no\")}); context(\"no\")"),
            (std::set<std::string>{"One", "Two", "Three"}));

  ZAN_StringTable table;
  const Outcome loaded = table.load(CORVANA_SOURCE_FOLDER "/resources", {"en"});
  ASSERT_TRUE(loaded) << loaded.error().text;
  for (const char* room : {"actions", "app", "application", "command", "core", "execute", "tools",
                           "desktop", "mail", "remote", "ui", "volumes"}) {
    const std::filesystem::path folder = std::filesystem::path(CORVANA_SOURCE_FOLDER) / room;
    if (!std::filesystem::exists(folder)) continue;
    for (const auto& file : std::filesystem::recursive_directory_iterator(folder)) {
      if (file.path().extension() != ".cpp" && file.path().extension() != ".h") continue;
      std::ifstream stream(file.path());
      const std::string source{std::istreambuf_iterator<char>(stream), {}};
      for (const std::string& key : keysLookedUp(source)) {
        EXPECT_FALSE(table.text(key).empty()) << key << " in " << file.path();
      }
    }
  }
}

}  // namespace
}  // namespace corvana
