#pragma once

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <optional>
#include <string>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringTable.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "actions/History.h"
#include "actions/RecordKeys.h"
#include "execute/ExecuteRun.h"
#include "execute/restic/Repository.h"
#include "platform/linux/LinuxVolumes.h"
#include "platform/simulated/SimulatedPlatform.h"
#include "tests/execute/RandomTree.h"
#include "tests/execute/ScratchFolder.h"

namespace corvana {

inline bool isThere(const char* program) { return ::access(program, X_OK) == 0; }

#define SKIP_WITHOUT(program) \
  if (!isThere(program)) GTEST_SKIP() << program << " is not installed"

/// A home with one action whose copies restic keeps.
class ResticTest : public testing::Test {
 protected:
  ResticTest() {
    clock.time = real.now();
    // Neither the cache nor the keyring of the user.
    ::setenv("RESTIC_CACHE_DIR", (scratch / "cache").c_str(), 1);
    ::setenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent", 1);
    scratch.write("Documents/letter", "dear");
    scratch.write("Documents/sub/we ird [1]*.txt", "figures");
    scratch.write("password", "open sesame\n");
    std::filesystem::permissions(scratch / "password", std::filesystem::perms::owner_read |
                                                           std::filesystem::perms::owner_write);
    settings =
        ZAN_Value::dictionary({{"Ref", 77},
                               {"Title", "Letters"},
                               {"Mode", 2},
                               {"OptionsPerformer", "corvana9"},
                               {EngineKey::name, RepositoryKey::kEngine},
                               {RepositoryKey::passwordFile, scratch / "password"},
                               {"ItemsListOfSourcePath", ZAN_Value::array({folder("Documents")})},
                               {"ItemsDestination", folder("Repository")}});
  }

  void SetUp() override { SKIP_WITHOUT("/usr/bin/restic"); }

  ZAN_Value folder(const std::string& name) {
    return ZAN_Value::dictionary({{"VolumeFolderPath", scratch / name}});
  }

  void perform(const ExecuteArguments& arguments) {
    tree.releaseRootItem();
    ExecuteMessages messages(clock, [&](const DistributedNotification& post) {
      if (onPost) onPost(post);
    });
    ExecuteRun({{store, tree, history},
                messages,
                *control,
                [] { return false; },
                volumes,
                simulated.machine,
                programs})
        .perform(arguments);
    tree.releaseRootItem();
  }

  /// The end of a run, as the history has it.
  ZAN_Value run() {
    settings = record();
    EXPECT_TRUE(store.tree().saveActionsTree(ZAN_Value::array({settings})));
    ExecuteArguments arguments;
    arguments.reference = 77;
    perform(arguments);
    return history.historyEntryAtIndex(static_cast<std::int64_t>(history.historyCount()) - 1);
  }

  ZAN_Value ask(ZAN_Value request) {
    const std::string file = scratch / "Request 77.json";
    const auto text = ZAN_Json::jsonWithValue(request, {.plain = true});
    std::ofstream(file) << *text;
    ExecuteArguments arguments;
    arguments.reference = 77;
    arguments.request = file;
    perform(arguments);
    std::ifstream answer(file + ".answer");
    const auto value =
        ZAN_Json::valueWithJson(std::string(std::istreambuf_iterator<char>(answer), {}));
    return value ? *value : ZAN_Value();
  }

  /// With what the runs so far have noted in it.
  ZAN_Value record() {
    tree.releaseRootItem();
    const auto* action = tree.rootItem().actionForReference(77);
    return action ? action->getSettings() : settings;
  }

  /// restic by hand, for what is to be found in the repository.
  std::string restic(const std::string& words) {
    const std::string output = scratch / "said";
    const std::string command = "restic --password-file '" + scratch / "password" + "' -r '" +
                                scratch / "Repository" + "' " + words + " > '" + output + "' 2>&1";
    EXPECT_EQ(std::system(command.c_str()), 0) << scratch.read("said");
    return scratch.read("said");
  }

  bool isSame(const std::string& one, const std::string& two) {
    return std::system(("diff -r --no-dereference '" + scratch / one + "' '" + scratch / two + "'")
                           .c_str()) == 0;
  }

  /// A program in the place of restic: a script in which $restic is the real one.
  void replaceRestic(const std::string& script) {
    const std::string path = scratch / "restic.sh";
    std::ofstream(path) << "#!/bin/sh\nrestic=/usr/bin/restic\n" << script << "\n";
    std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    programs["restic"] = path;
  }

  /// Has these processes ("$$": restic; "$PPID": who has called it) killed as soon as restic is at
  /// that work and holds its lock, or has written a key of its own.
  void killWhenLocked(const std::string& work, const std::string& processes) {
    const std::string place = scratch / "Repository";
    replaceRestic("case \" $* \" in *' " + work + " '*) before=$(ls '" + place +
                  "/locks' 2> /dev/null); (while kill -0 $$ && [ \"$(ls '" + place +
                  "/locks' 2> /dev/null)\" = \"$before\" ] && { [ " + work +
                  " != init ] || [ -z \"$(ls '" + place +
                  "/keys')\" ]; }; do sleep 0.01; done; kill -KILL " + processes +
                  ") > /dev/null 2>&1 & ;; esac\nexec \"$restic\" \"$@\"");
  }

  ScratchFolder scratch;
  SystemClock real;
  SetClock clock;
  SimulatedPlatform simulated;
  LinuxVolumes volumes{"nobody", "/"};
  ZAN_StringTable texts;
  ActionStore store{clock, simulated.machine, simulated.systemLog};
  ActionTree tree{store.tree(), clock, simulated.systemLog, texts};
  History history{store};
  std::optional<ExecuteControl> control{std::in_place};
  ZAN_Value settings;
  std::map<std::string, std::string, std::less<>> programs;
  std::function<void(const DistributedNotification&)> onPost;
};

}  // namespace corvana
