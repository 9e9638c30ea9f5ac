#pragma once

#include <functional>
#include <string>
#include <vector>

#include "ZANCocoaFramework/ZAN_Descriptor.h"
#include "platform/linux/DescriptorWatch.h"

namespace corvana {

/// Tells when a program of certain bundles may have started or ended: whoever starts it opens its
/// file, and the system closes that at its end. Where the system does not tell of files, it calls
/// back every few seconds instead. Thread: main.
class ProgramWatch {
 public:
  explicit ProgramWatch(DescriptorWatch& loop) : mLoop(loop) {}
  ProgramWatch(const ProgramWatch&) = delete;
  ProgramWatch& operator=(const ProgramWatch&) = delete;
  ~ProgramWatch() { stop(); }

  /// The bundles need not be there yet. `changed` is called when the list of processes shows what
  /// has happened, sometimes for nothing.
  void observe(std::vector<std::string> bundlePaths, std::function<void()> changed);
  void stop();

 private:
  void watchFolders() const;
  void somethingHappened();
  void timerRang();
  void setTimer(double first, double then);

  DescriptorWatch& mLoop;
  std::vector<std::string> mBundlePaths;
  std::function<void()> mChanged;
  ZAN_Descriptor mFiles;
  ZAN_Descriptor mTimer;
  DescriptorWatch::WatchId mWatchingFiles = 0;
  DescriptorWatch::WatchId mWatchingTimer = 0;
  int mLooks = 0;  ///< still to come after what has happened
};

}  // namespace corvana
