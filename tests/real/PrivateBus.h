#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <string>

#include "platform/linux/LinuxProcesses.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/RealLoop.h"

namespace corvana {

/// A session bus of a test's own, on which nothing is started by itself. It may go away and come
/// back at the same place.
class PrivateBus {
 public:
  explicit PrivateBus(RealLoop& real) : mReal(real), mProcesses(real.loop, {{"test"}, 0, "/"}) {}
  ~PrivateBus() { stop(); }

  std::string address() const { return "unix:path=" + socket(); }

  void start() {
    const std::string configuration = mFolder.write(
        "bus.conf",
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\" "
        "\"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">"
        "<busconfig><type>session</type><listen>" +
            address() +
            "</listen>"
            "<policy context=\"default\"><allow send_destination=\"*\" eavesdrop=\"true\"/>"
            "<allow eavesdrop=\"true\"/><allow own=\"*\"/></policy>"
            // As the session bus of a desktop has it; without a line it is 128.
            "<limit name=\"max_replies_per_connection\">50000</limit></busconfig>");
    auto started = mProcesses.start(
        {"/usr/bin/dbus-daemon", "--nofork", "--config-file=" + configuration}, false, {});
    ASSERT_TRUE(started) << started.error().text;
    mDaemon = std::move(started).value();
    ASSERT_TRUE(mReal.runUntil([&] { return std::filesystem::exists(socket()); }));
  }

  void stop() {
    if (!mDaemon) return;
    mDaemon->terminate();
    EXPECT_TRUE(mReal.runUntil([&] { return !mDaemon->isRunning(); }));
    mDaemon.reset();
    std::filesystem::remove(socket());
  }

 private:
  std::string socket() const { return mFolder.at("bus"); }

  RealLoop& mReal;
  LinuxProcesses mProcesses;
  TemporaryFolder mFolder;
  std::unique_ptr<ChildProcess> mDaemon;
};

}  // namespace corvana
