#include "platform/linux/LinuxProcesses.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/fuse.h>
#include <poll.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/linux/ProcessTable.h"
#include "platform/linux/TerminationSignals.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/MountNamespace.h"
#include "tests/real/RealLoop.h"

namespace corvana {
namespace {

using testing::HasSubstr;

std::size_t openDescriptors() {
  const std::filesystem::directory_iterator folder("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(begin(folder), end(folder)));
}

struct LinuxProcessesTest : testing::Test {
  RealLoop real;
  LinuxProcesses processes{real.loop, {{"test"}, 0, std::getenv("HOME")}};
  TemporaryFolder folder;
  std::string output;
  bool outputEnded = false;
  bool ended = false;

  std::unique_ptr<ChildProcess> shell(const std::string& script, bool input = false) {
    return start({"/bin/sh", "-c", script}, input);
  }
  std::unique_ptr<ChildProcess> start(const std::vector<std::string>& arguments, bool input) {
    output.clear();
    outputEnded = ended = false;
    ChildObserver observer{[this](std::string_view chunk) { output += chunk; },
                           [this] { outputEnded = true; }, [this] { ended = true; }};
    auto child = processes.start(arguments, input, observer);
    EXPECT_TRUE(child) << child.error().text;
    return child ? std::move(child).value() : nullptr;
  }
  bool waitFor(ChildProcess& child) {
    return real.runUntil([&] { return outputEnded && ended && !child.isRunning(); });
  }
  /// What a test has started is waited for, but for what others have left behind.
  bool isAlone() {
    return real.runUntil([&] {
      (void)processes.running();
      return std::ranges::all_of(table.childrenOf(getpid()), [&](pid_t pid) {
        return std::ranges::find(childrenOfOthers, pid) != childrenOfOthers.end();
      });
    });
  }

  ProcessTable table{std::getenv("HOME")};
  const std::vector<pid_t> childrenOfOthers = table.childrenOf(getpid());
};

TEST_F(LinuxProcessesTest, AChildHandsBackItsOutputAndItsExitCode) {
  auto child = shell("read line; echo $line; echo err >&2; exit 3", true);
  EXPECT_TRUE(child->isRunning());
  EXPECT_EQ(child->terminationStatus(), 0);
  child->write("out\n");
  ASSERT_TRUE(waitFor(*child));
  EXPECT_EQ(output, "out\nerr\n");
  EXPECT_EQ(child->terminationStatus(), 3);
  EXPECT_FALSE(child->isRunning());
}

TEST_F(LinuxProcessesTest, ASignalIsAStatusToo) {
  auto child = shell("kill -SEGV $$");
  ASSERT_TRUE(waitFor(*child));
  EXPECT_EQ(child->terminationStatus(), SIGSEGV);

  auto stopped = start({"/bin/sleep", "1000"}, false);
  EXPECT_TRUE(stopped->isRunning());
  stopped->terminate();
  ASSERT_TRUE(waitFor(*stopped));
  EXPECT_EQ(stopped->terminationStatus(), SIGTERM);

  auto deaf = shell("trap '' TERM; echo deaf; while :; do sleep 0.01; done");
  ASSERT_TRUE(real.runUntil([&] { return output == "deaf\n"; }));
  deaf->terminate();
  processes.kill(deaf->pid());
  ASSERT_TRUE(real.runUntil([&] { return !deaf->isRunning(); }));
  EXPECT_EQ(deaf->terminationStatus(), SIGKILL);
}

TEST_F(LinuxProcessesTest, AStoppedChildHearsThatItIsToEnd) {
  auto child = shell("echo stops; kill -STOP $$");
  ASSERT_TRUE(real.runUntil([&] { return output == "stops\n"; }));
  child->terminate();
  ASSERT_TRUE(waitFor(*child));
  EXPECT_EQ(child->terminationStatus(), SIGTERM);
}

TEST_F(LinuxProcessesTest, AKilledChildTakesWhatItHasStartedAlong) {
  auto child = shell("trap '' TERM; sh -c \"trap '' TERM; echo begins; sleep 1000\"");
  ASSERT_TRUE(real.runUntil([&] { return output == "begins\n"; }));
  child->terminate();
  EXPECT_TRUE(child->isRunning());
  child->kill();
  ASSERT_TRUE(waitFor(*child)) << "somebody keeps the pipe open";
  EXPECT_EQ(child->terminationStatus(), SIGKILL);
}

/// A file system that takes every request and answers none but the first, as a share whose server
/// has gone.
class DeadFileSystem {
 public:
  explicit DeadFileSystem(const std::string& folder)
      : mDevice(open("/dev/fuse", O_RDWR | O_CLOEXEC)) {
    const std::string options =
        "fd=" + std::to_string(mDevice.get()) + ",rootmode=40000,user_id=0,group_id=0";
    mIsMounted = mDevice && mount("dead", folder.c_str(), "fuse", 0, options.c_str()) == 0;
    if (mIsMounted) mThread = std::thread([this] { swallow(); });
  }
  ~DeadFileSystem() { revive(); }
  bool isMounted() const { return mIsMounted; }
  int requests() const { return mRequests; }
  /// Whoever waits gets an error.
  void revive() {
    if (!mThread.joinable()) return;
    mEnds = true;
    mThread.join();
    mDevice.close();
  }

 private:
  void swallow() {
    std::vector<char> request(1 << 18);
    while (!mEnds) {
      pollfd wait{mDevice.get(), POLLIN, 0};
      if (poll(&wait, 1, 50) <= 0) continue;
      if (read(mDevice.get(), request.data(), request.size()) <= 0) return;
      fuse_in_header header{};
      std::memcpy(&header, request.data(), sizeof header);
      if (header.opcode != FUSE_INIT) {
        ++mRequests;
        continue;
      }
      struct {
        fuse_out_header header{};
        fuse_init_out body{};
      } answer;
      answer.header.len = sizeof answer;
      answer.header.unique = header.unique;
      answer.body.major = FUSE_KERNEL_VERSION;
      answer.body.minor = 31;
      answer.body.max_write = 4096;
      if (write(mDevice.get(), &answer, sizeof answer) < 0) return;
    }
  }

  ZAN_Descriptor mDevice;
  bool mIsMounted = false;
  std::atomic<int> mRequests = 0;
  std::atomic<bool> mEnds = false;
  std::thread mThread;
};

TEST(DyingProcess, OneThatASystemCallHoldsIsKnownToBeDying) {
  inOwnMountNamespace([] {
    RealLoop real;
    TemporaryFolder folder;
    LinuxProcesses processes(real.loop, {{"test"}, 0, std::getenv("HOME")});
    const std::string point = folder.at("dead");
    const std::string program = folder.at("Reader.app/Contents/MacOS/Reader");
    std::filesystem::create_directories(point);
    std::filesystem::create_directories(std::filesystem::path(program).parent_path());
    std::filesystem::copy_file("/bin/cat", program);
    DeadFileSystem dead(point);
    if (!dead.isMounted()) {
      std::cerr << "no file systems of programs here\n";
      return true;
    }
    auto child = processes.start({program, point + "/file"}, false, {});
    if (!expect(static_cast<bool>(child), "the program starts")) return false;
    const auto dying = [&] {
      const auto running = processes.running();
      const auto found = std::ranges::find(running, (*child)->pid(), &RunningProcess::pid);
      return found != running.end() && found->isDying;
    };
    bool good = expect(real.runUntil([&] { return dead.requests() > 0; }), "it asks the mount");
    good = expect(!dying(), "it is not killed yet") && good;
    (*child)->terminate();
    (*child)->kill();
    good = expect(real.runUntil(dying), "it is dying") && good;
    good = expect((*child)->isRunning(), "and it does not end") && good;
    dead.revive();
    return expect(real.runUntil([&] { return !(*child)->isRunning(); }), "it ends") && good;
  });
}

TEST(TerminationSignalTest, TellsTheEndOfASessionFromAWishOfTheUser) {
  RealLoop real;
  TemporaryFolder folder;
  LinuxProcesses processes(real.loop, {{"test"}, 0, std::getenv("HOME")});
  const auto sender = [&](const char* name) {
    const std::string program = folder.at(name);
    std::filesystem::copy_file("/bin/sleep", program);
    return std::move(processes.start({program, "100"}, false, {})).value();
  };
  const auto systemd = sender("systemd");
  const auto shell = sender("bash");
  ASSERT_TRUE(real.runUntil([&] {
    std::ifstream file("/proc/" + std::to_string(shell->pid()) + "/comm");
    std::string name;
    return std::getline(file, name) && name == "bash";
  }));
  struct Row {
    int number;
    std::int64_t sender;
    bool endsSession;
  };
  for (const Row& row : {Row{SIGTERM, systemd->pid(), true}, Row{SIGTERM, shell->pid(), false},
                         Row{SIGTERM, 1, true}, Row{SIGTERM, 0, true},
                         Row{SIGINT, systemd->pid(), false}, Row{SIGHUP, shell->pid(), true}}) {
    EXPECT_EQ((TerminationSignal{row.number, row.sender}.endsSession()), row.endsSession)
        << row.number << " from " << row.sender;
  }
  systemd->kill();
  shell->kill();
}

TEST_F(LinuxProcessesTest, TheEndIsToldWhenAGrandchildKeepsTheOutputOpen) {
  auto child = shell("sleep 1000 & echo $!; exit 4");
  ASSERT_TRUE(real.runUntil([&] { return ended && !output.empty(); }));
  EXPECT_EQ(child->terminationStatus(), 4);
  EXPECT_FALSE(outputEnded);
  ::kill(std::stoi(output), SIGKILL);
  EXPECT_TRUE(real.runUntil([&] { return outputEnded; }));
}

TEST_F(LinuxProcessesTest, MuchInputAndOutputPassWithoutBlocking) {
  auto child = start({"/bin/cat"}, true);
  std::string text;
  while (text.size() < 1'000'000) text += "line " + std::to_string(text.size()) + "\n";
  child->write(text);
  ASSERT_TRUE(real.runUntil([&] { return output.size() == text.size(); }));
  EXPECT_EQ(output, text);

  child->terminate();
  ASSERT_TRUE(waitFor(*child));
  child->write("nobody reads this any more");
  child->write("nor this");
  EXPECT_EQ(child->readAvailable(), "");
}

TEST_F(LinuxProcessesTest, WithoutAnInputPipeTheInputIsEmpty) {
  auto child = shell("cat; echo end");
  ASSERT_TRUE(waitFor(*child));
  EXPECT_EQ(output, "end\n");
  child->write("ignored");
}

TEST_F(LinuxProcessesTest, WhatIsLeftInThePipeCanBeTakenAfterTheEnd) {
  auto child = shell("echo last words");
  while (child->isRunning()) real.clock.sleep(0.002);
  EXPECT_EQ(child->readAvailable(), "last words\n");
  EXPECT_EQ(child->readAvailable(), "");
}

TEST_F(LinuxProcessesTest, AChildThatNobodyListensToGoesOn) {
  const std::string mark = folder.path() + "/written";
  auto child = shell("read line; head -c 300000 /dev/zero && echo all > '" + mark + "'", true);
  // Its input ends with this, and nobody reads what it then writes.
  child.reset();
  EXPECT_TRUE(real.runUntil([&] { return std::filesystem::exists(mark); }));
  EXPECT_TRUE(isAlone()) << "whoever kept its pipe goes with it";
}

TEST_F(LinuxProcessesTest, AChildMayBeLetGoInItsOwnCallBack) {
  std::unique_ptr<ChildProcess> child;
  bool called = false;
  ChildObserver observer{[&](std::string_view) {
                           called = true;
                           child.reset();
                         },
                         [] { FAIL() << "nobody listens any more"; }};
  auto started = processes.start({"/bin/sh", "-c", "echo x"}, true, observer);
  ASSERT_TRUE(started);
  child = std::move(started).value();
  EXPECT_TRUE(real.runUntil([&] { return called; }));
  // It is waited for all the same: no ended process stays behind.
  EXPECT_TRUE(isAlone());
}

TEST_F(LinuxProcessesTest, ChildrenInheritNothingAndLeaveNothingOpen) {
  const std::size_t before = openDescriptors();
  const int inheritable = dup(0);
  sigset_t blocked;
  sigemptyset(&blocked);
  sigaddset(&blocked, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
  for (int i = 0; i < 20; ++i) {
    auto child = shell("ls /proc/self/fd | wc -l; grep -E 'Sig(Blk|Ign)' /proc/self/status", true);
    ASSERT_TRUE(waitFor(*child));
  }
  pthread_sigmask(SIG_UNBLOCK, &blocked, nullptr);
  close(inheritable);
  // Its three streams and the folder that ls reads.
  EXPECT_THAT(output, testing::StartsWith("4\n"));
  EXPECT_THAT(output, HasSubstr("SigBlk:\t0000000000000000"));
  // Two signals that the library keeps to itself stay as they came.
  EXPECT_THAT(output, testing::ContainsRegex("SigIgn:\t0000000[01][08]0000000"));
  EXPECT_FALSE(processes.start({"/nowhere/at all"}, true, {}));
  EXPECT_FALSE(processes.runTool({"/nowhere/at all"}, 1));
  // The loop closes what its call-backs used on its next turn.
  EXPECT_TRUE(real.runUntil([&] { return openDescriptors() <= before; }));
}

TEST_F(LinuxProcessesTest, AToolReturnsItsOutputOrAReason) {
  const auto text = processes.runTool({"/bin/sh", "-c", "echo out; echo noise >&2"}, 20);
  ASSERT_TRUE(text);
  EXPECT_EQ(*text, "out\n");
  const auto much = processes.runTool({"/bin/sh", "-c", "head -c 1000000 /dev/zero"}, 20);
  ASSERT_TRUE(much);
  EXPECT_EQ(much->size(), 1'000'000U);

  const auto failed =
      processes.runTool({"/bin/sh", "-c", "echo first >&2; echo no such disk >&2; exit 2"}, 20);
  ASSERT_FALSE(failed);
  EXPECT_EQ(failed.error().text, "/bin/sh: ended with status 2, no such disk");
  EXPECT_EQ(processes.runTool({"/nowhere"}, 20).error().kind, ErrorKind::absent);
  EXPECT_EQ(processes.runTool({"/bin/cat", "/dev/zero"}, 60).error().kind, ErrorKind::limit);
}

TEST_F(LinuxProcessesTest, AToolThatHangsIsEndedWithWhatItHasStarted) {
  const double start = real.clock.monotonic();
  const std::string script = "sleep 1000 & echo $! > " + folder.at("pid") + "; wait";
  const auto hung = processes.runTool({"/bin/sh", "-c", script}, 0.5);
  ASSERT_FALSE(hung);
  EXPECT_EQ(hung.error().kind, ErrorKind::unavailable);
  EXPECT_LT(real.clock.monotonic() - start, 20);
  pid_t pid = 0;
  std::ifstream(folder.at("pid")) >> pid;
  ASSERT_GT(pid, 1);
  EXPECT_TRUE(real.runUntil([&] {
    std::error_code gone;
    return std::filesystem::read_symlink("/proc/" + std::to_string(pid) + "/exe", gone).empty();
  }));

  // One that leaves something running with its output open is not waited for beyond its own end.
  const auto left = processes.runTool({"/bin/sh", "-c", "sleep 5 & echo done"}, 20);
  ASSERT_TRUE(left);
  EXPECT_EQ(*left, "done\n");
  EXPECT_LT(real.clock.monotonic() - start, 25);
}

struct ProcessListTest : LinuxProcessesTest {
  std::string program = folder.at("Outer.app/Contents/Resources/X y.app/Contents/MacOS/X y");

  void SetUp() override {
    std::filesystem::create_directories(std::filesystem::path(program).parent_path());
    std::filesystem::copy_file("/bin/sleep", program);
  }
  std::vector<RunningProcess> find() {
    std::vector<RunningProcess> list = processes.running();
    std::erase_if(list, [&](const auto& one) { return one.executable != program; });
    return list;
  }
};

TEST_F(ProcessListTest, FindsAnApplicationUntilItEnds) {
  auto child = start({program, "1000"}, false);
  // In the middle of its start a process does not show its environment yet.
  ASSERT_TRUE(real.runUntil([&] { return find().size() == 1; }));
  const RunningProcess found = find().front();
  EXPECT_EQ(found.pid, child->pid());
  EXPECT_EQ(found.bundlePath, folder.at("Outer.app/Contents/Resources/X y.app"));
  EXPECT_EQ(found.bundleExecutable, "X y");
  EXPECT_NEAR(found.start, real.clock.now(), 30);

  // An update replaces the file of the running program.
  std::filesystem::remove(program);
  EXPECT_EQ(find().size(), 1U);

  child->terminate();
  EXPECT_TRUE(real.runUntil([&] { return find().empty(); }))
      << "one that has ended is gone even when nobody has waited for it";
}

TEST_F(ProcessListTest, AnotherHomeIsAnotherUser) {
  auto child = start({"/usr/bin/env", "HOME=/elsewhere", program, "1000"}, false);
  const std::string process = "/proc/" + std::to_string(child->pid());
  // Both come with the new program, the one after the other.
  ASSERT_TRUE(real.runUntil([&] {
    std::ifstream file(process + "/environ");
    const std::string environment{std::istreambuf_iterator<char>(file), {}};
    return std::filesystem::read_symlink(process + "/exe") == program &&
           environment.find(std::string("HOME=/elsewhere") + '\0') != std::string::npos;
  }));
  EXPECT_TRUE(find().empty());
  child->terminate();
}

TEST_F(ProcessListTest, AProcessThatBecomesAnotherProgramIsSeen) {
  auto child = shell("read line; exec '" + program + "' 1000", true);
  EXPECT_TRUE(find().empty());
  child->write("go\n");
  EXPECT_TRUE(real.runUntil([&] { return find().size() == 1; }));
  child->terminate();
}

TEST_F(ProcessListTest, ItselfBeganWhenItWasTold) {
  for (const RunningProcess& one : processes.running()) {
    if (one.pid == getpid()) {
      EXPECT_EQ(one.start, processes.ownStart());
      return;
    }
  }
  FAIL() << "not in its own list";
}

TEST_F(ProcessListTest, OpeningABundleStartsItDetached) {
  const std::string bundle = folder.at("Outer.app/Contents/Resources/X y.app");
  std::filesystem::remove(program);
  std::ofstream(program) << "#!/bin/sh\necho \"$$ $(ps -o sid= -p $$)\" > '" << folder.at("ran")
                         << "'\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  EXPECT_FALSE(processes.open(folder.at("missing.app")));
  ASSERT_TRUE(processes.open(bundle));
  EXPECT_TRUE(real.runUntil([&] { return std::filesystem::exists(folder.at("ran")); }));
}

TEST_F(ProcessListTest, ARelaunchKeepsTheProcessAndItsArguments) {
  std::filesystem::remove(program);
  std::ofstream(program) << "#!/bin/sh\necho \"$$ $1 $(grep SigBlk /proc/$$/status)\" > '"
                         << folder.at("ran") << "'\n";
  std::filesystem::permissions(program, std::filesystem::perms::owner_all);
  EXPECT_EQ(processes.relaunch(folder.at("gone.app")).kind, ErrorKind::absent);
  const pid_t pid = fork();
  if (pid == 0) {
    sigset_t blocked;
    sigfillset(&blocked);
    pthread_sigmask(SIG_BLOCK, &blocked, nullptr);
    LinuxProcesses agent(real.loop, {{"old", "--headless"}, 0, "/"});
    (void)agent.relaunch(folder.at("Outer.app/Contents/Resources/X y.app"));
    _exit(99);
  }
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  EXPECT_EQ(status, 0);
  std::string line;
  std::getline(std::ifstream(folder.at("ran")) >> std::ws, line);
  EXPECT_EQ(line, std::to_string(pid) + " --headless SigBlk:\t0000000000000000");
}

TEST_F(ProcessListTest, AListingOfKnownProcessesIsCheap) {
  std::vector<std::unique_ptr<ChildProcess>> children;
  for (int i = 0; i < 50; ++i) children.push_back(start({program, "1000"}, false));
  ASSERT_TRUE(real.runUntil([&] { return find().size() == 50; }));
  double best = 1;
  for (int i = 0; i < 20; ++i) {
    const double begin = real.clock.monotonic();
    EXPECT_EQ(find().size(), 50U);
    best = std::min(best, real.clock.monotonic() - begin);
  }
  RecordProperty("microseconds", static_cast<int>(best * 1e6));
  for (auto& child : children) child->terminate();
}

TEST_F(LinuxProcessesTest, TheComingAndGoingOfCertainProgramsIsTold) {
  const std::string bundle = folder.at("Applications/B.app");
  const std::string program = bundle + "/Contents/MacOS/B";
  const auto runs = [&] {
    return std::ranges::count(processes.running(), bundle, &RunningProcess::bundlePath) > 0;
  };
  int told = 0;
  bool saw = false;
  processes.observe({bundle}, [&] {
    ++told;
    saw = runs();
  });
  // It is installed after the observation began, and replaced later.
  std::unique_ptr<ChildProcess> child;
  for (int run = 0; run < 2; ++run) {
    std::filesystem::remove_all(bundle);
    std::filesystem::create_directories(bundle + "/Contents/MacOS");
    std::filesystem::copy_file("/bin/sleep", program);
    const int before = told;
    ASSERT_TRUE(real.runUntil([&] { return told >= before + 2; }));
    child = start({program, "1000"}, false);
    ASSERT_TRUE(real.runUntil([&] { return saw; }));
    child->terminate();
    ASSERT_TRUE(real.runUntil([&] { return !saw; }));
  }
  processes.observe({}, {});
  const int before = told;
  child = start({program, "0"}, false);
  ASSERT_TRUE(waitFor(*child));
  EXPECT_EQ(told, before);
}

}  // namespace
}  // namespace corvana
