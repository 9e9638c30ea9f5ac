#include "volumes/ZAN_MountRemoteVolume.h"

#include <functional>
#include <utility>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "platform/Processes.h"
#include "platform/RunLoop.h"
#include "platform/Volumes.h"

namespace corvana {

namespace {

constexpr double kLook = 0.1;

/// The helper while it mounts.
struct Helper {
  std::unique_ptr<ChildProcess> child;
  std::shared_ptr<std::int64_t> result;
};

void watch(RunLoop& loop, const std::shared_ptr<Helper>& helper) {
  if (helper->child->isRunning()) {
    loop.performAfter(kLook, [&loop, helper] { watch(loop, helper); });
  } else {
    *helper->result = helper->child->terminationStatus() == 0 ? ZAN_MountRemoteVolume::kMounted
                                                              : ZAN_MountRemoteVolume::kFailed;
  }
}

}  // namespace

ZAN_MountRemoteVolume::ZAN_MountRemoteVolume(Platform& platform, std::string toolsFolder)
    : m(platform),
      mToolsFolder(std::move(toolsFolder)),
      mResult(std::make_shared<std::int64_t>(kFailed)) {}

std::string ZAN_MountRemoteVolume::addressFor(const std::string& address) {
  std::string text;
  for (const char letter : address) {
    if (letter == ' ') {
      text += "%20";
    } else {
      text += letter;
    }
  }
  if (text.empty() || text.find("://") != std::string::npos) return text;
  while (text.starts_with('/')) text.erase(text.begin());
  return text.empty() ? text : "smb://" + text;
}

std::string ZAN_MountRemoteVolume::hostOf(const std::string& address) {
  const auto scheme = address.find("://");
  std::string host = scheme == std::string::npos ? address : address.substr(scheme + 3);
  host = host.substr(0, host.find('/'));
  if (const auto user = host.rfind('@'); user != std::string::npos) host.erase(0, user + 1);
  // An IPv6 address stands in brackets, with the port behind them.
  if (host.starts_with('[')) return host.substr(1, host.find(']') - 1);
  return host.substr(0, host.find(':'));
}

void ZAN_MountRemoteVolume::mountRemoteVolume(const std::optional<std::string>& address,
                                              const std::optional<std::string>& user,
                                              const std::optional<std::string>& password) {
  // A request that still runs reports to nobody.
  mResult = std::make_shared<std::int64_t>(kFailed);
  if (!address || !user || !password) return;
  *mResult = kRunning;
  const std::string full = addressFor(*address);
  const std::string answers = *user + '\n' + *password + '\n';
  const std::string tool = ZAN_FilesUtils::joinedPath(mToolsFolder, "mountvolume");
  m.runLoop.detachThread(
      "mountRemoteVolume", [&platform = m, result = mResult, full, answers, tool] {
        const std::string host = hostOf(full);
        const bool isReachable = !host.empty() && platform.volumes.isReachable(host);
        platform.runLoop.performOnMain([&platform, result, full, answers, tool, host, isReachable] {
          if (host.empty()) {
            *result = kNoAddress;
          } else if (!isReachable) {
            *result = kNotReachable;
          } else if (auto started = platform.processes.start({tool, "--share", full}, true, {});
                     !started) {
            *result = kFailed;
          } else {
            auto child = std::move(started).value();
            child->write(answers);
            watch(platform.runLoop, std::make_shared<Helper>(Helper{std::move(child), result}));
          }
        });
      });
}

}  // namespace corvana
