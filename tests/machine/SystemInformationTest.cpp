#include "core/machine/SystemInformation.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "tests/core_work/WorkWorld.h"
#include "volumes/ZAN_MountVolume.h"

namespace corvana::test {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
namespace fs = std::filesystem;

struct SystemInformationTest : testing::Test, WorkWorld {
  ZAN_MountVolume tools{machine.processes, machine.machine, machine.systemLog};
  SystemInformation information{records, tools};
  const std::string& home = machine.folder.path();

  std::string agent(const std::string& name, const std::string& list) const {
    return machine.folder.write("Library/LaunchAgents/" + name, list);
  }
  static std::string plist(const ZAN_Value& list) {
    return ZAN_PropertyList::xmlPropertyList(list);
  }
  static std::vector<std::string> namesIn(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(folder, ignored))
      names.push_back(entry.path().filename());
    return names;
  }
  static std::string contents(const std::string& path) {
    std::ifstream file(path);
    return {std::istreambuf_iterator<char>(file), {}};
  }
};

TEST_F(SystemInformationTest, ListsWhatStartsWithTheMachine) {
  const std::string there = machine.folder.write("bin/cloud", "");
  machine.machine.logins = {there, "gone"};
  agent("b.plist", plist(ZAN_Value::dictionary(
                       {{"Label", "com.b"},
                        {"Program", "/bin/b"},
                        {"ProgramArguments", ZAN_Value::array({"/bin/first", "second"})}})));
  agent("a.plist", "no list at all");
  agent(".DS_Store", "x");
  agent("c.plist", plist(ZAN_Value::dictionary({{"ProgramArguments", ZAN_Value::array({1})}})));
  agent("d.plist", plist(ZAN_Value::array({"Label"})));
  EXPECT_EQ(information.getLoginItems(), "***** Login Items:\n" + there +
                                             "\n"
                                             "gone [NOT FOUND]\n"
                                             "\n***** Items in " +
                                             home +
                                             "/Library/LaunchAgents:\n"
                                             "a.plist [No Dictionary]\n"
                                             "b.plist [Label: com.b] [Program: /bin/b] "
                                             "[ProgramArguments: /bin/first]\n"
                                             "c.plist\n"
                                             "d.plist [No Dictionary]\n");
}

TEST_F(SystemInformationTest, WritesTheLoginItemsOnlyWhenTheyChanged) {
  const std::string folder = store.folder().loginItemsFolderPath();
  information.saveListLoginItems();
  advance(5);
  information.saveListLoginItems();
  EXPECT_THAT(namesIn(folder), ElementsAre("24_01_02 12_00_00 Login Items.txt"));
  machine.machine.logins = {"new"};
  advance(5);
  information.saveListLoginItems();
  EXPECT_EQ(namesIn(folder).size(), 2U);
  EXPECT_EQ(contents(folder + "/24_01_02 12_00_10 Login Items.txt"), information.getLoginItems());
}

TEST_F(SystemInformationTest, WritesTheProcesses) {
  machine.folder.makeFolder("Downloads");
  machine.processes.addProcess("/usr/bin/plain");
  machine.processes.startApplication("/opt/Some.app");
  const auto path = information.saveListProcess();
  ASSERT_TRUE(path);
  EXPECT_EQ(*path, machine.machine.downloads + "/24_01_02 12_00_00 List Process.txt");
  const std::string text = contents(*path);
  EXPECT_THAT(text, testing::ContainsRegex("PID=[0-9]+ \\(/usr/bin/plain\\)\n"));
  EXPECT_THAT(text, testing::ContainsRegex("PID=[0-9]+ Some \\(/opt/Some.app/"));
  EXPECT_THAT(text, HasSubstr("\n\n***** Login Items:\n"));
}

ZAN_Value disks() {
  const auto partition = [](const char* device, const char* name) {
    return ZAN_Value::dictionary({{"DeviceIdentifier", device},
                                  {"Size", 250'000'000},
                                  {"VolumeName", name},
                                  {"Content", "ext4"}});
  };
  return ZAN_Value::dictionary(
      {{"AllDisksAndPartitions",
        ZAN_Value::array({ZAN_Value::dictionary(
            {{"DeviceIdentifier", "sda"},
             {"Size", 500'000'000},
             {"Content", "gpt"},
             {"Partitions",
              ZAN_Value::array({partition("sda1", "Root"), partition("sda2", "")})}})})}});
}

TEST_F(SystemInformationTest, LaysOutDisksAndPartitions) {
  const std::string text = SystemInformation::allDisksText(disks(), strings);
  EXPECT_THAT(text, testing::StartsWith("sda\t500 MB\t [gpt]\n"
                                        "#1\tsda1\t250 MB\tRoot:  [ext4]\n"
                                        "#2\tsda2\t250 MB\t [ext4]\n\n"
                                        "\n*********** Technical Raw Data **************\n"
                                        "{\n    AllDisksAndPartitions =     (\n"));
  EXPECT_THAT(text, HasSubstr("DeviceIdentifier = sda2;\n"));

  const auto extracted = [&](const ZAN_Value& dictionary) {
    return SystemInformation::extractFromDictionary(dictionary, strings);
  };
  EXPECT_EQ(extracted(ZAN_Value::dictionary({{"Size", 2'000'000}})).string(),
            "2 MB (2,000,000 bytes)");
  EXPECT_EQ(
      extracted(ZAN_Value::dictionary({{"VolumeName", "Root"}, {"Content", "ext4"}})).string(),
      "Root [ext4]");
  EXPECT_EQ(extracted(ZAN_Value::dictionary({{"Content", "ext4"}})).string(), "ext4");
  EXPECT_TRUE(extracted(ZAN_Value::dictionary()).isNull());
  const ZAN_Value bare = ZAN_Value::array({ZAN_Value::dictionary({{"Content", "ext4"}})});
  EXPECT_EQ(extracted(ZAN_Value::dictionary({{"Partitions", bare}})), bare);
  EXPECT_EQ(SystemInformation::extractFromArray(ZAN_Value::array({"a", "b"}), 1, strings), "a, b");
  EXPECT_EQ(SystemInformation::extractFromArray(
                ZAN_Value::array({1, ZAN_Value::dictionary({{"Content", "x"}}),
                                  ZAN_Value::array({ZAN_Value::dictionary({{"Content", "y"}})})}),
                0, strings),
            "x\n#1\ty")
      << "what is neither is left out, what lies deeper is numbered";
  EXPECT_EQ(SystemInformation::extractObjectForKey("AllDisksAndPartitions", ZAN_Value::dictionary(),
                                                   strings),
            "");
}

TEST_F(SystemInformationTest, ShowsTheDisksWhenTheyAreKnown) {
  auto& ui = machine.userInterface;
  const std::string diskutil = tools.toolsFolder() + "/diskutil";
  machine.folder.write(diskutil.substr(machine.folder.path().size() + 1), "");
  machine.processes.tool(diskutil, [this](const auto&) -> Result<std::string> {
    machine.clock.sleep(3);
    return plist(disks());
  });
  information.showAllDisksInformation();
  advance(1);
  EXPECT_FALSE(ui.isWindowVisible(Window::allDisks));
  advance(5);
  EXPECT_TRUE(ui.isWindowVisible(Window::allDisks));
  EXPECT_THAT(ui.texts[Window::allDisks], HasSubstr("sda1"));
  machine.processes.tool(diskutil, [](const auto&) -> Result<std::string> {
    return Error{ErrorKind::unavailable, "no tool"};
  });
  information.showAllDisksInformation();
  advance(1);
  EXPECT_EQ(ui.texts[Window::allDisks], "");
  EXPECT_THAT(machine.systemLog.lines, Contains("diskutil: it did not list the disks"));
}

}  // namespace
}  // namespace corvana::test
