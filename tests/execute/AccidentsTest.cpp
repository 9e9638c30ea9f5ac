// Accidents while a copy is made that cost nothing.

#include <set>

#include "tests/execute/Accidents.h"
#include "tests/execute/RandomTree.h"

namespace corvana {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class AccidentsTest : public Accidents {};

TEST_F(AccidentsTest, DeletesLastAndKeepsWhatItDeletes) {
  mountMemory("disk");
  fill("source", 10);
  scratch->write("source/d/e/deep", "deep");
  scratch->write("disk/neighbour", "not ours");
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesAside(), 0u) << "nothing to keep";
  fs::remove_all(scratch->at("source/d"));
  scratch->write("source/f1", "changed");
  scratch->write("source/d2", "now a file");
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
  EXPECT_EQ(end.filesDeleted, 1u);
  EXPECT_EQ(end.filesReplaced, 1u);
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/d")));
  EXPECT_EQ(scratch->read("disk/source/f1"), "changed");
  EXPECT_EQ(scratch->read("disk/neighbour"), "not ours");
  std::string aside;
  for (const auto& entry : fs::directory_iterator(scratch->at("disk/.corvana9-versions"))) {
    if (fs::exists(entry.path() / "source"))
      aside = "disk/.corvana9-versions/" + entry.path().filename().string() + "/source";
  }
  EXPECT_EQ(scratch->read(aside + "/d/e/deep"), "deep");
  EXPECT_EQ(scratch->read(aside + "/f1"), "x");
  EXPECT_EQ(filesAside(), 2u);
}

TEST_F(AccidentsTest, KeepsWhatCannotBeReadAndWhatIsBelowIt) {
  mountMemory("disk");
  fill("source", 3);
  fill("source/locked/sub", 3);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f1"));
  replaceRsync(
      "for word; do source=$copy; copy=$word; done; echo \"rsync: [sender] opendir "
      "\\\"${source}locked\\\" failed: Input/output error (5)\" >&2; $RSYNC \"$@\"; exit "
      "23");
  fs::rename(scratch->at("source/locked"), scratch->at("elsewhere"));
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::completedWithErrors);
  EXPECT_EQ(filesBelow("disk/source/locked"), 3u);
  EXPECT_EQ(end.filesDeleted, 1u) << "what is known to be gone goes";
  EXPECT_THAT(end.errorTexts.front(), HasSubstr(scratch->at("source/locked")));
}

TEST_F(AccidentsTest, AsksBeforeMuchIsDeleted) {
  mountMemory("disk");
  fill("source", 200);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  for (int number = 0; number < 60; ++number)
    fs::remove(scratch->at("source/f" + std::to_string(number)));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed) << "less than a third";
  for (int number = 60; number < 140; ++number)
    fs::remove(scratch->at("source/f" + std::to_string(number)));
  scratch->write("source/new", "copied all the same");
  const ExecuteEnd asked = synchronise("source");
  EXPECT_EQ(asked.code, ExecuteCode::completedWithErrors);
  EXPECT_EQ(asked.toConfirm, 80u);
  EXPECT_THAT(asked.reason, HasSubstr("80 of the 140 files of its copy"));
  EXPECT_EQ(asked.filesDeleted, 0u);
  EXPECT_EQ(filesBelow("disk/source"), 141u);
  EXPECT_EQ(synchronise("source", {.confirmed = 79}).toConfirm, 80u);
  const ExecuteEnd done = synchronise("source", {.confirmed = 80});
  EXPECT_EQ(done.code, ExecuteCode::completed);
  EXPECT_EQ(done.filesDeleted, 80u);
  EXPECT_EQ(filesBelow("disk/source"), 61u);
  EXPECT_EQ(filesAside(), 140u);
  EXPECT_FALSE((DeletionLimit{}.isPassed(50, 60))) << "a few always may go";
  EXPECT_TRUE((DeletionLimit{}.isPassed(51, 152)));
  EXPECT_FALSE((DeletionLimit{}.isPassed(51, 153)));
}

TEST_F(AccidentsTest, LetsNoFolderWithManyFilesMakeWayForAFileUnasked) {
  mountMemory("disk");
  fill("source/d", 80);
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove_all(scratch->at("source/d"));
  scratch->write("source/d", "now a file");
  const ExecuteEnd asked = synchronise("source");
  EXPECT_EQ(asked.code, ExecuteCode::completedWithErrors);
  EXPECT_EQ(asked.toConfirm, 80u);
  EXPECT_EQ(filesBelow("disk/source/d"), 80u);
  EXPECT_EQ(synchronise("source", {.confirmed = 80}).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/source/d"), "now a file");
  EXPECT_EQ(filesAside(), 80u);
}

TEST_F(AccidentsTest, TakesALinkForTheFolderThatItLeadsTo) {
  mountMemory("disk");
  fill("real", 3);
  fs::create_directory_symlink(scratch->at("real"), scratch->at("source"));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  // A file in its place is not what was copied.
  fs::remove(scratch->at("source"));
  scratch->write("source", "a file");
  const ExecuteEnd end = synchronise("source");
  EXPECT_EQ(end.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(end.reason, HasSubstr("it is a file now"));
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  // A link to nowhere is a source that is not there.
  fs::remove(scratch->at("source"));
  fs::create_directory_symlink(scratch->at("nowhere"), scratch->at("source"));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::volumeNotFound);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
}

TEST_F(AccidentsTest, CopiesFilesAndWhatALinkToAFileLeadsTo) {
  mountMemory("disk");
  scratch->write("letter", "dear");
  fs::create_symlink("letter", scratch->at("link"));
  const auto both = record(CopyPlan::kSynchronise, {"letter", "link"}, "disk");
  ASSERT_EQ(run(both).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/letter"), "dear");
  EXPECT_FALSE(fs::is_symlink(scratch->at("disk/link")));
  EXPECT_EQ(scratch->read("disk/link"), "dear");
  scratch->write("letter", "changed");
  ASSERT_EQ(run(both).code, ExecuteCode::completed);
  EXPECT_EQ(scratch->read("disk/link"), "changed");
  EXPECT_EQ(filesAside(), 2u);
  // A folder in the place of a file is not what was copied.
  fs::remove(scratch->at("letter"));
  fill("letter", 2);
  EXPECT_EQ(run(both).code, ExecuteCode::unexpectedError);
  EXPECT_EQ(scratch->read("disk/letter"), "changed");
}

TEST_F(AccidentsTest, DeletesOnlyInItsOwnCopies) {
  mountMemory("disk");
  fill("source", 3);
  fill("disk/source", 5, "another's");
  const ExecuteEnd refused = synchronise("source");
  EXPECT_EQ(refused.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(refused.reason, HasSubstr("corvana9 edit 7 --adopt"));
  EXPECT_TRUE(refused.mayTakeOver);
  EXPECT_EQ(scratch->read("disk/source/f4"), "another's");
  // An action that has filled it before there were marks goes on, unless another one does, too.
  owner.hasRun = true;
  owner.isAlone = false;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::unexpectedError);
  EXPECT_EQ(filesBelow("disk/source"), 5u);
  owner.isAlone = true;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  // Another action, with a source of the same name.
  fill("second/source", 2, "second");
  owner.mark.reference = 8;
  const ExecuteEnd other = synchronise("second/source");
  EXPECT_EQ(other.code, ExecuteCode::unexpectedError);
  EXPECT_THAT(other.reason, HasSubstr("action 7 \"Mine\" (" + scratch->at("source") + ")"));
  EXPECT_EQ(run(record(CopyPlan::kCopy, {"second/source"}, "disk")).code,
            ExecuteCode::unexpectedError);
  EXPECT_EQ(filesBelow("disk/source"), 3u);
  owner.takesOver = true;
  EXPECT_EQ(synchronise("second/source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), 2u);
  owner.takesOver = false;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::unexpectedError) << "it has another owner now";
  // What a power failure leaves of a mark, and what damage leaves.
  std::ofstream(scratch->at("disk/source/.corvana9-copy"), std::ios::trunc).flush();
  EXPECT_EQ(synchronise("second/source").code, ExecuteCode::completed);
  scratch->write("disk/source/.corvana9-copy", "{\"machine\":");
  EXPECT_EQ(synchronise("second/source").code, ExecuteCode::unexpectedError);
}

TEST_F(AccidentsTest, GoesOnWithALargeFileWhereItWasStopped) {
  mountMemory("disk");
  const std::string log = scratch->at("log");
  std::string contents(17 << 20, 'a');
  std::uint32_t odd = 1;
  for (char& letter : contents)
    letter = static_cast<char>((odd = odd * 1664525 + 1013904223) >> 24);
  scratch->write("source/films/long", contents);
  scratch->write("source/other/long", "another of the name");
  replaceRsync(
      "case \"$*\" in *--dry-run*) ;; *) set -- --bwlimit=3000 \"$@\";; esac; exec $RSYNC \"$@\"");
  onProgress = [&](const auto& progress) {
    if (progress.sizeCopied > 2'000'000) control->stop(StopReason::user);
  };
  EXPECT_EQ(synchronise("source").code, ExecuteCode::abortedByUser);
  EXPECT_FALSE(fs::exists(scratch->at("disk/source/films/long")));
  const auto half = scratch->read("disk/source/films/.corvana9-partial/long").size();
  EXPECT_GT(half, 1u << 20);
  onProgress = {};
  control.emplace();
  std::vector<CopyRun::Planned> planned;
  look(record(CopyPlan::kSynchronise, {"source"}, "disk"), planned);
  for (const auto& one : planned) EXPECT_NE(one.kind, CopyRun::Planned::Kind::deleted) << one.path;
  replaceRsync("case \"$*\" in *--no-whole-file*) exec $RSYNC --stats \"$@\" | tee -a '" + log +
               "';; esac; exec $RSYNC \"$@\"");
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_TRUE(scratch->read("disk/source/films/long") == contents);
  EXPECT_EQ(scratch->read("disk/source/other/long"), "another of the name");
  EXPECT_EQ(filesBelow("disk/source"), 2u);
  const std::string told = scratch->read("log");
  const std::string word = "Matched data: ";
  ASSERT_THAT(told, HasSubstr(word));
  EXPECT_GT(std::stol(told.substr(told.find(word) + word.size())), 1 << 20);
  // What a kill leaves lies in the copy under a name of rsync's own.
  fs::remove(scratch->at("disk/source/films/long"));
  fs::remove(log);
  scratch->write("disk/source/films/.long.Ab12Cd", contents.substr(0, 9 << 20));
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_TRUE(scratch->read("disk/source/films/long") == contents);
  EXPECT_THAT(scratch->read("log"), HasSubstr(word));
  EXPECT_EQ(filesBelow("disk/source"), 2u);
}

TEST_F(AccidentsTest, TellsWhatARunWouldDoAndDoesNothing) {
  mountMemory("disk");
  using Kind = CopyRun::Planned::Kind;
  fill("source", 2);
  const auto tell = [&](const std::string& destination) {
    std::vector<CopyRun::Planned> planned;
    const ExecuteEnd end = look(record(CopyPlan::kSynchronise, {"source"}, destination), planned);
    EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
    std::multiset<std::pair<Kind, std::string>> told;
    for (const auto& one : planned) {
      if (!one.path.ends_with('/'))
        told.insert({one.kind, fs::relative(one.path, scratch->path())});
    }
    return told;
  };
  const std::multiset<std::pair<Kind, std::string>> both{{Kind::copied, "source/f0"},
                                                         {Kind::copied, "source/f1"}};
  for (const std::string destination : {"disk", "disk/new"}) EXPECT_EQ(tell(destination), both);
  EXPECT_TRUE(fs::is_empty(scratch->at("disk")));
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f0"));
  scratch->write("source/f1", "longer");
  const auto before = fs::last_write_time(scratch->at("disk/source"));
  EXPECT_EQ(tell("disk"), (std::multiset<std::pair<Kind, std::string>>{
                              {Kind::replaced, "source/f1"}, {Kind::deleted, "disk/source/f0"}}));
  EXPECT_EQ(filesBelow("disk"), 2u);
  EXPECT_EQ(fs::last_write_time(scratch->at("disk/source")), before);
}

TEST_F(AccidentsTest, LosesNothingWhenRsyncIsKilled) {
  mountMemory("disk");
  fill("source", 60);
  scratch->write("source/big", std::string(3 << 20, 'b'));
  ASSERT_EQ(synchronise("source").code, ExecuteCode::completed);
  fs::remove(scratch->at("source/f1"));
  scratch->write("source/big", std::string(3 << 20, 'c'));
  const std::string killed = "$RSYNC --bwlimit=500 \"$@\" & sleep 0.3; kill -9 $!; kill -9 $$";
  for (const std::string& script :
       {std::string("kill -9 $$"),
        "case \"$*\" in *--dry-run*) exec $RSYNC \"$@\";; esac; " + killed}) {
    replaceRsync(script);
    const ExecuteEnd end = synchronise("source");
    EXPECT_EQ(end.code, ExecuteCode::unexpectedError);
    EXPECT_THAT(end.reason, HasSubstr("ended by signal 9"));
    EXPECT_EQ(scratch->read("disk/source/big"), std::string(3 << 20, 'b'));
    EXPECT_TRUE(fs::exists(scratch->at("disk/source/f1")));
  }
  rsync = real;
  EXPECT_EQ(synchronise("source").code, ExecuteCode::completed);
  EXPECT_EQ(filesBelow("disk/source"), filesBelow("source"));
}

TEST_F(AccidentsTest, CopiesLittleOfMuchAsItWouldAllOfIt) {
  mountMemory("disk");
  for (const char* folder : {"source", "source/a", "source/b/c", "source/h"}) fill(folder, 30);
  const std::vector<std::string> odd{"#n", ";n", "-n", " n ", "new\nline", "\xff\xfe"};
  for (const auto& name : odd) scratch->write("source/b/" + name, "x");
  fs::create_hard_link(scratch->at("source/h/f1"), scratch->at("source/b/second"));
  fs::create_symlink("f1", scratch->at("source/a/link"));
  scratch->write("source/was/folder", "x");
  const auto synchronised = [&](const std::string& meanwhile = "true") {
    fs::remove(scratch->at("log"));
    replaceRsync("case \"$*\" in *--files-from*) cd '" + scratch->at("source") + "'; " + meanwhile +
                 "; echo few > ../log;; esac; exec $RSYNC \"$@\"");
    const ExecuteEnd end = synchronise("source");
    EXPECT_EQ(end.code, ExecuteCode::completed) << end.reason;
    return scratch->read("log") == "few\n";
  };
  const auto lacks = [&] {
    auto copy = manifestOf(scratch->at("disk/source"));
    copy.erase(std::string(CopyMark::kName));
    return difference(copy, manifestOf(scratch->at("source")));
  };
  EXPECT_FALSE(synchronised());
  for (const auto& name : odd) scratch->write("source/b/" + name, "changed");
  for (const char* name : {"f1", "h/f2"}) scratch->write(std::string("source/") + name, "other");
  for (const char* name : {"a/link", "b/c/f3"})
    fs::remove(scratch->at(std::string("source/") + name));
  fs::remove_all(scratch->at("source/was"));
  for (const char* name : {"a/link", "was"})
    scratch->write(std::string("source/") + name, "a file now");
  fs::create_directories(scratch->at("source/b/empty/deep"));
  fs::permissions(scratch->at("source/b/empty"), fs::perms{0500});
  fs::permissions(scratch->at("source/h"), fs::perms{0710});
  fs::last_write_time(scratch->at("source/b"), fs::file_time_type{});
  EXPECT_TRUE(synchronised());
  EXPECT_EQ(lacks(), "");
  // The source's own time alone, a file of two names, and what changes once it was looked at.
  fs::last_write_time(scratch->at("source"), fs::file_time_type{});
  EXPECT_TRUE(synchronised());
  EXPECT_EQ(lacks(), "");
  fs::permissions(scratch->at("source/h/f1"), fs::perms{0600});
  EXPECT_FALSE(synchronised());
  EXPECT_EQ(lacks(), "");
  for (const char* name : {"f2", "a/f3"}) scratch->write(std::string("source/") + name, "again");
  EXPECT_TRUE(synchronised("rm -r f2 a; ln -s h a; mkdir f2"));
  EXPECT_FALSE(lacks().empty());
  synchronised();
  EXPECT_EQ(lacks(), "");
}

}  // namespace
}  // namespace corvana
