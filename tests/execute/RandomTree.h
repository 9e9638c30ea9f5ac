#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "platform/linux/SystemClock.h"

namespace corvana {

constexpr double kHour = 3600;
constexpr double kDay = 24 * kHour;

/// Says the date that it was set to.
class SetClock final : public Clock {
 public:
  ReferenceTime now() const override { return time; }
  double monotonic() const override { return SystemClock().monotonic() + waited; }
  void sleep(double seconds) override { time += seconds; }
  void observe(std::function<void()>) override {}
  ReferenceTime time = 785'000'000;
  double waited = 0;  ///< seconds that need not be waited for
};

/// So many, or those that VERSION_SEED (the first) and VERSION_SEEDS (how many) name.
inline std::vector<unsigned> wantedSeeds(unsigned usual) {
  const char* const more = std::getenv("VERSION_SEEDS");
  const char* const first = std::getenv("VERSION_SEED");
  std::vector<unsigned> seeds(more ? static_cast<unsigned>(std::atoi(more)) : usual);
  std::iota(seeds.begin(), seeds.end(), first ? static_cast<unsigned>(std::atoi(first)) : 1U);
  return seeds;
}

/// What lies below a path, as the system tells it: names with all that is to come back.
using Manifest = std::map<std::string, std::string>;

inline Manifest manifestOf(const std::string& path) {
  Manifest manifest;
  std::map<std::pair<dev_t, ino_t>, std::string> linked;
  const auto add = [&](const std::string& file, const std::string& name) {
    struct stat state {};
    ASSERT_EQ(::lstat(file.c_str(), &state), 0) << file;
    std::string text = std::to_string(state.st_mode) + " " + std::to_string(state.st_uid) + " " +
                       std::to_string(state.st_mtim.tv_sec) + "." +
                       std::to_string(state.st_mtim.tv_nsec);
    if (S_ISLNK(state.st_mode)) text += " -> " + std::filesystem::read_symlink(file).string();
    if (S_ISREG(state.st_mode)) {
      std::ifstream stream(file, std::ios::binary);
      text += " " + std::string(std::istreambuf_iterator<char>(stream), {});
      const auto first = linked.emplace(std::pair(state.st_dev, state.st_ino), name).first->second;
      if (state.st_nlink > 1) text += " is " + first;
      std::string value(64, '\0');
      const auto length = ::lgetxattr(file.c_str(), "user.note", value.data(), value.size());
      if (length > 0) text += " note " + value.substr(0, static_cast<std::size_t>(length));
    }
    manifest[name] = text;
  };
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(path))
    names.push_back(entry.path().string().substr(path.size() + 1));
  std::sort(names.begin(), names.end());
  add(path, ".");
  for (const auto& name : names) add(path + "/" + name, name);
  return manifest;
}

/// What is in one and not so in the other, a line each.
inline std::string difference(const Manifest& found, const Manifest& wanted) {
  std::string text;
  for (const auto& [name, what] : wanted) {
    const auto other = found.find(name);
    if (other == found.end()) text += "lacks " + name + ": " + what + "\n";
    if (other != found.end() && other->second != what)
      text += name + ": " + other->second + ", not " + what + "\n";
  }
  for (const auto& [name, what] : found)
    if (!wanted.contains(name)) text += "has " + name + ": " + what + "\n";
  return text;
}

/// Makes random edits of a small tree, so that names, kinds and places meet again often.
class Editor {
 public:
  Editor(std::string root, unsigned seed) : mRoot(std::move(root)), mRandom(seed) {}

  int roll(int sides) { return std::uniform_int_distribution<>(0, sides - 1)(mRandom); }

  void edit() {
    const std::string path = mRoot + "/" + name();
    const std::string other = mRoot + "/" + name();
    std::error_code failed;
    const bool isFolder =
        std::filesystem::is_directory(std::filesystem::symlink_status(path, failed));
    const bool isFile =
        std::filesystem::is_regular_file(std::filesystem::symlink_status(path, failed));
    switch (roll(12)) {
      case 0:
      case 1:
      case 2:
        if (!isFolder) write(path);
        break;
      case 3:
        std::filesystem::create_directories(path, failed);
        break;
      case 4:
        std::filesystem::remove(path, failed);
        break;
      case 5:
        if (roll(3) == 0) std::filesystem::remove_all(path, failed);
        break;
      case 6:
        if (path != other) std::filesystem::rename(path, other, failed);
        break;
      case 7:
        if (!std::filesystem::exists(std::filesystem::symlink_status(path, failed)))
          std::filesystem::create_symlink(roll(2) == 0 ? "a" : "nowhere", path, failed);
        break;
      case 8:
        if (isFile || isFolder) ::chmod(path.c_str(), roll(2) == 0 ? 0700 : 0755);
        break;
      case 9:
        if (isFile) std::filesystem::create_hard_link(path, other, failed);
        break;
      case 10:
        if (isFile) ::setxattr(path.c_str(), "user.note", roll(2) == 0 ? "x" : "y", 1, 0);
        break;
      default: {
        // Older than it was, too.
        const timespec time{1'500'000'000 + roll(1000), roll(1000)};
        const std::array times{time, time};
        if (isFile || isFolder)
          ::utimensat(AT_FDCWD, path.c_str(), times.data(), AT_SYMLINK_NOFOLLOW);
      }
    }
  }

 private:
  std::string name() {
    static const std::array<std::string, 7> names{"a",        "b c",      "a-b", "d",
                                                  "\xff#\n=", "\303\244", "e\\"};
    std::string path = names[static_cast<std::size_t>(roll(7))];
    for (int depth = roll(3); depth > 0; --depth)
      path += "/" + names[static_cast<std::size_t>(roll(7))];
    return path;
  }
  void write(const std::string& path) {
    std::error_code failed;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), failed);
    std::ofstream(path, std::ios::binary)
        << std::string(static_cast<std::size_t>(roll(40)), static_cast<char>('a' + roll(26)));
  }

  std::string mRoot;
  std::mt19937 mRandom;
};

}  // namespace corvana
