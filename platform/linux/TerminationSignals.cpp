#include "platform/linux/TerminationSignals.h"

#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

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
}

void TerminationSignals::watch(DescriptorWatch& watch, std::function<void(int)> body) {
  const int descriptor = mDescriptor.get();
  watch.watch(descriptor, DescriptorWatch::Event::readable, [descriptor, body = std::move(body)] {
    signalfd_siginfo information{};
    while (read(descriptor, &information, sizeof information) == sizeof information) {
      body(static_cast<int>(information.ssi_signo));
    }
  });
}

}  // namespace corvana
