// The execute program at work while the system refuses it things, while it is killed, and while the
// power fails.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <string>

#include "actions/History.h"
#include "execute/engine/Restoration.h"
#include "execute/plain/CopyPlan.h"
#include "execute/plain/VersionView.h"
#include "execute/plain/Versions.h"
#include "tests/real/faults/UnderFaults.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;

constexpr std::int64_t kMine = 103;
constexpr int kCompleted = 2;
constexpr std::size_t kTried = 4;

using Contents = std::map<std::string, std::string>;

Contents contentsBelow(const std::string& folder) {
  Contents contents;
  for (const auto& entry : fs::recursive_directory_iterator(folder)) {
    const std::string name = fs::relative(entry.path(), folder);
    if (!entry.is_regular_file() || name.starts_with(".corvana9-")) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    contents[name] = std::string(std::istreambuf_iterator<char>(file), {});
  }
  return contents;
}

/// A synchronisation of a source of which, since the first run, something is new, something else,
/// something gone and a folder in the place of a file.
struct ExecuteFaultsTest : UnderFaults {
  void SetUp() override {
    AgentOnBus::SetUp();
    fs::remove(execute());
    fs::copy_file(CORVANA_EXECUTE, execute());
    const auto item = [&](const std::string& name) {
      return ZAN_Value::dictionary({{"VolumeFolderPath", home.makeFolder(name)}});
    };
    {
      LinuxMachine machine;
      ActionStore store(clock, machine, log);
      const ZAN_Value mine =
          ZAN_Value::dictionary({{"Ref", kMine},
                                 {"Title", "Mine"},
                                 {"Mode", CopyPlan::kSynchronise},
                                 {"TriggerAutomatic", 0},
                                 {"OptionsPerformer", "corvana9"},
                                 {"ItemsListOfSourcePath", ZAN_Value::array({item("source")})},
                                 {"ItemsDestination", item("disk")}});
      ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({mine})));
    }
    for (const char* name : {"same", "other", "gone", "d/gone", "kind"}) write(name, "first");
    mFirst = contentsBelow(home.at("source"));
    ASSERT_EQ(run("none 0 once"), 0);
    ASSERT_EQ(contentsBelow(home.at("disk/source")), mFirst);
    fs::remove(home.at("source/gone"));
    fs::remove_all(home.at("source/d"));
    fs::remove(home.at("source/kind"));
    for (const char* name : {"other", "new", "kind/new"}) write(name, "second");
    mSecond = contentsBelow(home.at("source"));
    ASSERT_TRUE(shell("mkdir before && cp -a Library disk before"));
  }
  void begin() {
    ASSERT_TRUE(shell("rm -rf Library disk && cp -a before/Library before/disk ."));
    fs::remove(home.at("synced"));
    mBefore = sizes();
  }

  std::string execute() const {
    return bundle("Corvana 9 Execute.app/Contents/MacOS/Corvana 9 Execute");
  }
  /// Each has contents of its own.
  void write(const std::string& name, const std::string& state) {
    const std::string path = home.at("source/" + name);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path) << state << " of " << name;
  }
  bool shell(const std::string& line) const {
    return std::system(("cd '" + home.path() + "' && { " + line + "; }").c_str()) == 0;
  }
  int run(const std::string& fault) {
    mSaid = runUnder(fault, {execute(), std::to_string(kMine)});
    return mSaid.code;
  }

  /// What the history says of the last run: its result and how many there were.
  std::pair<std::int64_t, std::size_t> recorded() {
    LinuxMachine machine;
    ActionStore store(clock, machine, log);
    History history(store);
    const std::size_t count = history.historyCount();
    return {history.historyEntryAtIndex(static_cast<std::int64_t>(count) - 1).integer("C"), count};
  }
  void expectNothingLost() {
    std::set<std::string> there;
    for (const auto& entry : fs::recursive_directory_iterator(home.at("disk"))) {
      if (!entry.is_regular_file()) continue;
      std::ifstream file(entry.path(), std::ios::binary);
      there.emplace(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    for (const auto& [name, contents] : mFirst)
      EXPECT_TRUE(there.contains(contents)) << name << "\n" << mSaid.text;
  }
  /// The next run finds everything in order, and the first state can be had back.
  void expectNextRunIsGood() {
    EXPECT_EQ(run("none 0 once"), 0);
    EXPECT_EQ(recorded().first, kCompleted) << mSaid.text;
    EXPECT_EQ(contentsBelow(home.at("disk/source")), mSecond);
    for (const auto& entry : fs::recursive_directory_iterator(home.at("Library")))
      EXPECT_EQ(entry.path().string().find("(damaged"), std::string::npos) << entry.path();
    LinuxMachine machine;
    const auto disk = HeldFolder::open(home.at("disk"));
    auto versions = Versions::open(
        *disk,
        {.machine = machine.machineIdentifier(), .home = machine.homeFolder(), .reference = kMine});
    ASSERT_TRUE(versions) << versions.error().text;
    const auto chain = versions->chain();
    ASSERT_FALSE(chain.empty());
    const auto view = VersionView::open(*disk, *versions->folder(), chain, 0);
    ASSERT_TRUE(view) << view.error().text;
    const std::string place = home.makeFolder("restored");
    const auto target = HeldFolder::open(place);
    Restoration restoration(*view, *target, {},
                            {.goesOn = {},
                             .failed = [](const std::string& text) { ADD_FAILURE() << text; },
                             .done = {}});
    EXPECT_TRUE(restoration.perform({}));
    EXPECT_EQ(contentsBelow(place + "/source"), mFirst);
    fs::remove_all(place);
  }

  using Number = std::pair<dev_t, ino_t>;
  std::map<Number, off_t> sizes() const {
    std::map<Number, off_t> all;
    eachFile([&](const std::string&, const struct stat& state) {
      all[{state.st_dev, state.st_ino}] = state.st_size;
    });
    return all;
  }
  template <class Body>
  void eachFile(const Body& body) const {
    for (const char* const root : {"Library", "disk"}) {
      for (const auto& entry : fs::recursive_directory_iterator(home.at(root))) {
        struct stat state {};
        if (::lstat(entry.path().c_str(), &state) == 0 && S_ISREG(state.st_mode))
          body(entry.path().string(), state);
      }
    }
  }
  /// Names are as they were given last; of the bytes only those are there that were on the disk
  /// before, or were synchronised, whatever else the file system knows of the file.
  void cutPower() {
    std::map<Number, off_t> sure = mBefore;
    std::ifstream synced(home.at("synced"));
    Number number;
    for (off_t size = 0; synced >> number.first >> number.second >> size;) sure[number] = size;
    eachFile([&](const std::string& path, const struct stat& state) {
      const auto found = sure.find({state.st_dev, state.st_ino});
      const off_t size = found == sure.end() ? 0 : found->second;
      if (size >= state.st_size) return;
      ASSERT_EQ(::truncate(path.c_str(), size), 0);
      const std::array times{state.st_atim, state.st_mtim};
      ::utimensat(AT_FDCWD, path.c_str(), times.data(), 0);
    });
  }
  template <class Body>
  void eachCall(const std::vector<std::string>& kinds, const Body& body) {
    for (const std::string& kind : kinds) {
      begin();
      const std::size_t count = countOf(kind, [&](const std::string& fault) { run(fault); });
      EXPECT_GT(count, 0U) << kind;
      for (const std::size_t number : numbers(count, kTried)) {
        begin();
        body(kind + ' ' + std::to_string(number) + ' ');
      }
    }
  }

  Contents mFirst;
  Contents mSecond;
  std::map<Number, off_t> mBefore;
  Said mSaid;
};

TEST_F(ExecuteFaultsTest, WhatIsRefusedLosesNothingAndIsNeverCalledDone) {
  const std::size_t before = recorded().second;
  for (const std::string often : kOften) {
    eachCall({std::begin(kKinds), std::end(kKinds)}, [&](const std::string& call) {
      SCOPED_TRACE(call + often);
      const int status = run(call + often);
      const auto [code, count] = recorded();
      if (status == 0) {
        EXPECT_GT(count, before) << "it has recorded its end\n" << mSaid.text;
        EXPECT_NE(code, 1) << "it has recorded its end\n" << mSaid.text;
      }
      if (count > before && code == kCompleted) {
        EXPECT_EQ(contentsBelow(home.at("disk/source")), mSecond) << mSaid.text;
      } else if (count > before) {
        EXPECT_FALSE(mSaid.text.empty()) << "it says why";
      }
      expectNothingLost();
      expectNextRunIsGood();
    });
  }
}

TEST_F(ExecuteFaultsTest, AKillOrACutOfThePowerAtAnyCallLosesNothing) {
  ::setenv("CORVANA_FAULT_SYNCED", home.at("synced").c_str(), 1);
  for (const bool isCut : {false, true}) {
    eachCall({"open", "write", "fsync", "rename", "lock", "fork"}, [&](const std::string& call) {
      SCOPED_TRACE(call + (isCut ? "cut" : "kill"));
      run(call + "kill");
      if (isCut) cutPower();
      expectNothingLost();
      expectNextRunIsGood();
    });
  }
  ::unsetenv("CORVANA_FAULT_SYNCED");
}

}  // namespace
}  // namespace corvana
