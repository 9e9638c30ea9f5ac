#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "tests/real/agent/AgentOnBus.h"

namespace corvana {

inline constexpr const char* kKinds[] = {
    "thread", "fork", "descriptor", "open", "write", "fsync", "rename", "lock",
#if !defined(__SANITIZE_ADDRESS__)
    // Instrumented programs look through one whether memory is sound.
    "pipe"
#endif
};
inline constexpr const char* kOften[] = {"once", "always"};
/// Of so many calls only some are tried, evenly spread; all of them when the environment has
/// CORVANA_ALL_FAULTS.
inline std::vector<std::size_t> numbers(std::size_t count, std::size_t tried) {
  if (std::getenv("CORVANA_ALL_FAULTS") != nullptr) tried = count;
  tried = std::min(tried, count);
  std::vector<std::size_t> chosen;
  for (std::size_t i = 0; i < tried; ++i)
    chosen.push_back(tried == 1 ? 1 : 1 + i * (count - 1) / (tried - 1));
  return chosen;
}

/// Programs under a library that lets calls into the system fail, or kills them there.
struct UnderFaults : AgentOnBus {
  std::vector<std::string> under(const std::string& fault, std::vector<std::string> words) const {
    std::vector<std::string> all{
        "LD_PRELOAD=" CORVANA_FAULTS, "CORVANA_FAULT=" + fault,
        "CORVANA_FAULT_IN=" + std::filesystem::path(words.front()).filename().string(),
        "CORVANA_FAULT_COUNT=" + home.at("count"),
        "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0"};
    all.insert(all.end(), words.begin(), words.end());
    return environment(all);
  }
  /// How often the program makes a call of that kind while `run` runs it.
  template <class Run>
  std::size_t countOf(const std::string& kind, const Run& run) {
    std::filesystem::remove(home.at("count"));
    run(kind + " 0 once");
    return std::filesystem::exists(home.at("count")) ? std::filesystem::file_size(home.at("count"))
                                                     : 0;
  }

  Said runUnder(const std::string& fault, const std::vector<std::string>& words) {
    return run(under(fault, words));
  }
};

}  // namespace corvana
