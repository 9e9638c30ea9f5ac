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
  return isLaunched(mMainAppBundlePath);
}

bool SiblingWatch::isExecuteAppLaunched() { return isLaunched(mExecuteAppBundlePath); }

bool SiblingWatch::isLaunched(const std::string& bundlePath) {
  return std::ranges::any_of(mProcesses.running(), [&bundlePath](const RunningProcess& process) {
    return process.bundlePath == bundlePath;
  });
}

}  // namespace corvana
