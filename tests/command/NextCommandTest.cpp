#include <gmock/gmock.h>
#include <stdlib.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "command/Commands.h"

namespace corvana {
namespace {

using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// A home of its own and a zone, with what a command prints.
class NextCommandTest : public testing::Test {
 protected:
  void SetUp() override {
    std::string name = (std::filesystem::temp_directory_path() / "corvana-next-XXXXXX").string();
    ASSERT_NE(mkdtemp(name.data()), nullptr);
    mFolder = name;
    set("HOME", name);
    set("TZ", "Europe/Paris");
  }
  void TearDown() override {
    std::filesystem::remove_all(mFolder);
    for (const auto& [key, value] : mSaved) {
      if (value) {
        setenv(key.c_str(), value->c_str(), 1);
      } else {
        unsetenv(key.c_str());
      }
    }
  }

  void set(const std::string& key, const std::string& value) {
    const char* before = std::getenv(key.c_str());
    mSaved.try_emplace(key, before != nullptr ? std::optional<std::string>(before) : std::nullopt);
    setenv(key.c_str(), value.c_str(), 1);
  }
  int run(std::vector<std::string> words, const std::string& input = {}) {
    std::istringstream in(input);
    std::ostringstream out;
    std::ostringstream err;
    const int code = runCommandLine(words, {in, out, err});
    mOut = out.str();
    mErr = err.str();
    return code;
  }
  void storeTree(const std::string& json) {
    const auto folder = mFolder / "Library/Application Support/Corvana 9";
    std::filesystem::create_directories(folder);
    std::ofstream(mFolder / "tree.json") << json;
    ASSERT_EQ(run({"pack", (mFolder / "tree.json").string(),
                   (folder / "Programmed Actions.cva9data").string()}),
              kDone)
        << mErr;
  }

  std::filesystem::path mFolder;
  std::map<std::string, std::optional<std::string>> mSaved;
  std::string mOut;
  std::string mErr;
};

TEST_F(NextCommandTest, GivesEachRecordsDateInTheZoneOfTheEnvironment) {
  // 2026-11-22 10:32:54 in Paris; the time of day is 8:00 there and 2:00 in New York.
  const std::string records = R"([
    {"TriggerAutomatic": 1, "TriggerFrequencyPopup": 1, "TriggerScheduleTime": {"$date": 817023600},
     "LastScheduleDate": {"$date": 817023600}},
    {"TriggerAutomatic": 1, "TriggerFrequencyPopup": 31,
     "TriggerScheduleList": {"$archive": [{"TriggerFrequencyPopup": 21, "TriggerScheduleTime": {"$date": 75600}}]}},
    {"TriggerAutomatic": 1, "TriggerFrequencyPopup": 1, "TriggerScheduleTime": {"$date": 0}, "TriggerScheduleList": {"$data": "AAAA"}},
    {}])";
  const std::string listDate = "817074000";  // 22:00 in Paris as on 2001-01-01
  ASSERT_EQ(run({"next", "--records", "-", "--now", "817032774.5"}, records), kDone) << mErr;
  EXPECT_EQ(mOut, "{\"date\": 817110000, \"shutdown\": false}\n{\"date\": " + listDate +
                      ", \"shutdown\": true}\n{\"date\": 816998400, \"shutdown\": false}\n"
                      "{\"date\": null, \"shutdown\": false}\n");
  EXPECT_THAT(mErr, HasSubstr("Exception in getNextScheduleProgrammed: "));
  ASSERT_EQ(run({"next", "--records=-", "--now=817032774.5", "--first-after-startup"}, records),
            kDone);
  EXPECT_THAT(mOut, HasSubstr("\n{\"date\": 817032774.5, \"shutdown\": true}\n"));
  set("TZ", "America/New_York");
  ASSERT_EQ(run({"next", "--records", "-", "--now", "817032774"}, records), kDone);
  EXPECT_THAT(mOut, StartsWith("{\"date\": 817110000,")) << "8:00 in Paris is 2:00 there";
  EXPECT_THAT(mOut, HasSubstr("817074000")) << "16:00 there in January as in November";
}

TEST_F(NextCommandTest, SaysWhichWordsAreWrong) {
  for (const std::vector<std::string>& words :
       std::vector<std::vector<std::string>>{{"next", "--records", "-"},
                                             {"next", "--now", "1"},
                                             {"next", "--records", "-", "--now", "nan"},
                                             {"next", "--records", "-", "--now", "1", "--ics"},
                                             {"next", "--count", "0"},
                                             {"next", "word"}}) {
    EXPECT_EQ(run(words), kWrongWords) << words.back();
    EXPECT_FALSE(mErr.empty());
  }
  EXPECT_EQ(run({"next", "--records", "-", "--now", "1"}, "{}"), kCouldNot);
  EXPECT_EQ(run({"next", "--records", "-", "--now", "1"}, "[1,"), kCouldNot);
  EXPECT_EQ(run({"next", "--records", "/no/such/file", "--now", "1"}), kCouldNot);
}

TEST_F(NextCommandTest, ShowsTheRunsOfTheStoredActions) {
  ASSERT_EQ(run({"next"}), kDone);
  EXPECT_EQ(mOut, "No run is scheduled.\n");
  EXPECT_TRUE(std::filesystem::is_empty(mFolder)) << "looking changes nothing";
  storeTree(R"(["ProgrammedActions",
    {"Title": "Photos, \u00e9t\u00e9; \u001b[1m", "Ref": 7, "TriggerAutomatic": 1, "TriggerFrequencyPopup": 1,
     "TriggerScheduleTime": {"$date": 817023600}},
    {"Title": "Off", "Ref": 8, "TriggerAutomatic": 0, "TriggerFrequencyPopup": 21},
    {"Title": "Group", "Ref": 9, "List": {"$archive": [
      {"Title": "At shutdown", "Ref": 10, "TriggerAutomatic": 1, "TriggerScheduleList": {"$archive": [
        {"TriggerFrequencyPopup": 21, "TriggerScheduleTime": {"$date": 817023600}}]}}]}}])");
  ASSERT_EQ(run({"next", "--count", "4"}), kDone) << mErr;
  EXPECT_THAT(mOut, HasSubstr(" 08:00  Photos, \u00e9t\u00e9;  [1m [7]"));
  EXPECT_THAT(mOut, HasSubstr("At shutdown [10]  (at shutdown)"));
  EXPECT_THAT(mOut, Not(HasSubstr("Off")));
  EXPECT_EQ(std::count(mOut.begin(), mOut.end(), '\n'), 4);
  ASSERT_EQ(run({"next", "--ics", "--count", "2"}), kDone) << mErr;
  EXPECT_THAT(mOut, HasSubstr("\r\nSUMMARY:Photos\\, \u00e9t\u00e9\\;  [1m\r\n"));
  EXPECT_THAT(mOut, StartsWith("BEGIN:VCALENDAR\r\n"));
  EXPECT_THAT(mOut, EndsWith("END:VCALENDAR\r\n"));
  ASSERT_EQ(run({"next", "--json", "--count", "1"}), kDone) << mErr;
  EXPECT_THAT(mOut, HasSubstr("\"ref\": 7"));
}

}  // namespace
}  // namespace corvana
