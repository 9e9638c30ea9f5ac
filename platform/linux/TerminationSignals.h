#pragma once

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// Turns SIGTERM, SIGINT and SIGHUP into a call-back of the loop.
class TerminationSignals {
 public:
  /// Blocks the signals from now on; to be made before the first thread, which inherits that.
  /// `ignoredToo`: also one that was ignored when the process began, as under nohup; without it
  /// that one stays ignored.
  explicit TerminationSignals(bool ignoredToo);
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  /// `body` is called once a signal, with its number. The watch must live as long as signals may
  /// come.
  void watch(DescriptorWatch& watch, std::function<void(int)> body);

 private:
  ZAN_Descriptor mDescriptor;
};

}  // namespace corvana
