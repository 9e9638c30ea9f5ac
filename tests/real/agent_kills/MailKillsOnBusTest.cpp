#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>

#include <atomic>
#include <map>
#include <mutex>
#include <thread>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "actions/ActionLog.h"
#include "mail/report/OutgoingMail.h"
#include "mail/smtp/MailSender.h"
#include "tests/real/agent/AgentOnBus.h"

namespace corvana {
namespace {

/// A mail server of its own thread for one client at a time. At a step of its choice it says
/// nothing any more, as if the line were dead.
class StallingServer {
 public:
  StallingServer() : mListener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    auto* const any = reinterpret_cast<sockaddr*>(&address);
    if (::bind(mListener.get(), any, size) != 0 || ::listen(mListener.get(), 8) != 0 ||
        ::getsockname(mListener.get(), any, &size) != 0)
      std::abort();
    mPort = ntohs(address.sin_port);
    mThread = std::thread([this] { serve(); });
  }
  ~StallingServer() {
    ::shutdown(mListener.get(), SHUT_RDWR);
    mThread.join();
  }

  std::string port() const { return std::to_string(mPort); }
  /// Instead of the answer to the next line that begins so. "": instead of the greeting; ".": when
  /// it has taken the message.
  void stallAt(const std::string& step) {
    const std::lock_guard lock(mMutex);
    mStall = step;
    mIsStalled = false;
  }
  bool isStalled() const { return mIsStalled; }
  /// How often it has taken each message, by its ID.
  std::map<std::string, int> taken() {
    const std::lock_guard lock(mMutex);
    return mTaken;
  }

 private:
  void serve() {
    for (;;) {
      const ZAN_Descriptor client(::accept4(mListener.get(), nullptr, nullptr, SOCK_CLOEXEC));
      if (!client) return;
      mInput.clear();
      talk(client.get());
    }
  }
  void talk(int client) {
    if (!answer(client, "", "220 here\r\n")) return;
    for (std::string line; readLine(client, line);) {
      const std::string word = line.substr(0, 4);
      if (word == "DATA") {
        if (!answer(client, word, "354 go on\r\n")) return;
        std::string id;
        while (readLine(client, line) && line != ".")
          if (line.starts_with("Message-ID: ")) id = line;
        if (line != ".") return;
        {
          const std::lock_guard lock(mMutex);
          ++mTaken[id];
        }
        if (!answer(client, ".", "250 taken\r\n")) return;
      } else if (!answer(client, word, word == "QUIT" ? "221 bye\r\n" : "250 ok\r\n")) {
        return;
      }
    }
  }
  /// False: from now on there is silence, until the client goes.
  bool answer(int client, const std::string& step, const std::string& text) {
    {
      const std::lock_guard lock(mMutex);
      if (mStall == step) {
        mStall.reset();
        mIsStalled = true;
      }
    }
    if (!mIsStalled) return ::send(client, text.data(), text.size(), MSG_NOSIGNAL) > 0;
    for (std::string line; readLine(client, line);) continue;
    return false;
  }
  bool readLine(int client, std::string& line) {
    std::size_t end = 0;
    while ((end = mInput.find("\r\n")) == std::string::npos) {
      char buffer[4096];
      const ssize_t count = ::read(client, buffer, sizeof buffer);
      if (count <= 0) return false;
      mInput.append(buffer, static_cast<std::size_t>(count));
    }
    line = mInput.substr(0, end);
    mInput.erase(0, end + 2);
    return true;
  }

  ZAN_Descriptor mListener;
  int mPort = 0;
  std::mutex mMutex;
  std::optional<std::string> mStall;
  std::atomic<bool> mIsStalled = false;
  std::map<std::string, int> mTaken;
  std::string mInput;
  std::thread mThread;
};

struct MailKillsOnBusTest : AgentOnBus {
  void sendReport() {
    ASSERT_TRUE(client->post({"CVA9_SchedulerNotification", "SendReportEmail", {}}));
  }
  std::vector<WaitingMail> waiting() {
    return MailSpool(store->folder().hiddenFolderPath()).read();
  }
  void end(int signal) {
    ASSERT_EQ(::kill(static_cast<pid_t>(agent->pid()), signal), 0);
    ASSERT_TRUE(real.runUntil([&] { return !agent->isRunning(); }));
  }
  /// What waits does so for minutes.
  void makeDue() {
    const MailSpool spool(store->folder().hiddenFolderPath());
    for (WaitingMail mail : spool.read()) {
      mail.next = 0;
      ASSERT_TRUE(spool.write(mail));
    }
  }
  void SetUp() override {
    AgentOnBus::SetUp();
    // In the home that the test has by now.
    machine = std::make_unique<LinuxMachine>();
    store = std::make_unique<ActionStore>(clock, *machine, log);
    ASSERT_TRUE(store->settings().saveMainAppSettings(
        ZAN_Value::dictionary({{"SendEmailReport", 1},
                               {MailKey::standard, 1},
                               {"SendReportEmailAddress", "bob@example.com"},
                               {"SendReportEmailSender", "anna@example.com"},
                               {"SendReportEmailSMTPServer", "localhost"},
                               {"SendReportEmailSMTPServerPort", server.port()}})));
  }

  StallingServer server;
  std::unique_ptr<LinuxMachine> machine;
  std::unique_ptr<ActionStore> store;
};

/// The agent is killed while it waits for each of the server's answers. The report that it was
/// sending and the next one are there in the end.
TEST_F(MailKillsOnBusTest, AReportArrivesOnceOrTwiceUnderOneIdWhereverTheAgentIsKilled) {
  const std::vector<std::string> steps{"", "EHLO", "MAIL", "RCPT", "DATA", ".", "QUIT"};
  for (const std::string& step : steps) {
    SCOPED_TRACE(step);
    const std::size_t before = server.taken().size();
    startAgent();
    server.stallAt(step);
    sendReport();
    ASSERT_TRUE(real.runUntil([&] { return server.isStalled(); }));
    end(SIGKILL);
    server.stallAt("never");
    makeDue();
    startAgent();
    sendReport();
    ASSERT_TRUE(real.runUntil([&] {
      return server.taken().size() == before + 2 && waiting().empty();
    })) << agentOutput;
    end(SIGTERM);
  }
  int twice = 0;
  for (const auto& [id, times] : server.taken()) {
    EXPECT_LE(times, 2) << id;
    twice += times == 2 ? 1 : 0;
  }
  EXPECT_EQ(twice, 1) << "the one that was taken without a word";
  int said = 0;
  const ZAN_Value entries = ActionLog(*store).readLogList();
  for (const ZAN_Value& entry : entries.elements())
    if (entry.string("N").find("may arrive twice") != std::string::npos) ++said;
  EXPECT_EQ(said, 1);
}

}  // namespace
}  // namespace corvana
