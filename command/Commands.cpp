#include "command/Commands.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <ostream>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

void printUsage(std::ostream& out) {
  out << "usage: corvana9 COMMAND …\n\n"
         "Shows and controls the scheduler of Corvana 9, and edits its actions.\n\n";
  std::size_t width = 0;
  for (const Command& command : kCommands) width = std::max(width, command.name.size());
  for (const Command& command : kCommands) {
    out << "  " << command.name << std::string(width - command.name.size() + 2, ' ') << command.help
        << '\n';
  }
  out << "\nWith every command:\n"
         "  --help         say more about it\n"
         "  --home FOLDER  work on another home folder than yours\n"
         "  --json         answer in JSON, for programs (where the usage line names it)\n"
         "Exit codes: 0 done, 1 could not, 2 wrong words.\n";
}

void printHelp(const Command& command, std::ostream& out) {
  out << "usage: corvana9 " << command.name;
  if (!command.arguments.empty()) out << ' ' << command.arguments;
  const auto first = static_cast<char>(std::toupper(command.help.front()));
  out << "\n\n" << first << command.help.substr(1) << ".\n";
  if (!command.details.empty()) out << '\n' << command.details;
}

}  // namespace

int failed(const Console& console, const Error& error) {
  console.err << "corvana9: " << error.text << '\n';
  return kCouldNot;
}

int wrongWords(const Console& console, const Error& error) {
  failed(console, error);
  return kWrongWords;
}

int runCommandLine(const std::vector<std::string>& words, const Console& console) {
  if (words.empty()) {
    printUsage(console.err);
    return kWrongWords;
  }
  if (words[0] == "--help" || words[0] == "-h" || words[0] == "help") {
    printUsage(console.out);
    return kDone;
  }
  const auto command = std::ranges::find(kCommands, words[0], &Command::name);
  if (command == kCommands.end()) {
    console.err << "corvana9: unknown command " << words[0] << "; corvana9 --help lists them\n";
    return kWrongWords;
  }
  Arguments arguments({words.begin() + 1, words.end()});
  if (arguments.flag("--help")) {
    printHelp(*command, console.out);
    return kDone;
  }
  if (const auto home = arguments.option("--home")) {
    if (!ZAN_FilesUtils::isFolder(*home)) {
      return failed(console, {ErrorKind::absent, *home + ": not a folder"});
    }
    ::setenv("HOME", std::filesystem::absolute(*home).c_str(), 1);
  }
  const int code = command->run(arguments, console);
  if (code == kWrongWords) {
    console.err << "usage: corvana9 " << command->name << ' ' << command->arguments << '\n';
  }
  console.out.flush();
  if (code == kDone && !console.out) {
    console.err << "corvana9: standard output: cannot be written\n";
    return kCouldNot;
  }
  return code;
}

}  // namespace corvana
