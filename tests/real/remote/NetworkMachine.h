#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/LinuxProcesses.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/RealLoop.h"

namespace corvana {

/// A machine of its own as far as network, mounts and host name go: it exists as long as one
/// process of the test, and nothing of it is seen outside. Its programs end with the test, however
/// that ends.
class NetworkMachine {
 public:
  NetworkMachine(RealLoop& real, const std::string& name)
      : mReal(real), mName(name), mProcesses(real.loop, {{"test"}, 0, "/"}) {}
  ~NetworkMachine() {
    for (auto* child : {&avahi, &bus, &mHolder}) stop(*child);
  }

  /// False where namespaces cannot be made.
  bool start() {
    mHolder = run(guarded({"/usr/bin/unshare", "--net", "--mount", "--uts", "--propagation",
                           "private", "/bin/sh", "-c",
                           "mount -t tmpfs tmpfs /run && mkdir /run/avahi-daemon && hostname " +
                               mName + " && ip link set lo up && echo ready && exec sleep 600"}),
                  mHolderOutput);
    return mReal.runUntil([&] {
      return !mHolder->isRunning() || mHolderOutput.find("ready") == 0;
    }) && mHolder->isRunning();
  }
  /// Joins both by a cable.
  void connectTo(NetworkMachine& other) {
    const std::string pid = std::to_string(other.mHolder->pid());
    EXPECT_EQ(finish({"/sbin/ip", "link", "add", "cable", "type", "veth", "peer", "name", "cable",
                      "netns", pid}),
              0);
    int last = 0;
    for (NetworkMachine* machine : {this, &other}) {
      if (!onlyIPv6) {
        machine->address = "10.99.0." + std::to_string(++last);
        machine->finish({"/sbin/ip", "addr", "add", machine->address + "/24", "dev", "cable"});
      }
      machine->finish({"/sbin/ip", "link", "set", "cable", "up"});
    }
  }
  void startBus() {
    const std::string configuration = mFolder.write(
        "bus.conf", "<busconfig><type>system</type><listen>" + busAddress() +
                        "</listen><auth>EXTERNAL</auth><policy context=\"default\">"
                        "<allow user=\"*\"/><allow own=\"*\"/><allow send_destination=\"*\"/>"
                        "<allow receive_sender=\"*\"/></policy></busconfig>");
    std::filesystem::remove(mFolder.at("bus"));
    bus = run(inside({"/usr/bin/dbus-daemon", "--nofork", "--nopidfile",
                      "--config-file=" + configuration}),
              output);
    EXPECT_TRUE(mReal.runUntil([&] { return std::filesystem::exists(mFolder.at("bus")); }));
  }
  void startAvahi() {
    const std::string configuration = mFolder.write(
        "avahi.conf", std::string(onlyIPv6 ? "[server]\nuse-ipv4=no\nuse-ipv6=yes\n"
                                           : "[server]\nuse-ipv4=yes\nuse-ipv6=no\n") +
                          "allow-interfaces=cable\nenable-dbus=yes\n"
                          "[wide-area]\nenable-wide-area=no\n[publish]\npublish-hinfo=no\n"
                          "publish-workstation=no\n");
    output.clear();
    avahi = run(inside({"/usr/sbin/avahi-daemon", "--no-drop-root", "--no-rlimits", "--no-chroot",
                        "-f", configuration}),
                output);
    EXPECT_TRUE(mReal.runUntil([&] {
      return output.find("Server startup complete") != std::string::npos;
    })) << output;
  }
  void stop(std::unique_ptr<ChildProcess>& child) {
    if (!child) return;
    child->terminate();
    EXPECT_TRUE(mReal.runUntil([&] { return !child->isRunning(); }));
    child.reset();
  }

  /// The words as a program of that machine.
  std::vector<std::string> inside(const std::vector<std::string>& words) const {
    std::vector<std::string> all{"/usr/bin/nsenter",
                                 "-t",
                                 std::to_string(mHolder->pid()),
                                 "--net",
                                 "--mount",
                                 "--uts",
                                 "/usr/bin/env",
                                 "HOME=" + home.path(),
                                 "TZ=UTC",
                                 "XDG_CONFIG_HOME=",
                                 "DBUS_SESSION_BUS_ADDRESS=unix:path=/nonexistent",
                                 "DBUS_SYSTEM_BUS_ADDRESS=" + busAddress()};
    all.insert(all.end(), words.begin(), words.end());
    return guarded(all);
  }
  std::unique_ptr<ChildProcess> run(const std::vector<std::string>& words, std::string& heard) {
    auto child = mProcesses.start(words, false,
                                  {[&heard](std::string_view chunk) { heard += chunk; }, [] {}});
    EXPECT_TRUE(child) << child.error().text;
    return child ? std::move(child).value() : nullptr;
  }
  /// Runs a program of that machine to its end; what it said is in `said`.
  int finish(const std::vector<std::string>& words) {
    said.clear();
    bool ended = false;
    auto child = mProcesses.start(
        inside(words), false,
        {[this](std::string_view chunk) { said += chunk; }, [&ended] { ended = true; }});
    EXPECT_TRUE(child);
    EXPECT_TRUE(mReal.runUntil([&] { return ended && !(*child)->isRunning(); }, 60));
    return (*child)->terminationStatus();
  }

  TemporaryFolder home;
  bool onlyIPv6 = false;  ///< with addresses of the link alone, from before `connectTo`
  std::string address;
  std::string output;  ///< of bus and Avahi
  std::string said;
  std::unique_ptr<ChildProcess> bus;
  std::unique_ptr<ChildProcess> avahi;

 private:
  std::string busAddress() const { return "unix:path=" + mFolder.at("bus"); }
  static std::vector<std::string> guarded(const std::vector<std::string>& words) {
    std::vector<std::string> all{"/usr/bin/setpriv", "--pdeathsig", "KILL"};
    all.insert(all.end(), words.begin(), words.end());
    return all;
  }

  RealLoop& mReal;
  std::string mName;
  LinuxProcesses mProcesses;
  TemporaryFolder mFolder;
  std::unique_ptr<ChildProcess> mHolder;
  std::string mHolderOutput;
};

}  // namespace corvana
