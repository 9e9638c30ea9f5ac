#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/linux/LinuxProcesses.h"
#include "platform/simulated/TemporaryFolder.h"
#include "tests/real/RealLoop.h"

namespace corvana::test {

/// Exim on a port of the loopback interface, with a spool and a mailbox of its own; it takes mail
/// of "user" with "pa ss" over TLS. See exim.conf.
class Exim {
 public:
  Exim(RealLoop& real, const std::string& certificates)
      : mReal(real), mProcesses(real.loop, {{}, real.clock.now(), "/"}) {
    namespace fs = std::filesystem;
    if (!fs::exists("/usr/sbin/exim4")) mTrouble = "exim4 is not installed";
    if (::geteuid() != 0) mTrouble = "needs root to run Exim with a configuration of its own";
    if (!mTrouble.empty()) return;
    for (const char* folder : {"spool", "box"}) mFolder.makeFolder(folder);
    for (const char* file : {"good.crt", "server.key"}) {
      fs::copy_file(certificates + "/" + file, mFolder.at(file));
      fs::permissions(mFolder.at(file), fs::perms(0644));
    }
    fs::copy_file(std::string(CORVANA_MAIL_TOOLS) + "/exim.conf", mFolder.at("exim.conf"));
    fs::permissions(mFolder.path(), fs::perms(0755));
    mPort = freePort();
    static_cast<void>(mProcesses.runTool(
        {"/bin/chown", "-R", "Debian-exim", mFolder.at("spool"), mFolder.at("box")}, 10));
    auto child = mProcesses.start(
        {"/usr/bin/setpriv", "--pdeathsig", "KILL", "/usr/sbin/exim4", "-C",
         mFolder.at("exim.conf"), "-DFOLDER=" + mFolder.path(), "-bdf", "-oX", mPort},
        false, {});
    if (child) mDaemon = std::move(child).value();
    if (!child || !mReal.runUntil([&] { return fs::exists(mFolder.at("spool/main.log")); }, 10))
      mTrouble = "Exim does not start";
  }
  ~Exim() {
    if (!mDaemon) return;
    mDaemon->terminate();
    mReal.runUntil([&] { return !mDaemon->isRunning(); });
  }

  /// Empty when it runs, else why it does not.
  const std::string& trouble() const { return mTrouble; }
  const std::string& port() const { return mPort; }
  /// What the mail program of another maker reads in the mailbox: subject, sender, recipients and
  /// text of its one message, a line each.
  std::string mailRead() {
    const std::string box = mFolder.at("box/mail");
    mReal.runUntil([&] { return std::filesystem::exists(box) && spoolIsEmpty(); }, 10);
    const char* read =
        "import email, email.policy, sys\n"
        "m = email.message_from_binary_file(open(sys.argv[1], 'rb'), policy=email.policy.default)\n"
        "sys.stdout.buffer.write('\\n'.join([m['subject'], m['from'], m['to'],"
        " m.get_content()]).encode())\n";
    return mProcesses.runTool({"/usr/bin/python3", "-c", read, box}, 20).valueOr("unreadable");
  }

 private:
  bool spoolIsEmpty() const { return std::filesystem::is_empty(mFolder.at("spool/input")); }
  static std::string freePort() {
    const ZAN_Descriptor one(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(one.get(), any, size) != 0 || ::getsockname(one.get(), any, &size) != 0) return "0";
    return std::to_string(ntohs(address.sin_port));
  }

  RealLoop& mReal;
  LinuxProcesses mProcesses;
  TemporaryFolder mFolder;
  std::string mPort;
  std::string mTrouble;
  std::unique_ptr<ChildProcess> mDaemon;
};

}  // namespace corvana::test
