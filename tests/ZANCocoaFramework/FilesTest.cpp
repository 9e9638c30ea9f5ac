#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {
namespace {

using Step = ZAN_FileWriter::Step;

class Files : public testing::Test {
 protected:
  Files() {
    std::string name = testing::TempDir() + "filesXXXXXX";
    mFolder = ::mkdtemp(name.data());
    mTarget = mFolder + "/data/Tree.cva9data";
    EXPECT_TRUE(ZAN_FilesUtils::createFolder(mFolder + "/data", 0700));
  }
  ~Files() override { std::filesystem::remove_all(mFolder); }

  std::string hidden() const { return mFolder + "/.hidden/Temporary"; }
  std::string contents(const std::string& path) const {
    const auto file = ZAN_FilesUtils::readFile(path);
    return file ? file->bytes : "(" + file.error().text + ")";
  }
  std::size_t leftOvers() const {
    std::size_t count = 0;
    for (const auto& entry : std::filesystem::recursive_directory_iterator(mFolder)) {
      if (entry.is_regular_file() && entry.path() != mTarget) ++count;
    }
    return count;
  }
  /// Runs `body` in a child process and says how it ended.
  template <class Body>
  static int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
      body();
      ::_exit(0);
    }
    int status = 0;
    EXPECT_EQ(::waitpid(child, &status, 0), child);
    return status;
  }

  std::string mFolder;
  std::string mTarget;
};

constexpr ZAN_FileWriter::Options kDataFile{.attributes = {.mode = 0666, .finderInfo = {}},
                                            .synchronise = true};

TEST_F(Files, ADeathAtAnyStepLeavesTheOldFileOrTheNewOne) {
  const std::string before(200'000, 'a');
  const std::string after(250'000, 'b');
  int deaths = 0;
  for (int deadlyStep = 0;; ++deadlyStep) {
    ASSERT_TRUE(ZAN_FileWriter(hidden()).write(mTarget, before, kDataFile));
    int steps = 0;
    const int status = inChild([&] {
      const ZAN_FileWriter writer(hidden(), [&](Step, const std::string&) {
        if (steps++ == deadlyStep) ::kill(::getpid(), SIGKILL);
        return 0;
      });
      if (!writer.write(mTarget, after, kDataFile)) ::_exit(1);
    });
    const std::string found = contents(mTarget);
    ASSERT_TRUE(found == before || found == after) << "step " << deadlyStep;
    if (WIFEXITED(status)) {
      EXPECT_EQ(WEXITSTATUS(status), 0);
      EXPECT_EQ(found, after);
      break;
    }
    ++deaths;
    ZAN_FileWriter(hidden()).removeLeftOvers();
    EXPECT_EQ(leftOvers(), 0U) << "step " << deadlyStep;
  }
  EXPECT_GE(deaths, 8) << "several pieces, and every other step";
}

TEST_F(Files, AFailingStepLeavesTheOldFileAndNothingElse) {
  ASSERT_TRUE(ZAN_FileWriter({}).write(mTarget, "old", kDataFile));
  for (const std::string& temporaryFolder : {hidden(), std::string()}) {
    for (const Step failing :
         {Step::createTemporary, Step::write, Step::synchronise, Step::rename}) {
      const ZAN_FileWriter writer(temporaryFolder, [&](Step step, const std::string&) {
        return step == failing ? ENOSPC : 0;
      });
      const Outcome outcome = writer.write(mTarget, "new", kDataFile);
      ASSERT_FALSE(outcome);
      EXPECT_EQ(outcome.error().kind, ErrorKind::unwritable);
      EXPECT_EQ(outcome.error().text, mTarget + ": No space left on device");
      EXPECT_EQ(contents(mTarget), "old");
      EXPECT_EQ(leftOvers(), 0U);
    }
  }
  EXPECT_FALSE(ZAN_FileWriter(hidden()).write(mFolder + "/missing/file", "new", kDataFile));
}

TEST_F(Files, TheTemporaryFileOfALivingWriterIsLeftAlone) {
  bool looked = false;
  const ZAN_FileWriter writer(hidden(), [&](Step step, const std::string&) {
    if (step == Step::rename) {
      looked = true;
      ZAN_FileWriter(hidden()).removeLeftOvers();
      // Another writer of the same file meanwhile.
      EXPECT_TRUE(ZAN_FileWriter(hidden()).write(mTarget, "second", kDataFile));
    }
    return 0;
  });
  ASSERT_TRUE(writer.write(mTarget, "first", kDataFile));
  EXPECT_TRUE(looked);
  EXPECT_EQ(contents(mTarget), "first");
}

TEST_F(Files, ModesLinksAndAttributes) {
  const mode_t old = ::umask(077);
  ZAN_FileWriter::Options options = kDataFile;
  options.attributes.finderInfo = ZAN_FinderInfo{"CVda", "CVA9", ZAN_FinderInfo::kHiddenExtension};
  const ZAN_FileWriter writer(hidden());
  ASSERT_TRUE(writer.write(mTarget, "x", options));
  ::umask(old);
  struct stat status;
  ASSERT_EQ(::stat(mTarget.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0666U);
  // Memory file systems of older kernels keep no user attributes.
  if (ZAN_FilesUtils::setFinderInfo(mFolder + "/data", {})) {
    EXPECT_EQ(ZAN_FilesUtils::finderInfo(mTarget), options.attributes.finderInfo);
    EXPECT_FALSE(ZAN_FilesUtils::finderInfo(mTarget)->isAlias());
    ASSERT_TRUE(ZAN_FilesUtils::setFinderInfo(mTarget, {"", "", ZAN_FinderInfo::kAlias}));
    EXPECT_TRUE(ZAN_FilesUtils::finderInfo(mTarget)->isAlias());
  }

  // A link stays a link, and a text file keeps the mode that its reader gave it.
  const std::string link = mFolder + "/link";
  ASSERT_EQ(::symlink(mTarget.c_str(), link.c_str()), 0);
  ASSERT_EQ(::chmod(mTarget.c_str(), 0640), 0);
  ASSERT_TRUE(writer.write(link, "through", {}));
  EXPECT_TRUE(std::filesystem::is_symlink(link));
  EXPECT_EQ(contents(mTarget), "through");
  ASSERT_EQ(::stat(mTarget.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640U);
}

TEST_F(Files, IdentityChangesWithEveryReplacement) {
  const ZAN_FileWriter writer(hidden());
  EXPECT_FALSE(ZAN_FilesUtils::identity(mTarget));
  ASSERT_TRUE(writer.write(mTarget, "same", kDataFile));
  const auto first = ZAN_FilesUtils::identity(mTarget);
  EXPECT_EQ(ZAN_FilesUtils::readFile(mTarget)->identity, first);
  ASSERT_TRUE(writer.write(mTarget, "same", kDataFile));
  EXPECT_NE(ZAN_FilesUtils::identity(mTarget), first);
}

TEST_F(Files, ALockExcludesOthersUntilItsHolderDies) {
  const std::string path = mFolder + "/.hidden/Locks/tree";
  int ready[2];
  int end[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  ASSERT_EQ(::pipe2(end, O_CLOEXEC), 0);
  const pid_t holder = ::fork();
  if (holder == 0) {
    ::close(end[1]);
    const auto lock = ZAN_FileLock::acquire(path, 0, [](double) {});
    (void)!::write(ready[1], lock ? "y" : "n", 1);
    char byte;
    (void)!::read(end[0], &byte, 1);
    ::kill(::getpid(), SIGKILL);
  }
  char answer = 0;
  ASSERT_EQ(::read(ready[0], &answer, 1), 1);
  ASSERT_EQ(answer, 'y');

  double waited = 0;
  const auto refused = ZAN_FileLock::acquire(path, 2, [&](double seconds) { waited += seconds; });
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().kind, ErrorKind::unavailable);
  EXPECT_NEAR(waited, 2, 1e-6);

  // The holder ends while we wait.
  auto lock = ZAN_FileLock::acquire(path, 2, [&](double) {
    ::close(end[1]);
    ::waitpid(holder, nullptr, 0);
  });
  ASSERT_TRUE(lock);
  EXPECT_FALSE(ZAN_FileLock::acquire(path, 0, [](double) {})) << "excludes within a program too";

  // Who takes it again and again stands back for one that waits, as long as that one moves.
  double stoodBack = 0;
  const auto next = ZAN_FileLock::acquire(path, 2, [&](double) {
    lock->release();
    lock = ZAN_FileLock::acquire(path, 2, [&](double seconds) { stoodBack += seconds; });
    lock->release();
  });
  EXPECT_TRUE(next);
  EXPECT_NEAR(stoodBack, 0.5, 1e-6);
  for (const int descriptor : {ready[0], ready[1], end[0]}) ::close(descriptor);
}

TEST_F(Files, ReadingSaysWhyItCannot) {
  EXPECT_EQ(ZAN_FilesUtils::readFile(mTarget).error().kind, ErrorKind::absent);
  EXPECT_EQ(ZAN_FilesUtils::readFile(mFolder).error().kind, ErrorKind::unreadable);
  std::ofstream(mTarget) << "12345";
  EXPECT_EQ(ZAN_FilesUtils::readFile(mTarget, 4).error().kind, ErrorKind::limit);
  EXPECT_EQ(ZAN_FilesUtils::readFile(mTarget, 5)->bytes, "12345");
  // A pipe that nobody writes to must not hold the program up.
  const std::string pipe = mFolder + "/pipe";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  EXPECT_EQ(ZAN_FilesUtils::readFile(pipe).error().kind, ErrorKind::unreadable);
  // A file of the kernel tells no size beforehand.
  EXPECT_GT(ZAN_FilesUtils::readFile("/proc/self/status")->bytes.size(), 100U);
}

TEST(Paths, LieInAFolderByWholeComponents) {
  const auto relative = [](std::string_view path, std::string_view folder) {
    const auto found = ZAN_FilesUtils::relativePath(path, folder);
    EXPECT_EQ(ZAN_FilesUtils::isAtOrBelow(path, folder), found.has_value()) << path;
    EXPECT_EQ(ZAN_FilesUtils::isBelow(path, folder), found && !found->empty()) << path;
    return std::string(found.value_or("elsewhere"));
  };
  EXPECT_EQ(relative("/a/b/c", "/a"), "b/c");
  EXPECT_EQ(relative("/a/b/", "/a//"), "b");
  EXPECT_EQ(relative("/a//b", "/a"), "b");
  EXPECT_EQ(relative("/a/", "/a"), "");
  EXPECT_EQ(relative("/a", "/a/"), "");
  EXPECT_EQ(relative("/ab", "/a"), "elsewhere");
  EXPECT_EQ(relative("/a", "/ab"), "elsewhere");
  EXPECT_EQ(relative("/", "/a"), "elsewhere");
  EXPECT_EQ(relative("/a", "/"), "a");
  EXPECT_EQ(relative("/", "/"), "");
  EXPECT_EQ(relative("a", "/"), "elsewhere");
  EXPECT_EQ(relative("a/b", "a"), "b");
  EXPECT_EQ(relative("", "/"), "elsewhere");
  EXPECT_EQ(relative("/a", ""), "elsewhere") << "no folder holds nothing";
}

TEST(Paths, Components) {
  using U = ZAN_FilesUtils;
  EXPECT_EQ(U::lastPathComponent("/a/b.app/"), "b.app");
  EXPECT_EQ(U::lastPathComponent("/"), "/");
  EXPECT_EQ(U::parentPath("/a//b/"), "/a");
  EXPECT_EQ(U::parentPath("/a"), "/");
  EXPECT_EQ(U::parentPath("a"), "");
  EXPECT_EQ(U::pathExtension("/a.b/c"), "");
  EXPECT_EQ(U::pathExtension("/a/.profile"), "");
  EXPECT_EQ(U::pathWithoutExtension("/x/Corvana 9.app/"), "/x/Corvana 9");
  EXPECT_EQ(U::joinedPath("/", "a"), "/a");
  EXPECT_EQ(U::joinedPath("/a/", "/b"), "/a/b");
  EXPECT_EQ(U::safeFileName("a/b", "-LogFile.txt"), "a:b-LogFile.txt");
  EXPECT_EQ(U::safeFileName(".."), "__");
  std::string longName;
  for (int i = 0; i < 100; ++i) longName += "\u20ac";
  const std::string cut = U::safeFileName(longName, ".txt");
  EXPECT_EQ(cut, longName.substr(0, 249) + ".txt") << "83 whole characters of three bytes";
}

}  // namespace
}  // namespace corvana
