#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

namespace corvana {

/// A server of the test's own on loopback, gone with this object.
class Server {
 public:
  explicit Server(const std::vector<std::string>& words) {
    mProcess = ::fork();
    if (mProcess != 0) return;
    std::vector<char*> argv;
    for (const auto& word : words) argv.push_back(const_cast<char*>(word.c_str()));
    argv.push_back(nullptr);
    ::setpgid(0, 0);
    // Nor does it outlive a test that was killed.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int nowhere = ::open("/dev/null", O_RDWR);
    ::dup2(nowhere, STDOUT_FILENO);
    ::dup2(nowhere, STDERR_FILENO);
    ::execv(argv[0], argv.data());
    ::_exit(127);
  }
  Server(const Server&) = delete;
  Server& operator=(const Server&) = delete;
  ~Server() { die(); }

  void die() {
    if (mProcess <= 0) return;
    // With the processes of its connections.
    ::kill(-mProcess, SIGKILL);
    ::kill(mProcess, SIGKILL);
    ::waitpid(mProcess, nullptr, 0);
    mProcess = 0;
  }

  static int freePort() {
    const int open = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    EXPECT_EQ(::bind(open, reinterpret_cast<sockaddr*>(&address), size), 0);
    ::getsockname(open, reinterpret_cast<sockaddr*>(&address), &size);
    ::close(open);
    return ntohs(address.sin_port);
  }
  static bool isListening(int port) {
    for (int look = 0; look < 200; ++look) {
      const int open = ::socket(AF_INET, SOCK_STREAM, 0);
      sockaddr_in address{};
      address.sin_family = AF_INET;
      address.sin_port = htons(static_cast<std::uint16_t>(port));
      address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
      const bool isThere =
          ::connect(open, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0;
      ::close(open);
      if (isThere) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }

 private:
  pid_t mProcess = 0;
};

}  // namespace corvana
