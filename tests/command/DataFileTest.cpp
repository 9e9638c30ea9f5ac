#include <gmock/gmock.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "command/Commands.h"

namespace corvana {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

class DataFile : public ::testing::Test {
 protected:
  DataFile() {
    std::string name = (std::filesystem::temp_directory_path() / "corvana-XXXXXX").string();
    mFolder = mkdtemp(name.data());
  }
  ~DataFile() override { std::filesystem::remove_all(mFolder); }

  std::string path(const std::string& name) const { return mFolder + "/" + name; }
  void put(const std::string& name, const std::string& bytes) const {
    std::ofstream(path(name)) << bytes;
  }

  int run(const std::vector<std::string>& words, const std::string& input = {}) {
    std::istringstream in(input);
    mOut.str("");
    mErr.str("");
    return runCommandLine(words, {in, mOut, mErr});
  }
  std::string out() const { return mOut.str(); }
  std::string err() const { return mErr.str(); }

 private:
  std::string mFolder;
  std::ostringstream mOut;
  std::ostringstream mErr;
};

TEST_F(DataFile, PackedJsonIsShownAgain) {
  const std::string json =
      "{\n  \"Ref\": 5,\n  \"SMTPPassword\": \"secret\",\n  \"List\": [\n    true\n  ]\n}\n";
  ASSERT_EQ(run({"pack", "-", path("x.data")}, json), kDone) << err();
  EXPECT_EQ(run({"dump", path("x.data")}), kDone) << err();
  EXPECT_EQ(out(), json);
  EXPECT_EQ(run({"dump", "--mask", path("x.data")}), kDone);
  EXPECT_THAT(out(), HasSubstr("\"****\""));
  EXPECT_EQ(out().find("secret"), std::string::npos);
}

TEST_F(DataFile, OtherContainersAreToldByContent) {
  const auto list = [](const std::string& body) {
    return "<plist version=\"1.0\">" + body + "</plist>";
  };
  const std::string uid = "<dict><key>CF$UID</key><integer>1</integer></dict>";
  put("plain", list("<dict><key>a</key><true/></dict>"));
  put("keyed",
      list("<dict><key>$archiver</key><string>NSKeyedArchiver</string><key>$objects</key><array>"
           "<string>$null</string><string>hi</string></array><key>$top</key><dict><key>root</key>" +
           uid + "</dict></dict>"));
  EXPECT_EQ(run({"dump", path("plain")}), kDone) << err();
  EXPECT_EQ(out(), "{\n  \"a\": true\n}\n");
  EXPECT_EQ(run({"dump", path("keyed")}), kDone) << err();
  EXPECT_EQ(out(), "\"hi\"\n");
}

TEST_F(DataFile, ReasonsNameTheFile) {
  put("bad.json", "{\"a\": ");
  put("good.data", "old");
  EXPECT_EQ(run({"pack", path("bad.json"), path("good.data")}), kCouldNot);
  EXPECT_THAT(err(), StartsWith("corvana9: " + path("bad.json") + ": "));
  EXPECT_EQ(run({"dump", path("good.data")}), kCouldNot);
  EXPECT_EQ(err(), "corvana9: " + path("good.data") + ": neither an archive nor a property list\n");
  EXPECT_EQ(run({"dump", path("absent")}), kCouldNot);
  EXPECT_THAT(err(), HasSubstr(path("absent") + ": "));
  EXPECT_EQ(run({"pack", "-", path("no/such/folder")}, "[]"), kCouldNot);
  EXPECT_THAT(err(), HasSubstr(path("no/such/folder") + ": "));
}

TEST_F(DataFile, WrongWordsShowTheUsage) {
  EXPECT_EQ(run({"dump"}), kWrongWords);
  EXPECT_THAT(err(), HasSubstr("usage: corvana9 dump FILE"));
  EXPECT_EQ(run({"dump", "a", "--maks"}), kWrongWords);
  EXPECT_THAT(err(), HasSubstr("--maks"));
  EXPECT_EQ(run({"dmup", "a"}), kWrongWords);
  EXPECT_EQ(run({}), kWrongWords);
  EXPECT_EQ(run({"--help"}), kDone);
  for (const Command& command : commands()) {
    EXPECT_THAT(out(), HasSubstr("\n  " + std::string(command.name) + " "));
  }
  EXPECT_EQ(run({"pack", "--help"}), kDone);
  EXPECT_THAT(out(), StartsWith("usage: corvana9 pack JSON FILE"));
}

}  // namespace
}  // namespace corvana
