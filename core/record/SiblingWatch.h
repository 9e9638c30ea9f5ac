#pragma once

#include <string>

namespace corvana {

class Processes;
class SurveyExecution;

/// Whether the other programs of the product run, told by the path of their bundle. Each question
/// lists the running applications anew. Thread: main.
class SiblingWatch {
 public:
  SiblingWatch(Processes& processes, SurveyExecution& survey, std::string mainAppBundlePath,
               std::string executeAppBundlePath);

  bool isMainAppLaunched();
  bool isExecuteAppLaunched();

 private:
  bool isLaunched(const std::string& bundlePath);

  Processes& mProcesses;
  SurveyExecution& mSurvey;
  std::string mMainAppBundlePath;
  std::string mExecuteAppBundlePath;
};

}  // namespace corvana
