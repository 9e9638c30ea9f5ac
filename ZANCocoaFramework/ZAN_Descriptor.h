#pragma once

#include <unistd.h>

#include <utility>

namespace corvana {

/// An open file descriptor, closed when it goes. Thread: any; an object belongs to one thread at a
/// time.
class ZAN_Descriptor {
 public:
  ZAN_Descriptor() = default;
  explicit ZAN_Descriptor(int descriptor) : mDescriptor(descriptor) {}
  ZAN_Descriptor(ZAN_Descriptor&& other) noexcept
      : mDescriptor(std::exchange(other.mDescriptor, -1)) {}
  ZAN_Descriptor& operator=(ZAN_Descriptor&& other) noexcept {
    if (this != &other) {
      close();
      mDescriptor = std::exchange(other.mDescriptor, -1);
    }
    return *this;
  }
  ~ZAN_Descriptor() { close(); }

  explicit operator bool() const { return mDescriptor >= 0; }
  int get() const { return mDescriptor; }
  /// The descriptor, which is somebody else's to close from now on.
  int release() { return std::exchange(mDescriptor, -1); }
  /// What close says: 0 or -1 with errno.
  int close() {
    const int descriptor = std::exchange(mDescriptor, -1);
    return descriptor >= 0 ? ::close(descriptor) : 0;
  }

 private:
  int mDescriptor = -1;
};

}  // namespace corvana
