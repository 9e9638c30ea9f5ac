#include "core/record/SiblingWatch.h"

#include <algorithm>
#include <utility>

#include "core/record/SurveyExecution.h"
#include "platform/Processes.h"

namespace corvana {

SiblingWatch::SiblingWatch(Processes& processes, SurveyExecution& survey,
                           std::string mainAppBundlePath, std::string executeAppBundlePath)
    : mProcesses(processes),
      mSurvey(survey),
      mMainAppBundlePath(std::move(mainAppBundlePath)),
      mExecuteAppBundlePath(std::move(executeAppBundlePath)) {}

bool SiblingWatch::isMainAppLaunched() {
  const SurveyExecution::Bracket bracket(mSurvey, "isMainAppLaunched_MS");
  return isMainAppAmong(mProcesses.running());
}

bool SiblingWatch::isExecuteAppLaunched() { return isExecuteAppAmong(mProcesses.running()); }

bool SiblingWatch::isMainAppAmong(std::span<const RunningProcess> running) const {
  return std::ranges::find(running, mMainAppBundlePath, &RunningProcess::bundlePath) !=
         running.end();
}

bool SiblingWatch::isExecuteAppAmong(std::span<const RunningProcess> running) const {
  return std::ranges::any_of(running, [this](const RunningProcess& one) {
    return one.bundlePath == mExecuteAppBundlePath && !one.isDying;
  });
}

std::vector<std::int64_t> SiblingWatch::executeApps() {
  std::vector<std::int64_t> pids;
  for (const RunningProcess& one : mProcesses.running())
    if (one.bundlePath == mExecuteAppBundlePath && !one.isDying) pids.push_back(one.pid);
  return pids;
}

}  // namespace corvana
