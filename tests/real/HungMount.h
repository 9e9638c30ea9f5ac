#pragma once

#include <fcntl.h>
#include <linux/fuse.h>
#include <poll.h>
#include <sys/mount.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cstring>
#include <string>
#include <thread>

#include "ZANCocoaFramework/ZAN_Descriptor.h"

namespace corvana {

/// A mounted file system that never answers, until it goes. Who asks it can be killed as long as
/// it has not taken the question, and cannot once it has.
class HungMount {
 public:
  enum class Questions { ignored, taken };

  HungMount(std::string folder, Questions questions) : mFolder(std::move(folder)) {
    mDevice = ZAN_Descriptor(::open("/dev/fuse", O_RDWR | O_CLOEXEC));
    const std::string options =
        "fd=" + std::to_string(mDevice.get()) + ",rootmode=40000,user_id=0,group_id=0";
    mIsMounted = mDevice && ::mount("hang", mFolder.c_str(), "fuse.hang", 0, options.c_str()) == 0;
    if (!mIsMounted) return;
    answerFirst();
    if (questions == Questions::taken) mThread = std::thread([this] { take(); });
  }
  HungMount(const HungMount&) = delete;
  HungMount& operator=(const HungMount&) = delete;
  ~HungMount() { end(); }

  bool isMounted() const { return mIsMounted; }
  bool hasTaken() const { return mTaken > 0; }
  /// Who still waits gets an error.
  void end() {
    mEnds = true;
    if (mThread.joinable()) mThread.join();
    if (mIsMounted) ::umount2(mFolder.c_str(), MNT_DETACH);
    mIsMounted = false;
    mDevice.close();
  }

 private:
  static constexpr std::size_t kBuffer = 1 << 20;

  void answerFirst() const {
    std::string request(kBuffer, '\0');
    if (::read(mDevice.get(), request.data(), request.size()) < 0) return;
    struct Answer {
      fuse_out_header header;
      fuse_init_out init;
    } answer{};
    const auto* const question = reinterpret_cast<const fuse_in_header*>(request.data());
    answer.header = {sizeof answer, 0, question->unique};
    answer.init.major = FUSE_KERNEL_VERSION;
    answer.init.minor = 31;
    answer.init.max_write = 4096;
    [[maybe_unused]] const auto written = ::write(mDevice.get(), &answer, sizeof answer);
  }

  void take() {
    std::string request(kBuffer, '\0');
    while (!mEnds) {
      pollfd wait{mDevice.get(), POLLIN, 0};
      if (::poll(&wait, 1, 20) > 0 && ::read(mDevice.get(), request.data(), request.size()) > 0)
        ++mTaken;
    }
  }

  std::string mFolder;
  ZAN_Descriptor mDevice;
  bool mIsMounted = false;
  std::atomic<int> mTaken = 0;
  std::atomic<bool> mEnds = false;
  std::thread mThread;
};

}  // namespace corvana
