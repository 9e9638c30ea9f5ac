#include "execute/RunKeeper.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>

#include "platform/linux/SystemClock.h"

namespace corvana {
namespace {

/// How the execution ends for the one that keeps it.
RunKeeper::End kept(RunKeeper::Patience patience, const std::function<void(RunSigns&)>& execution) {
  RunKeeper keeper(patience);
  if (const auto end = keeper.split()) return *end;
  execution(keeper.signs());
  ::_exit(7);
}

TEST(RunKeeper, HearsOfTheEndWhileItLooksAtWhatIsOpen) {
  constexpr int kRuns = 12;
  constexpr rlim_t kFiles = 15'000;  // to look at all of them takes longer than the run
  for (int run = 0; run < kRuns; ++run) {
    const auto end = kept({.silence = 1}, [](RunSigns&) {
      rlimit most{};
      ::getrlimit(RLIMIT_NOFILE, &most);
      most.rlim_cur = most.rlim_max;
      ::setrlimit(RLIMIT_NOFILE, &most);
      for (rlim_t i = 0; i < kFiles && ::open("/dev/null", O_RDONLY | O_CLOEXEC) >= 0; ++i) {
      }
      SystemClock().sleep(0.1);
    });
    EXPECT_FALSE(end.isSilent);
    EXPECT_EQ(WEXITSTATUS(end.status), 7);
  }
}

TEST(RunKeeper, TellsASlowExecutionFromASilentOne) {
  for (const bool isSlow : {true, false}) {
    const auto end = kept({.silence = 1}, [&](RunSigns& signs) {
      for (int i = 0; i < 8; ++i) {
        SystemClock().sleep(0.3);
        if (isSlow) ++signs.news;
      }
    });
    EXPECT_EQ(end.isSilent, !isSlow);
    EXPECT_EQ(WEXITSTATUS(end.status), isSlow ? 7 : 0);
  }
}

}  // namespace
}  // namespace corvana
