#include "execute/SignalWatch.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <utility>

namespace corvana {

SignalWatch::SignalWatch(std::function<void()> onSignal) {
  sigset_t signals;
  ::sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) ::sigaddset(&signals, number);
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  mSignals = ::signalfd(-1, &signals, SFD_CLOEXEC);
  mEnd = ::eventfd(0, EFD_CLOEXEC);
  mThread = std::thread([this, wanted = std::move(onSignal)] {
    while (true) {
      std::array<pollfd, 2> waits{{{mSignals, POLLIN, 0}, {mEnd, POLLIN, 0}}};
      if (::poll(waits.data(), waits.size(), -1) < 0) continue;
      if (waits[1].revents != 0) return;
      signalfd_siginfo signal{};
      if (::read(mSignals, &signal, sizeof signal) == sizeof signal) wanted();
    }
  });
}

SignalWatch::~SignalWatch() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = ::write(mEnd, &one, sizeof one);
  mThread.join();
  ::close(mEnd);
  ::close(mSignals);
}

}  // namespace corvana
