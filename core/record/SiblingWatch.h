#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace corvana {

class Processes;
struct RunningProcess;
class SurveyExecution;

/// Whether the other programs of the product run, told by the path of their bundle. Each question
/// lists the running applications anew. Thread: main.
class SiblingWatch {
 public:
  SiblingWatch(Processes& processes, SurveyExecution& survey, std::string mainAppBundlePath,
               std::string executeAppBundlePath);

  /// Of the programs that it looks for.
  std::vector<std::string> bundlePaths() const {
    return {mMainAppBundlePath, mExecuteAppBundlePath};
  }

  bool isMainAppLaunched();
  /// One that was killed and that the system cannot end does not count.
  bool isExecuteAppLaunched();
  /// The same of a listing that the caller has at hand.
  bool isMainAppAmong(std::span<const RunningProcess> running) const;
  bool isExecuteAppAmong(std::span<const RunningProcess> running) const;
  /// The processes of the execute application, whoever started them.
  std::vector<std::int64_t> executeApps();

 private:
  Processes& mProcesses;
  SurveyExecution& mSurvey;
  std::string mMainAppBundlePath;
  std::string mExecuteAppBundlePath;
};

}  // namespace corvana
