#include "platform/linux/TerminationSignals.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <fstream>
#include <string_view>

namespace corvana {

namespace {

constexpr double kLookWithoutDescriptor = 1.0;

}  // namespace

TerminationSignals::TerminationSignals(bool ignoredToo) {
  sigemptyset(&mSignals);
  for (const int number : {SIGTERM, SIGINT, SIGHUP}) {
    struct sigaction action {};
    const bool isIgnored = sigaction(number, nullptr, &action) != 0 || action.sa_handler == SIG_IGN;
    if (isIgnored && !ignoredToo) continue;
    sigaddset(&mSignals, number);
  }
  pthread_sigmask(SIG_BLOCK, &mSignals, nullptr);
  mDescriptor = ZAN_Descriptor(signalfd(-1, &mSignals, SFD_NONBLOCK | SFD_CLOEXEC));
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

void TerminationSignals::watch(DescriptorWatch& watch, RunLoop& loop,
                               std::function<void(const TerminationSignal&)> body) {
  const auto takeAll = [this, body = std::move(body)] {
    while (const auto signal = take()) body(*signal);
  };
  if (mDescriptor)
    watch.watch(mDescriptor.get(), DescriptorWatch::Event::readable, takeAll);
  else
    loop.repeat(kLookWithoutDescriptor, takeAll);
}

std::optional<TerminationSignal> TerminationSignals::take() const {
  if (!mDescriptor) {
    siginfo_t came{};
    constexpr timespec kNow{};
    if (sigtimedwait(&mSignals, &came, &kNow) < 0) return std::nullopt;
    return TerminationSignal{came.si_signo, came.si_pid};
  }
  signalfd_siginfo information{};
  if (read(mDescriptor.get(), &information, sizeof information) != sizeof information)
    return std::nullopt;
  return TerminationSignal{static_cast<int>(information.ssi_signo),
                           static_cast<std::int64_t>(information.ssi_pid)};
}

}  // namespace corvana
