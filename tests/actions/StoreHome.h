#pragma once

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "actions/ActionStore.h"
#include "platform/simulated/SimulatedPlatform.h"

namespace corvana {

/// A simulated machine with a store in its home, and another store as a second program would have
/// it.
struct StoreHome {
  SimulatedPlatform machine;
  ActionStore store{machine.clock, machine.machine, machine.systemLog};
  ActionStore other{machine.clock, machine.machine, machine.systemLog};

  std::string path(std::string_view name) const { return data() + "/" + std::string(name); }
  std::string data() const { return machine.folder.at("Library/Application Support/Corvana 9"); }
  /// Puts bytes into the data folder behind the store's back.
  std::string put(std::string_view name, const std::string& bytes) const {
    return machine.folder.write("Library/Application Support/Corvana 9/" + std::string(name),
                                bytes);
  }
  static std::string text(const std::string& path) {
    const auto file = ZAN_FilesUtils::readFile(path);
    return file ? file->bytes : "(" + file.error().text + ")";
  }
  std::vector<std::string> dataFilesWith(std::string_view part) const {
    std::vector<std::string> names = ZAN_FilesUtils::listFolder(data()).valueOr({});
    std::erase_if(names, [&](const std::string& name) { return name.find(part) == name.npos; });
    return names;
  }
  std::size_t logged(std::string_view part) const {
    const auto& lines = machine.systemLog.lines;
    return static_cast<std::size_t>(
        std::count_if(lines.begin(), lines.end(),
                      [&](const auto& line) { return line.find(part) != std::string::npos; }));
  }

  /// Runs `body` in a child process; its status as waitpid gives it.
  template <class Body>
  static int inChild(Body body) {
    const pid_t child = ::fork();
    if (child == 0) {
      body();
      ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
  }
};

}  // namespace corvana
