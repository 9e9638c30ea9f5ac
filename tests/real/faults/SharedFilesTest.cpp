#include <gmock/gmock.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "actions/History.h"
#include "core/record/Deadline.h"
#include "core/record/Preferences.h"
#include "tests/real/agent/AgentOnBus.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

/// The agent at work beside programs that write into the same files all the time.
struct SharedFilesTest : AgentOnBus {
  static constexpr int kPrograms = 3;
  static constexpr int kEach = 25;
  static constexpr std::size_t kLaunches = 4;

  /// The other programs are copies of this one as it is before it has threads, and wait.
  void SetUp() override {
    std::array<int, 2> ends{};
    ASSERT_EQ(::pipe(ends.data()), 0);
    for (int program = 0; program < kPrograms; ++program) {
      const pid_t child = ::fork();
      if (child == 0) {
        ::close(ends[1]);
        char go = 0;
        if (::read(ends[0], &go, 1) != 0) ::_exit(2);
        ::_exit(write(program));
      }
      mChildren.push_back(child);
    }
    ::close(ends[0]);
    mGo = ZAN_Descriptor(ends[1]);
    AgentOnBus::SetUp();
    const std::string execute = bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute");
    std::ofstream(execute) << "#!/bin/sh\necho \"$1\" >> \"$HOME/ran\"\n";
  }
  void TearDown() override {
    mGo.close();
    for (const pid_t child : mChildren) ::waitpid(child, nullptr, 0);
    AgentOnBus::TearDown();
  }

  static std::string name(int program, int number) {
    return "entry " + std::to_string(program) + "-" + std::to_string(number) + ".";
  }
  /// 0 when nothing had to be said.
  int write(int program) {
    ::setenv("HOME", home.path().c_str(), 1);
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    History history(store);
    DeadlineList deadlines;
    Preferences preferences(store.settings(), machine, deadlines, clock.now());
    preferences.loadPrefs();
    for (int number = 0; number < kEach; ++number) {
      const std::string entry = name(program, number);
      history.log().addLog(
          ZAN_Value::dictionary({{"C", 13}, {"N", entry}, {"M", ZAN_Value::date(clock.now())}}));
      history.addHistoryEntry(ZAN_Value::dictionary(
          {{"Title", entry}, {"Date", ZAN_Value::date(program * 1000.0 + number)}}));
      store.texts().addToReportFile(entry);
      if (!store.settings().setMainAppSetting(1, entry)) return 3;
      preferences.setPref(entry, 1);
      preferences.savePrefs();
    }
    for (const std::string& line : log.lines) std::fprintf(stderr, "%s\n", line.c_str());
    return log.lines.empty() ? 0 : 5;
  }
  std::size_t ran() const {
    std::ifstream file(home.at("ran"));
    return static_cast<std::size_t>(std::count(std::istreambuf_iterator<char>(file), {}, '\n'));
  }

  std::vector<pid_t> mChildren;
  ZAN_Descriptor mGo;
};

TEST_F(SharedFilesTest, LoseNothingThatProgramsWriteAtOnce) {
  startAgent();
  mGo.close();
  for (std::size_t launch = 1; launch <= kLaunches; ++launch) {
    EXPECT_EQ(command({"launch", std::to_string(kLetters)}).code, 0);
    ASSERT_TRUE(real.runUntil([&] { return ran() == launch; })) << agentOutput;
    ASSERT_TRUE(until([](const ZAN_Value& status) { return status.integer("queueCount") == 0; }));
    EXPECT_EQ(command({"disable"}).code, 0);
    EXPECT_EQ(command({"enable"}).code, 0);
  }
  for (const pid_t child : std::exchange(mChildren, {})) {
    int status = -1;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
  }
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  EXPECT_EQ(agentOutput.find("without lock"), std::string::npos) << agentOutput;

  LinuxMachine machine;
  ActionStore store(clock, machine, log);
  History history(store);
  const auto textsOf = [](const ZAN_Value& list, const char* key) {
    std::string all;
    for (const ZAN_Value& one : list.elements())
      if (one.isDictionary()) all += one.string(key);
    return all;
  };
  const ZAN_Value entries = history.log().readLogList();
  const std::string logged = textsOf(entries, "N");
  const std::string executed = textsOf(history.getProgrammedHistoryList(), "Title");
  const auto file = ZAN_FilesUtils::readFile(store.texts().reportFileNameForDate(clock.now()));
  ASSERT_TRUE(file);
  const ZAN_Value settings = store.settings().schedulerSettings();
  for (int program = 0; program < kPrograms; ++program) {
    for (int number = 0; number < kEach; ++number) {
      const std::string entry = name(program, number);
      EXPECT_NE(logged.find(entry), std::string::npos) << entry;
      EXPECT_NE(executed.find(entry), std::string::npos) << entry;
      EXPECT_NE(file->bytes.find(entry + "\n"), std::string::npos) << entry;
      EXPECT_EQ(store.settings().mainAppSettingForKey(entry).integerValue(), 1) << entry;
      EXPECT_EQ(settings.integer(entry), 1) << entry;
    }
  }
  const auto launches = std::ranges::count_if(entries.elements(), [](const ZAN_Value& entry) {
    return entry.integer("C") == 1 && entry.integer("R") == kLetters;
  });
  EXPECT_EQ(static_cast<std::size_t>(launches), kLaunches);
  EXPECT_EQ(settings.integer(PreferenceKey::scheduleDisabled), 0);
}

TEST_F(SharedFilesTest, ShowNothingToAnotherUserWhateverTheUmask) {
  if (::geteuid() != 0) GTEST_SKIP() << "only root can look as another user";
  const mode_t before = ::umask(0);
  startAgent();
  mGo.close();
  EXPECT_EQ(command({"launch", std::to_string(kLetters)}).code, 0);
  ASSERT_TRUE(real.runUntil([&] { return ran() == 1; })) << agentOutput;
  EXPECT_EQ(command({"edit", std::to_string(kLetters), "--title", "Secret"}).code, 0);
  agent->terminate();
  ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  ::umask(before);

  constexpr uid_t kNobody = 65534;
  // Whoever made the folders around those of the product made them open.
  const std::string around = home.at("Library/Application Support");
  for (const std::string& path : {home.path(), home.at("Library"), around})
    fs::permissions(path, fs::perms(0755));
  std::vector<std::string> paths;
  for (const auto& entry : fs::recursive_directory_iterator(home.at("Library")))
    if (entry.path() != around) paths.push_back(entry.path());
  EXPECT_GT(paths.size(), 15U);
  const pid_t child = ::fork();
  if (child == 0) {
    if (::setgroups(0, nullptr) != 0 || ::setgid(kNobody) != 0 || ::setuid(kNobody) != 0)
      ::_exit(100);
    int open = 0;
    for (const std::string& path : paths) {
      if (::access(path.c_str(), R_OK) != 0 && ::access(path.c_str(), W_OK) != 0) continue;
      std::fprintf(stderr, "open to others: %s\n", path.c_str());
      open = 1;
    }
    ::_exit(open);
  }
  int status = -1;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace corvana
