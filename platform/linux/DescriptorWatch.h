#pragma once

#include <cstdint>
#include <functional>

namespace corvana {

/// Calls back on the main thread when a file descriptor is ready. Thread: main.
class DescriptorWatch {
 public:
  using WatchId = std::uint64_t;  ///< never 0
  enum class Event { readable, writable, exceptional };

  virtual ~DescriptorWatch() = default;
  /// As often as the loop finds it ready; the end of a stream counts as readable. The descriptor
  /// must stay open until `unwatch`.
  virtual WatchId watch(int descriptor, Event event, std::function<void()> body) = 0;
  /// One that is not watched any more, or 0, is ignored. May be called in the call-back.
  virtual void unwatch(WatchId watch) = 0;
};

}  // namespace corvana
