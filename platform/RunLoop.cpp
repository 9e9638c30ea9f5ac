#include "platform/RunLoop.h"

#include <utility>

namespace corvana {

namespace {

class ThreadEachTime final : public RunLoop::Worker {
 public:
  ThreadEachTime(RunLoop& loop, std::string name) : mLoop(loop), mName(std::move(name)) {}
  void perform(std::function<void()> body) override { mLoop.detachThread(mName, std::move(body)); }

 private:
  RunLoop& mLoop;
  std::string mName;
};

}  // namespace

std::unique_ptr<RunLoop::Worker> RunLoop::worker(const std::string& name) {
  return std::make_unique<ThreadEachTime>(*this, name);
}

}  // namespace corvana
