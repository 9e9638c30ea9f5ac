#include "platform/linux/LinuxProcesses.h"

#include <fcntl.h>
#include <linux/close_range.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

/// Tells the fresh run of this process what is left open: its id and the descriptor.
constexpr const char* kHandedOn = "CORVANA9_HANDED_ON";
/// Takes what comes from a child whose reader has gone, which a broken pipe would end. It waits
/// until nobody holds the other end of the second stream, and goes with the last who writes.
constexpr const char* kKeeper = "read -r end <&2; exec cat > /dev/null 2>&1";
constexpr std::size_t kChunk = 65536;
/// A pipe that somebody keeps full must not hold its reader.
constexpr double kUntilItAnswers = 1;
constexpr std::size_t kMostAtOnce = 1 << 20;

/// The program of a bundle: the one of its name, else the only one there; a path that is no bundle
/// is itself.
std::string programAt(const std::string& path) {
  namespace fs = std::filesystem;
  const fs::path bundle(path);
  if (bundle.extension() != ".app") return path;
  const fs::path folder = bundle / "Contents" / "MacOS";
  const fs::path named = folder / bundle.stem();
  std::error_code ignored;
  if (fs::exists(named, ignored)) return named.string();
  const fs::directory_iterator first(folder, ignored);
  return first == fs::end(first) ? named.string() : first->path().string();
}

}  // namespace

/// Process ids of children that nobody asks about any more.
struct LinuxProcesses::Strays {
  void reap() {
    std::erase_if(pids, [](pid_t pid) { return waitpid(pid, nullptr, WNOHANG) != 0; });
  }
  std::vector<pid_t> pids;
};

class LinuxProcesses::Child final : public ChildProcess {
 public:
  Child(DescriptorWatch& watch, std::shared_ptr<Strays> strays, pid_t pid, ZAN_Descriptor life,
        ZAN_Descriptor output, ZAN_Descriptor input, ZAN_Descriptor keeper, ChildObserver observer)
      : mWatch(watch),
        mStrays(std::move(strays)),
        mPid(pid),
        mLife(std::move(life)),
        mOutput(std::move(output)),
        mInput(std::move(input)),
        mKeeper(std::move(keeper)),
        mObserver(std::move(observer)) {
    mLiving = mWatch.watch(mLife.get(), DescriptorWatch::Event::readable, [this] { tellEnd(); });
    mReading = mWatch.watch(mOutput.get(), DescriptorWatch::Event::readable, [this] { deliver(); });
  }

  ~Child() override {
    mWatch.unwatch(mLiving);
    mWatch.unwatch(mReading);
    mWatch.unwatch(mWriting);
    if (isRunning()) mStrays->pids.push_back(mPid);
  }

  std::int64_t pid() const override { return mPid; }

  bool isRunning() override {
    if (mStatus) return false;
    int status = 0;
    const pid_t ended = waitpid(mPid, &status, WNOHANG);
    if (ended == 0) return true;
    mStatus = ended == mPid ? statusOfWait(status) : 0;
    return false;
  }

  int terminationStatus() override { return isRunning() ? 0 : *mStatus; }

  void terminate() override {
    if (!isRunning()) return;
    ::kill(mPid, SIGTERM);
    // One that was stopped would not hear it.
    ::kill(mPid, SIGCONT);
  }

  void kill() override {
    // It leads a group of its own.
    if (isRunning() && ::kill(-mPid, SIGKILL) != 0) ::kill(mPid, SIGKILL);
  }

  void write(std::string_view data) override {
    if (!mInput) return;
    mUnwritten.append(data);
    if (mWriting == 0) send();
  }

  std::string readAvailable() override {
    std::string text;
    for (;;) {
      std::array<char, kChunk> buffer{};
      const ssize_t count = mOutput ? read(mOutput.get(), buffer.data(), buffer.size()) : 0;
      if (count < 0 && errno == EINTR) continue;
      if (count <= 0) return text;
      text.append(buffer.data(), static_cast<std::size_t>(count));
      if (text.size() >= kMostAtOnce) return text;
    }
  }

 private:
  void deliver() {
    std::array<char, kChunk> buffer{};
    const ssize_t count = read(mOutput.get(), buffer.data(), buffer.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (count > 0) {
      // The call-back may let go of this object and of itself with it.
      const auto output = mObserver.output;
      if (output) output({buffer.data(), static_cast<std::size_t>(count)});
      return;
    }
    mWatch.unwatch(std::exchange(mReading, 0));
    mOutput.close();
    const auto ended = mObserver.outputEnded;
    if (ended) ended();
  }

  void tellEnd() {
    mWatch.unwatch(std::exchange(mLiving, 0));
    mLife.close();
    const auto ended = mObserver.ended;
    if (ended) ended();
  }

  void send() {
    while (!mUnwritten.empty()) {
      const ssize_t count = ::write(mInput.get(), mUnwritten.data(), mUnwritten.size());
      if (count < 0 && errno == EINTR) continue;
      if (count < 0 && errno == EAGAIN) {
        if (mWriting == 0) {
          mWriting =
              mWatch.watch(mInput.get(), DescriptorWatch::Event::writable, [this] { send(); });
        }
        return;
      }
      if (count < 0) {
        mUnwritten.clear();
        mWatch.unwatch(std::exchange(mWriting, 0));
        mInput.close();
        return;
      }
      mUnwritten.erase(0, static_cast<std::size_t>(count));
    }
    mWatch.unwatch(std::exchange(mWriting, 0));
  }

  DescriptorWatch& mWatch;
  std::shared_ptr<Strays> mStrays;
  pid_t mPid;
  ZAN_Descriptor mLife;  ///< readable once it has ended
  ZAN_Descriptor mOutput;
  ZAN_Descriptor mInput;
  ZAN_Descriptor mKeeper;  ///< open for as long as the output is read here
  ChildObserver mObserver;
  DescriptorWatch::WatchId mLiving = 0;
  DescriptorWatch::WatchId mReading = 0;
  DescriptorWatch::WatchId mWriting = 0;
  std::string mUnwritten;
  std::optional<int> mStatus;
};

LinuxProcesses::LinuxProcesses(DescriptorWatch& watch, Self self)
    : mWatch(watch),
      mSelf(std::move(self)),
      mTable(mSelf.home),
      mPrograms(watch),
      mStrays(std::make_shared<Strays>()) {
  signal(SIGPIPE, SIG_IGN);
  // What the program that this one has replaced left running is still ours to wait for.
  mStrays->pids = mTable.childrenOf(getpid());
}

LinuxProcesses::~LinuxProcesses() = default;

Result<std::unique_ptr<ChildProcess>> LinuxProcesses::start(
    const std::vector<std::string>& arguments, bool standardInput, ChildObserver observer) {
  mStrays->reap();
  const std::string name = arguments.empty() ? std::string() : arguments.front();
  std::array<int, 2> output{-1, -1};
  std::array<int, 2> input{-1, -1};
  if (pipe2(output.data(), O_CLOEXEC) != 0) {
    return Error{ErrorKind::unavailable, name + ": " + std::strerror(errno)};
  }
  ZAN_Descriptor outputRead(output[0]);
  const ZAN_Descriptor outputWrite(output[1]);
  if (standardInput && pipe2(input.data(), O_CLOEXEC) != 0) {
    return Error{ErrorKind::unavailable, name + ": " + std::strerror(errno)};
  }
  const ZAN_Descriptor inputRead(input[0]);
  ZAN_Descriptor inputWrite(input[1]);
  const auto pid =
      spawn(arguments,
            {.input = inputRead.get(), .output = outputWrite.get(), .error = outputWrite.get()});
  if (!pid) return pid.error();
  ZAN_Descriptor life(static_cast<int>(syscall(SYS_pidfd_open, *pid, 0)));
  if (!life) {
    const int failure = errno;
    ::kill(*pid, SIGKILL);
    mStrays->pids.push_back(*pid);
    return Error{ErrorKind::unavailable, name + ": " + std::strerror(failure)};
  }
  ZAN_Descriptor keeper = startKeeper(outputRead.get());
  // Only our ends: the flag belongs to the open pipe end, and the child expects the usual.
  fcntl(outputRead.get(), F_SETFL, O_NONBLOCK);
  if (inputWrite) fcntl(inputWrite.get(), F_SETFL, O_NONBLOCK);
  return std::unique_ptr<ChildProcess>(
      std::make_unique<Child>(mWatch, mStrays, *pid, std::move(life), std::move(outputRead),
                              std::move(inputWrite), std::move(keeper), std::move(observer)));
}

ZAN_Descriptor LinuxProcesses::startKeeper(int output) {
  // An opening of its own, without our flags.
  const ZAN_Descriptor own(
      ::open(("/proc/self/fd/" + std::to_string(output)).c_str(), O_RDONLY | O_CLOEXEC));
  std::array<int, 2> ends{-1, -1};
  if (!own || pipe2(ends.data(), O_CLOEXEC) != 0) return {};
  const ZAN_Descriptor read(ends[0]);
  ZAN_Descriptor write(ends[1]);
  const auto pid = spawn({"/bin/sh", "-c", kKeeper},
                         {.input = own.get(), .error = read.get(), .detached = true});
  if (!pid) return {};
  mStrays->pids.push_back(*pid);
  return write;
}

Result<std::string> LinuxProcesses::runTool(const std::vector<std::string>& arguments,
                                            double seconds) {
  return runToolBlocking(arguments, seconds);
}

Result<std::string> LinuxProcesses::askExpendable(const std::function<std::string()>& work,
                                                  double seconds) {
  return ExpendableChild::ask(work, seconds);
}

std::vector<RunningProcess> LinuxProcesses::running() {
  mStrays->reap();
  std::vector<RunningProcess> list = mTable.list();
  for (RunningProcess& process : list) {
    if (process.pid == ownPid()) process.start = mSelf.start;
  }
  return list;
}

void LinuxProcesses::observe(std::vector<std::string> bundlePaths, std::function<void()> changed) {
  if (changed) {
    mPrograms.observe(std::move(bundlePaths), std::move(changed));
  } else {
    mPrograms.stop();
  }
}

std::int64_t LinuxProcesses::ownPid() const { return getpid(); }

void LinuxProcesses::terminate(std::int64_t pid) {
  signalOwn(pid, SIGTERM);
  signalOwn(pid, SIGCONT);
}

void LinuxProcesses::kill(std::int64_t pid) { signalOwn(pid, SIGKILL); }

void LinuxProcesses::signalOwn(std::int64_t pid, int number) const {
  const auto target = static_cast<pid_t>(pid);
  if (pid > 1 && pid == target && mTable.isOwn(target)) ::kill(target, number);
}

Outcome LinuxProcesses::open(const std::string& path) {
  const auto failure = ExpendableChild::valueOf(
      [&] {
        struct stat status {};
        return stat(path.c_str(), &status) == 0 ? 0 : errno;
      },
      kUntilItAnswers);
  if (!failure) return Error{ErrorKind::unavailable, path + ": its volume does not answer"};
  if (*failure != 0) return Error{ErrorKind::absent, path + ": " + std::strerror(*failure)};
  const std::string program = programAt(path);
  const auto pid = program == path ? spawn({"/usr/bin/xdg-open", path}, {.detached = true})
                                   : spawn({program}, {.detached = true});
  if (!pid) return pid.error();
  mStrays->reap();
  mStrays->pids.push_back(*pid);
  return {};
}

std::optional<int> LinuxProcesses::takeHandedOn() {
  const char* const left = std::getenv(kHandedOn);
  if (left == nullptr) return {};
  int pid = 0;
  int descriptor = -1;
  const bool isOurs = std::sscanf(left, "%d %d", &pid, &descriptor) == 2 && pid == getpid() &&
                      descriptor > STDERR_FILENO && fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
  unsetenv(kHandedOn);
  return isOurs ? std::optional(descriptor) : std::nullopt;
}

Error LinuxProcesses::relaunch(const std::string& path) {
  const std::string program = programAt(path);
  if (access(program.c_str(), X_OK) != 0) {
    return {ErrorKind::absent, program + ": " + std::strerror(errno)};
  }
  std::vector<std::string> arguments = mSelf.arguments;
  if (arguments.empty()) arguments.emplace_back();
  arguments.front() = program;
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (std::string& argument : arguments) argv.push_back(argument.data());
  argv.push_back(nullptr);
  close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);
  if (mHandedOn >= 0 && fcntl(mHandedOn, F_SETFD, 0) == 0)
    setenv(kHandedOn, (std::to_string(getpid()) + " " + std::to_string(mHandedOn)).c_str(), 1);
  sigset_t before;
  sigset_t none;
  sigemptyset(&none);
  pthread_sigmask(SIG_SETMASK, &none, &before);
  signal(SIGPIPE, SIG_DFL);
  execve(program.c_str(), argv.data(), environ);
  const int failure = errno;
  signal(SIGPIPE, SIG_IGN);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  unsetenv(kHandedOn);
  return {ErrorKind::refused, program + ": " + std::strerror(failure)};
}

}  // namespace corvana
