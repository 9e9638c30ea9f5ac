#include "platform/linux/LinuxMachine.h"

#include <gmock/gmock.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>

#include "platform/simulated/TemporaryFolder.h"

namespace corvana {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

/// Sets variables for one test.
class Environment {
 public:
  ~Environment() {
    for (const auto& [name, value] : mBefore) put(name, value);
  }
  void set(const std::string& name, const std::optional<std::string>& value) {
    const char* before = std::getenv(name.c_str());
    mBefore.try_emplace(name,
                        before == nullptr ? std::nullopt : std::optional<std::string>(before));
    put(name, value);
  }

 private:
  static void put(const std::string& name, const std::optional<std::string>& value) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  std::map<std::string, std::optional<std::string>> mBefore;
};

struct LinuxMachineTest : testing::Test {
  TemporaryFolder home;
  Environment environment;
  void SetUp() override {
    environment.set("HOME", home.path());
    environment.set("XDG_CONFIG_HOME", std::nullopt);
  }
};

TEST_F(LinuxMachineTest, TheFoldersOfTheUserAreThoseOfTheDesktop) {
  EXPECT_EQ(LinuxMachine().desktopFolder(), home.at("Desktop"));
  EXPECT_EQ(LinuxMachine().downloadsFolder(), home.at("Downloads"));
  home.write(".config/user-dirs.dirs",
             "# comment\nXDG_DESKTOP_DIR=\"$HOME/B\\\"ureau\"\nXDG_DOWNLOAD_DIR=\"/data/in/\"\n");
  EXPECT_EQ(LinuxMachine().desktopFolder(), home.at("B\"ureau"));
  EXPECT_EQ(LinuxMachine().downloadsFolder(), "/data/in");
  environment.set("XDG_CONFIG_HOME", home.at("other"));
  EXPECT_EQ(LinuxMachine().configurationFolder(), home.at("other"));
  EXPECT_EQ(LinuxMachine().desktopFolder(), home.at("Desktop"));
}

TEST_F(LinuxMachineTest, TheZoneIsThatOfTheVariableElseOfTheLink) {
  const LinuxMachine::Places places{home.at("localtime"), home.at("timezone"), "/proc/self/exe"};
  const LinuxMachine machine(places);
  environment.set("TZ", "Europe/Paris");
  EXPECT_EQ(machine.timeZoneName(), "Europe/Paris");
  environment.set("TZ", ":America/Argentina/Ushuaia");
  EXPECT_EQ(machine.timeZoneName(), "America/Argentina/Ushuaia");

  environment.set("TZ", std::nullopt);
  EXPECT_EQ(machine.timeZoneName(), "UTC");
  home.write("timezone", "Asia/Tokyo\n");
  EXPECT_EQ(machine.timeZoneName(), "Asia/Tokyo");
  std::filesystem::create_symlink("../usr/share/zoneinfo/Asia/Kolkata", home.at("localtime"));
  EXPECT_EQ(machine.timeZoneName(), "Asia/Kolkata");
}

TEST_F(LinuxMachineTest, LanguagesComeInTheOrderOfWish) {
  environment.set("LC_ALL", std::nullopt);
  environment.set("LC_MESSAGES", std::nullopt);
  environment.set("LANG", "de_CH.UTF-8");
  environment.set("LANGUAGE", "fr_CH:it");
  EXPECT_THAT(LinuxMachine().languageNames(),
              ElementsAre("fr-CH", "it", "de-CH", "fr", "de", "en"));
  environment.set("LC_ALL", "C");
  EXPECT_THAT(LinuxMachine().languageNames(), ElementsAre("en"));
}

TEST_F(LinuxMachineTest, DatesSpeakTheLanguageOfTheTextsWhereNoRegionIsSaid) {
  environment.set("LC_ALL", std::nullopt);
  environment.set("LC_TIME", std::nullopt);
  environment.set("LC_MESSAGES", "de_DE.UTF-8");
  environment.set("LANG", "C.UTF-8");
  EXPECT_EQ(LinuxMachine().regionName(), "de_DE.UTF-8");
  environment.set("LC_TIME", "C");
  EXPECT_EQ(LinuxMachine().regionName(), "C") << "dates of no region were wished for";
}

TEST_F(LinuxMachineTest, TheBundleIsTheOneAroundTheProgram) {
  LinuxMachine::Places places;
  places.executable = home.at("exe");
  std::filesystem::create_symlink("/x/A.app/Contents/MacOS/A (deleted)", places.executable);
  EXPECT_EQ(LinuxMachine(places).executablePath(), "/x/A.app/Contents/MacOS/A");
  EXPECT_EQ(LinuxMachine(places).bundlePath(), "/x/A.app");
}

TEST_F(LinuxMachineTest, UserDefaultsLiveInAFileThatOthersMayEdit) {
  const std::string path = home.at(".config/corvana9/defaults.ini");
  LinuxMachine machine;
  EXPECT_TRUE(machine.userDefault("Count").isNull());
  machine.setUserDefault("Count", 5);
  machine.setUserDefault("a = b%[\n", "text with\nlines");
  machine.setUserDefault("Gone", true);
  machine.setUserDefault("Gone", {});
  machine.setUserDefault("Count", 7);

  LinuxMachine again;
  EXPECT_EQ(again.userDefault("Count").integerValue(), 7);
  EXPECT_EQ(again.userDefault("a = b%[\n").string(), "text with\nlines");
  EXPECT_TRUE(again.userDefault("Gone").isNull());

  std::ofstream(path, std::ios::app) << "[heading]\n; a note\nHand = \"written\"\nBad = {\n";
  EXPECT_EQ(again.userDefault("Hand").string(), "written");
  EXPECT_TRUE(again.userDefault("Bad").isNull());
  again.setUserDefault("Hand", 1.5);
  std::stringstream text;
  text << std::ifstream(path).rdbuf();
  EXPECT_THAT(text.str(), HasSubstr("[heading]\n; a note\nHand=1.5\nBad = {\n"));
  EXPECT_EQ(machine.userDefault("Hand").doubleValue(), 1.5);
}

TEST_F(LinuxMachineTest, AHelperCountsOnlyWithRootsRights) {
  const std::string plain = home.write("plain", "");
  EXPECT_FALSE(LinuxMachine().isOwnedByRootAndSetUserId(plain));
  EXPECT_FALSE(LinuxMachine().isOwnedByRootAndSetUserId(home.at("missing")));
  ASSERT_EQ(chmod(plain.c_str(), 04755), 0);
  EXPECT_EQ(LinuxMachine().isOwnedByRootAndSetUserId(plain), geteuid() == 0);
}

}  // namespace
}  // namespace corvana
