#include "platform/linux/TerminationSignals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string>
#include <string_view>
#include <utility>

namespace corvana {

TerminationSignals::TerminationSignals(bool ignoredToo) {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction action {};
    const bool isIgnored = sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN;
    if (isIgnored && !ignoredToo) continue;
    sigaddset(&signals, number);
  }
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  mDescriptor = ZAN_Descriptor(signalfd(-1, &signals, SFD_NONBLOCK | SFD_CLOEXEC));
  // Nobody would ever hear of them.
  if (!mDescriptor) pthread_sigmask(SIG_UNBLOCK, &signals, nullptr);
}

/// Service managers and the tools that end a system tell their processes by SIGTERM; a terminal or
/// a session that goes away by SIGHUP.
bool TerminationSignal::endsSession() const {
  if (number == SIGHUP) return true;
  if (number != SIGTERM) return false;
  if (sender <= 1) return true;
  std::ifstream file("/proc/" + std::to_string(sender) + "/comm");
  std::string name;
  std::getline(file, name);
  constexpr std::array<std::string_view, 5> kEndSessions{"systemd", "systemd-logind",
                                                         "elogind-daemon", "killall5", "init"};
  return std::ranges::find(kEndSessions, name) != kEndSessions.end();
}

void TerminationSignals::watch(DescriptorWatch& watch,
                               std::function<void(const TerminationSignal&)> body) {
  if (!mDescriptor) return;
  watch.watch(mDescriptor.get(), DescriptorWatch::Event::readable, [this, body = std::move(body)] {
    while (const auto signal = take()) body(*signal);
  });
}

std::optional<TerminationSignal> TerminationSignals::take() const {
  signalfd_siginfo information{};
  if (read(mDescriptor.get(), &information, sizeof information) != sizeof information)
    return std::nullopt;
  return TerminationSignal{static_cast<int>(information.ssi_signo),
                           static_cast<std::int64_t>(information.ssi_pid)};
}

}  // namespace corvana
