#include "core/work/ZAN_TaskWrapper.h"

#include <utility>

#include "platform/Processes.h"

namespace corvana {

std::string ChildOutput::append(std::string_view data) {
  std::string completed;
  for (const char c : data) {
    if (c == '\n') {
      complete(completed);
      continue;
    }
    mUnfinished += c;
    if (mUnfinished.size() >= kMaximumLineLength) complete(completed);
  }
  return completed;
}

std::string ChildOutput::finish() {
  std::string completed;
  if (!mUnfinished.empty()) complete(completed);
  return completed;
}

void ChildOutput::clear() {
  mLines.clear();
  mUnfinished.clear();
}

void ChildOutput::complete(std::string& completed) {
  if (!completed.empty()) completed += '\n';
  completed += mUnfinished;
  mLines.push_back(std::exchange(mUnfinished, {}));
  if (mLines.size() > kMaximumLines) mLines.pop_front();
}

namespace {

constexpr std::size_t kMostDrained = 1 << 20;

}  // namespace

ZAN_TaskWrapper::ZAN_TaskWrapper(Processes& processes, TaskController& controller,
                                 std::vector<std::string> arguments)
    : mProcesses(processes), mController(&controller), mArguments(std::move(arguments)) {}

ZAN_TaskWrapper::~ZAN_TaskWrapper() { stopProcess(); }

Outcome ZAN_TaskWrapper::startProcess(bool standardInput) {
  if (mController != nullptr) mController->processStarted();
  ChildObserver observer;
  observer.output = [this](std::string_view data) {
    if (mController != nullptr) mController->appendOutput(data);
  };
  observer.outputEnded = [this] {
    if (mController != nullptr) mController->allDataReceived();
  };
  observer.ended = [this] {
    if (mController != nullptr) mController->processFinished();
  };
  auto child = mProcesses.start(mArguments, standardInput, std::move(observer));
  if (!child) {
    // Nothing ever ran: there is no end to tell of.
    mController = nullptr;
    return child.error();
  }
  mTask = std::move(child).value();
  return {};
}

void ZAN_TaskWrapper::stopProcess() {
  TaskController* const controller = std::exchange(mController, nullptr);
  if (controller == nullptr || !mTask) return;
  mTask->terminate();
  drainInto(*controller);
  controller->allDataReceived();
  controller->processFinished();
}

void ZAN_TaskWrapper::terminate() {
  if (mTask) mTask->terminate();
}

void ZAN_TaskWrapper::kill() {
  if (mTask) mTask->kill();
}

void ZAN_TaskWrapper::letGo() {
  TaskController* const controller = std::exchange(mController, nullptr);
  if (controller == nullptr || !mTask) return;
  drainInto(*controller);
  controller->allDataReceived();
}

void ZAN_TaskWrapper::takeRemainingOutput() {
  if (mController != nullptr && mTask) drainInto(*mController);
}

/// Bounded: somebody who inherited the pipe may go on writing.
void ZAN_TaskWrapper::drainInto(TaskController& controller) {
  std::size_t drained = 0;
  while (drained < kMostDrained) {
    const std::string chunk = mTask->readAvailable();
    if (chunk.empty()) return;
    controller.appendOutput(chunk);
    drained += chunk.size();
  }
}

std::int64_t ZAN_TaskWrapper::pid() const { return mTask ? mTask->pid() : 0; }

bool ZAN_TaskWrapper::isRunning() const { return mTask && mTask->isRunning(); }

int ZAN_TaskWrapper::terminationStatus() const { return mTask ? mTask->terminationStatus() : 0; }

void ZAN_TaskWrapper::sendDataToProcess(std::string_view data) {
  if (mTask) mTask->write(data);
}

}  // namespace corvana
