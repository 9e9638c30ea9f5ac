#pragma once

#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <iostream>

namespace corvana {

/// Says what does not hold, in a process of its own.
inline bool expect(bool holds, const char* what) {
  if (!holds) std::cerr << "not so: " << what << '\n';
  return holds;
}

/// Runs a test in a process with a mount namespace of its own, which takes all its mounts along
/// when it ends; skips it, saying why, where there can be none.
inline void inOwnMountNamespace(const std::function<bool()>& body) {
  if (geteuid() != 0) GTEST_SKIP() << "needs root, for mounts";
  constexpr int kImpossible = 77;
  const pid_t child = fork();
  if (child == 0) {
    const bool own =
        unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
    _exit(own ? (body() ? 0 : 1) : kImpossible);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status) && WEXITSTATUS(status) == kImpossible)
    GTEST_SKIP() << "no mount namespace here";
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "ended with " << status;
}

}  // namespace corvana
