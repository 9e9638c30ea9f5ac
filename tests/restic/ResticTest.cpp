#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <thread>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "actions/TaskRequest.h"
#include "tests/restic/ResticHome.h"
#include "tests/support/LoopbackServer.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

TEST_F(ResticTest, KeepsVersionsAndBringsThemBackWithoutALoss) {
  fs::create_symlink("letter", scratch / "Documents/link");
  fs::create_directory(scratch / "Documents/empty");
  scratch.write("Documents/big", std::string(3'000'000, 'x'));
  scratch.write("Documents/scratch.tmp", "left out");
  settings.setValue(CopyKey::exclusions, ZAN_Value::array({"*.tmp", "/sub/left/"}));
  scratch.write("Documents/sub/left/out", "too");
  ZAN_Value end = run();
  EXPECT_EQ(end.integer("C"), 2) << end.string("Reason");
  EXPECT_TRUE(record()[VersionKey::verified].asDate()) << "a few files were read back";
  fs::remove(scratch / "Documents/scratch.tmp");
  fs::remove_all(scratch / "Documents/sub/left");
  fs::copy(scratch / "Documents", scratch / "then",
           fs::copy_options::recursive | fs::copy_options::copy_symlinks);

  scratch.write("Documents/letter", "dear you");
  fs::remove(scratch / "Documents/sub/we ird [1]*.txt");
  EXPECT_EQ(run().integer("C"), 2);
  const ZAN_Value all = ask(ZAN_Value::dictionary({{"kind", "versions"}}));
  ASSERT_EQ(all["versions"].size(), 2u) << all.string("reason");
  EXPECT_EQ(all["versions"].at(0).integer("files"), 3);
  const std::string odd = scratch / "Documents/sub/we ird [1]*.txt";
  const ZAN_Value ofOne =
      ask(ZAN_Value::dictionary({{"kind", "versions"}, {"names", ZAN_Value::array({odd})}}));
  ASSERT_EQ(ofOne["versions"].size(), 2u) << ofOne.string("reason");
  EXPECT_EQ(ofOne["versions"].at(0).string("kind"), "file");
  EXPECT_EQ(ofOne["versions"].at(0).integer("bytes"), 7);
  EXPECT_EQ(ofOne["versions"].at(1).string("kind"), "none");

  // Newer work stands in the way; what the version did not have stays.
  scratch.write("Documents/letter", "newest");
  scratch.write("Documents/new", "mine");
  const ZAN_Value different = ask(ZAN_Value::dictionary({{"kind", "diff"}}));
  EXPECT_EQ(different.integer("count"), 2) << "letter is changed, one file is new";
  const ZAN_Value first = all["versions"].at(0)["date"];
  ZAN_Value wish = ZAN_Value::dictionary({{"kind", "restore"}, {"at", first}, {"dryRun", 1}});
  const ZAN_Value would = ask(wish);
  EXPECT_EQ(would["items"].size(), 2u);
  EXPECT_EQ(would["kept"].size(), 1u);
  EXPECT_EQ(scratch.read("Documents/letter"), "newest");
  wish.setValue("dryRun", 0);
  const ZAN_Value restored = ask(wish);
  EXPECT_EQ(restored.integer("code"), 0) << restored.string("reason");
  EXPECT_EQ(restored.integer("files"), 2);
  EXPECT_EQ(scratch.read("Documents/letter"), "dear");
  std::size_t kept = 0;
  for (const auto& entry : fs::directory_iterator(scratch / "Documents")) {
    const std::string name = entry.path().filename();
    if (!name.starts_with("letter.before-")) continue;
    ++kept;
    fs::remove(entry.path());
  }
  EXPECT_EQ(kept, 1u);
  fs::remove(scratch / "Documents/new");
  EXPECT_TRUE(isSame("then", "Documents")) << "nothing else is left there either";

  const ZAN_Value elsewhere = ask(ZAN_Value::dictionary({{"kind", "restore"},
                                                         {"from", scratch / "Repository"},
                                                         {"passwordFile", scratch / "password"},
                                                         {"at", first},
                                                         {"to", scratch / "elsewhere"}}));
  EXPECT_EQ(elsewhere.integer("code"), 0) << elsewhere.string("reason");
  EXPECT_TRUE(isSame("then", "elsewhere/Documents"));
}

TEST_F(ResticTest, TakesNothingForRestoredWithoutComparingIt) {
  const std::string contents(3'000'000, 'x');
  scratch.write("Documents/sub/big", contents);
  fs::create_symlink("letter", scratch / "Documents/link");
  ASSERT_EQ(run().integer("C"), 2);
  const std::string big = scratch / "Documents/sub/big";
  ZAN_Value named =
      ZAN_Value::dictionary({{"kind", "restore"}, {"names", ZAN_Value::array({big})}});
  for (ZAN_Value wish : {ZAN_Value::dictionary({{"kind", "restore"}}), named}) {
    scratch.damage("Documents/sub/big");
    ASSERT_NE(scratch.read("Documents/sub/big"), contents);
    wish.setValue("dryRun", 1);
    const ZAN_Value would = ask(wish);
    EXPECT_EQ(would["items"].size(), 0u);
    EXPECT_EQ(would.integer("unread"), would.integer("same")) << "and says that it cannot know";
    wish.setValue("dryRun", 0);
    const ZAN_Value restored = ask(wish);
    EXPECT_EQ(restored.integer("code"), 0) << restored.string("reason");
    EXPECT_EQ(restored.integer("files"), 1);
    EXPECT_EQ(restored.integer("unread"), 0);
    EXPECT_EQ(scratch.read("Documents/sub/big"), contents);
    ASSERT_EQ(restored["kept"].size(), 1u);
    const std::string kept = restored["kept"].at(0).string();
    std::size_t aside = 0;
    for (const auto& entry : fs::directory_iterator(scratch / "Documents/sub"))
      if (entry.path().string().starts_with(big + ".before-") && fs::remove(entry.path())) ++aside;
    EXPECT_EQ(aside, 1u) << kept;
  }
  const ZAN_Value again = ask(ZAN_Value::dictionary({{"kind", "restore"}}));
  EXPECT_EQ(again.integer("files"), 0);
  EXPECT_EQ(again.integer("same"), 4);
}

TEST_F(ResticTest, WritesNeitherIntoTheCopiesNorThroughALink) {
  const std::string name = "we ird [1]*.txt";
  scratch.write("outside/" + name, "precious");
  for (const char* place : {"Repository", "Copies"}) {
    SCOPED_TRACE(place);
    if (place == std::string("Copies")) {
      settings = record();
      settings.removeKey(EngineKey::name);
      settings.setValue("ItemsDestination", folder(place));
      settings.setValue(CopyKey::isNew, 1);
      fs::create_directory(scratch / place);
    }
    ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
    ASSERT_EQ(run().integer("C"), 2);
    ZAN_Value wish = ZAN_Value::dictionary({{"kind", "restore"}, {"to", scratch / place}});
    EXPECT_THAT(ask(wish).string("reason"), HasSubstr("the copies themselves"));
    wish.removeKey("to");

    fs::rename(scratch / "Documents/sub", scratch / "away");
    fs::create_directory_symlink(scratch / "outside", scratch / "Documents/sub");
    ZAN_Value one = wish;
    one.setValue("names", ZAN_Value::array({scratch / "Documents/sub" + "/" + name}));
    EXPECT_EQ(ask(one).integer("code"), 1) << "the link is not followed, nor taken away unasked";
    EXPECT_TRUE(fs::is_symlink(scratch / "Documents/sub"));
    const ZAN_Value restored = ask(wish);
    EXPECT_EQ(restored.integer("code"), 0) << restored.string("reason");
    ASSERT_EQ(restored["kept"].size(), 1u);
    EXPECT_EQ(scratch.read("Documents/sub/" + name), "figures");
    EXPECT_EQ(scratch.read("outside/" + name), "precious");
    for (const auto& entry : fs::directory_iterator(scratch / "Documents"))
      if (fs::is_symlink(entry.path())) fs::remove(entry.path());
    fs::remove_all(scratch / "away");

    // Words of a user who stands somewhere, and a file where the whole source was.
    const auto askFrom = [&](const std::string& folder, const char* path) {
      ZAN_Value words = wish;
      words.setValue("folder", folder);
      words.setValue("names", ZAN_Value::array({path}));
      return ask(words);
    };
    EXPECT_EQ(askFrom(scratch / "Documents", "./sub/../letter").integer("same"), 1);
    EXPECT_EQ(askFrom(scratch / "Documents/sub", "..").integer("same"), 2);
    EXPECT_THAT(askFrom(scratch / ".", ".").string("reason"), HasSubstr("in no source"));
    EXPECT_EQ(askFrom(scratch / "Documents", "").integer("code"), 1) << "not all of it";
    EXPECT_THAT(askFrom(scratch / "Documents", "typo").string("reason"), HasSubstr("nothing of"));
    one.setValue("names", ZAN_Value::array({scratch / "Documents/letter", scratch / "Documents",
                                            scratch / "Documents/typo"}));
    const ZAN_Value all = ask(one);
    EXPECT_EQ(all.integer("code"), 1) << "one of them is not there";
    EXPECT_EQ(all["failed"].size(), 1u);
    EXPECT_EQ(all.integer("same"), 3);
    fs::rename(scratch / "Documents", scratch / "away");
    scratch.write("Documents", "a file");
    EXPECT_EQ(ask(wish)["kept"].size(), 1u);
    EXPECT_TRUE(isSame("away", "Documents"));
    fs::remove_all(scratch / "away");
  }
}

TEST_F(ResticTest, KnowsNamesThatAreNoUnicode) {
  const std::string folder = "Documents/d\xff";
  const std::string file = folder + "/a\n\n\xfe\xef\xbf\xbd\n";
  scratch.write(file, "one");
  scratch.write("Documents/\xef\xbf\xbd", "another");
  ASSERT_EQ(run().integer("C"), 2);
  EXPECT_EQ(ask(ZAN_Value::dictionary({{"kind", "diff"}})).integer("count"), 0);
  const ZAN_Value names = ZAN_Value::array({TaskRequest::pathValue(scratch / file)});
  const ZAN_Value states = ask(ZAN_Value::dictionary({{"kind", "versions"}, {"names", names}}));
  EXPECT_EQ(states["versions"].at(0).string("kind"), "file") << states.string("reason");
  const ZAN_Value listed = ask(ZAN_Value::dictionary(
      {{"kind", "list"}, {"names", ZAN_Value::array({TaskRequest::pathValue(scratch / folder)})}}));
  ASSERT_EQ(listed["items"].size(), 1u) << listed.string("reason");
  EXPECT_EQ(listed["items"].at(0).string("name"), withReplacedBytes("a\n\n\xfe\xef\xbf\xbd\n"));
  EXPECT_EQ(listed["items"].at(0).string("since"), "same");
  fs::rename(scratch / "Documents", scratch / "then");
  for (const bool isNamed : {true, false}) {
    ZAN_Value wish = ZAN_Value::dictionary({{"kind", "restore"}});
    if (isNamed) wish.setValue("names", names);
    const ZAN_Value restored = ask(wish);
    EXPECT_EQ(restored.integer("code"), 0) << restored.string("reason");
    EXPECT_EQ(scratch.read(file), "one");
  }
  EXPECT_TRUE(isSame("then", "Documents"));
}

TEST_F(ResticTest, TellsFailuresApart) {
  settings.setValue("ItemsListOfSourcePath",
                    ZAN_Value::array({folder("Documents"), folder("Missing")}));
  EXPECT_EQ(run().integer("C"), 4) << "restic itself would end well";
  EXPECT_FALSE(fs::exists(scratch / "Repository")) << "and nothing was made";
  settings = record();
  settings.setValue("ItemsListOfSourcePath", ZAN_Value::array({folder("Documents")}));
  ASSERT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
  ASSERT_EQ(run().integer("C"), 2);

  replaceRestic(
      "\"$restic\" \"$@\" || exit; case \"$*\" in *backup*) echo '{\"message_type\":\"error\","
      "\"error\":{\"Op\":\"open\",\"Err\":13},\"during\":\"archival\",\"item\":\"/d/secret\"}' >&2;"
      " exit 3;; esac");
  ZAN_Value end = run();
  EXPECT_EQ(end.integer("C"), 14) << "some files unreadable is not completed";
  EXPECT_EQ(end.integer("ActionErrors"), 1);
  programs.clear();

  scratch.write("password", "wrong\n");
  end = run();
  EXPECT_EQ(end.integer("C"), 5);
  EXPECT_THAT(end.string("Reason"), HasSubstr("the password is wrong"));
  fs::permissions(scratch / "password", fs::perms::others_read, fs::perm_options::add);
  EXPECT_THAT(run().string("Reason"), HasSubstr("chmod 600"));
  fs::permissions(scratch / "password", fs::perms::others_read, fs::perm_options::remove);
  scratch.write("password", "open sesame\n");

  // Four bytes of a pack; the check that reads nothing does not see it.
  std::string noise(200'000, ' ');
  std::mt19937 random(1);
  for (char& byte : noise) byte = static_cast<char>(random());
  scratch.write("Documents/noise", noise);
  ASSERT_EQ(run().integer("C"), 2);
  std::string pack;
  for (const auto& entry : fs::recursive_directory_iterator(scratch / "Repository/data")) {
    if (entry.is_regular_file() && (pack.empty() || entry.file_size() > fs::file_size(pack)))
      pack = entry.path();
  }
  fs::permissions(pack, fs::perms::owner_write, fs::perm_options::add);
  std::fstream(pack, std::ios::in | std::ios::out | std::ios::binary).seekp(20) << "rot!";
  const ZAN_Value verified = ask(ZAN_Value::dictionary({{"kind", "verify"}}));
  EXPECT_EQ(verified.integer("code"), 1);
  EXPECT_THAT(verified.string("reason"), HasSubstr("THE COPY IS DAMAGED"));
  EXPECT_GT(record().integer(VersionKey::mismatches), 0);
  // What lies in other packs comes back, and what does not is told once.
  const ZAN_Value restored =
      ask(ZAN_Value::dictionary({{"kind", "restore"}, {"to", scratch / "out"}}));
  EXPECT_EQ(restored.integer("code"), 1);
  EXPECT_EQ(restored["failed"].size(), 1u) << restored["failed"].at(0).string();
  EXPECT_EQ(restored.integer("files"), 2) << restored.string("reason");

  fs::remove_all(scratch / "Repository");
  const ZAN_Value gone = run();
  EXPECT_THAT(gone.string("Reason"), HasSubstr("--adopt"));
  EXPECT_EQ(gone.integer(RunKey::mayTakeOver), 1);
  EXPECT_FALSE(fs::exists(scratch / "Repository/config")) << "no new one unasked";
}

TEST_F(ResticTest, LeavesNoLockAndWaitsForThoseOfOthers) {
  ASSERT_EQ(run().integer("C"), 2);
  // Killed in the middle: the lock stays, and goes with the next run that needs it gone.
  killWhenLocked("backup", "$$");
  for (int i = 0; i < 200; ++i)
    scratch.write("Documents/many/" + std::to_string(i),
                  std::string(200'000, 'a' + i % 20) + std::to_string(i));
  EXPECT_NE(run().integer("C"), 2);
  programs.clear();
  EXPECT_EQ(run().integer("C"), 2);
  const ZAN_Value verified = ask(ZAN_Value::dictionary({{"kind", "verify"}}));
  EXPECT_EQ(verified.integer("code"), 0) << verified.string("reason");
  EXPECT_EQ(restic("list locks"), "");

  // One that another restic holds is waited for, and a stop ends the waiting.
  std::string held;
  replaceRestic("case \"$*\" in *check*) \"$restic\" \"$@\";; *) exec \"$restic\" \"$@\";; esac");
  Server other({"/bin/sh", "-c",
                "sleep 60 | exec restic --password-file '" + scratch / "password" + "' -r '" +
                    scratch / "Repository" + "' backup --stdin"});
  while (restic("list locks").empty()) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  onPost = [&](const DistributedNotification& post) {
    if (post.object != "ExecuteProgress") return;
    held = post.userInfo.string("CurrentPath");
    if (held.find("process") != std::string::npos) control->stop(StopReason::user);
  };
  ask(ZAN_Value::dictionary({{"kind", "verify"}}));
  EXPECT_THAT(held, HasSubstr("root on"));
  EXPECT_NE(restic("list locks"), "") << "the other one's stays";
}

TEST_F(ResticTest, StopsRestic) {
  ASSERT_EQ(run().integer("C"), 2);
  for (int i = 0; i < 100; ++i)
    scratch.write("Documents/many/" + std::to_string(i),
                  std::string(1'000'000, 'a' + i % 20) + std::to_string(i));
  onPost = [&](const DistributedNotification& post) {
    if (post.object == "ExecuteProgress") control->stop(StopReason::user);
  };
  EXPECT_EQ(run().integer("C"), 3);
  EXPECT_EQ(restic("list locks"), "");
  EXPECT_THAT(restic("check"), HasSubstr("no errors were found"));
}

}  // namespace
}  // namespace corvana
