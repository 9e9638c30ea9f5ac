#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>

#include "platform/simulated/TemporaryFolder.h"
#include "tests/support/LoopbackServer.h"

namespace corvana {

/// A session bus of the test's own, this process's while the object lives, and the real keyring of
/// the desktop on it as soon as it is started.
class Keyring {
 public:
  Keyring() {
    if (const char* before = std::getenv(kBus)) mBefore = before;
    const std::string path = mFolder.at("bus");
    mFolder.write("bus.conf",
                  "<busconfig><type>session</type><listen>unix:path=" + path +
                      "</listen><policy context=\"default\"><allow send_destination=\"*\" "
                      "eavesdrop=\"true\"/><allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
                      "</busconfig>");
    mDaemon.emplace(std::vector<std::string>{"/usr/bin/dbus-daemon", "--nofork",
                                             "--config-file=" + mFolder.at("bus.conf")});
    EXPECT_TRUE(comes([&] { return std::filesystem::exists(path); })) << "no bus";
    ::setenv(kBus, ("unix:path=" + path).c_str(), 1);
  }
  Keyring(const Keyring&) = delete;
  Keyring& operator=(const Keyring&) = delete;
  ~Keyring() { mBefore ? ::setenv(kBus, mBefore->c_str(), 1) : ::unsetenv(kBus); }

  static bool isInstalled() {
    for (const char* program : {"gnome-keyring-daemon", "secret-tool", "gdbus", "dbus-daemon"})
      if (!std::filesystem::exists(std::string("/usr/bin/") + program)) return false;
    return true;
  }

  /// It is on the bus, and names its collection, before it keeps anything.
  void start() {
    const std::string home = mFolder.makeFolder("home");
    mFolder.makeFolder("home/.local/share/keyrings");
    const std::string runtime = mFolder.makeFolder("runtime");
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    mKeyring.emplace(std::vector<std::string>{
        "/bin/sh", "-c",
        "printf login | HOME='" + home + "' XDG_RUNTIME_DIR='" + runtime +
            "' gnome-keyring-daemon --unlock --components=secrets --foreground"});
    EXPECT_TRUE(comes([] {
      return does("printf x | secret-tool store --label=probe probe probe") &&
             does("secret-tool lookup probe probe");
    })) << "the keyring keeps nothing";
  }
  bool lock() {
    return does(
        "gdbus call --session --dest org.freedesktop.secrets --object-path "
        "/org/freedesktop/secrets --method org.freedesktop.Secret.Service.Lock "
        "\"['/org/freedesktop/secrets/aliases/default']\"");
  }

 private:
  static constexpr const char* kBus = "DBUS_SESSION_BUS_ADDRESS";

  static bool does(const std::string& command) {
    return std::system(("(" + command + ") > /dev/null 2>&1").c_str()) == 0;
  }
  template <typename Condition>
  static bool comes(const Condition& condition) {
    constexpr int kTries = 400;
    for (int look = 0; look < kTries; ++look) {
      if (condition()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

  TemporaryFolder mFolder;
  std::optional<std::string> mBefore;
  std::optional<Server> mDaemon;
  std::optional<Server> mKeyring;
};

}  // namespace corvana
