#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/linux/ProcessTable.h"

namespace corvana {

/// Children and other programs on Linux. Children inherit no descriptor and are waited for when
/// somebody asks, without signals.
class LinuxProcesses final : public Processes {
 public:
  struct Self {
    std::vector<std::string> arguments;  ///< of this process; a fresh run gets them again
    ReferenceTime start = 0;             ///< of this run of the program
    std::string home;                    ///< its HOME
  };

  /// Ignores the broken-pipe signal of this process for good: a child may close its input at any
  /// time.
  LinuxProcesses(DescriptorWatch& watch, Self self);
  ~LinuxProcesses() override;

  Result<std::unique_ptr<ChildProcess>> start(const std::vector<std::string>& arguments,
                                              bool standardInput, ChildObserver observer) override;
  /// Thread: any.
  Result<std::string> runTool(const std::vector<std::string>& arguments, double seconds) override;
  Result<std::string> askExpendable(const std::function<std::string()>& work,
                                    double seconds) override;
  std::vector<RunningProcess> running() override;
  void observe(std::vector<std::string> bundlePaths, std::function<void()> changed) override;
  std::int64_t ownPid() const override;
  ReferenceTime ownStart() const override { return mSelf.start; }
  void terminate(std::int64_t pid) override;
  void kill(std::int64_t pid) override;
  /// A bundle by its executable, anything else by the desktop's opener. What does not answer within
  /// a second is `unavailable`.
  Outcome open(const std::string& path) override;
  void handOn(int descriptor) override { mHandedOn = descriptor; }
  std::optional<int> takeHandedOn() override;
  /// A bundle by its executable, else a program.
  Error relaunch(const std::string& path) override;

 private:
  ZAN_Descriptor startKeeper(int output);
  void signalOwn(std::int64_t pid, int number) const;

  class Child;
  struct Strays;

  DescriptorWatch& mWatch;
  Self mSelf;
  ProcessTable mTable;
  ProgramWatch mPrograms;
  int mHandedOn = -1;
  std::shared_ptr<Strays> mStrays;  ///< children without an owner that are yet to be waited for
};

}  // namespace corvana
