#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "ZANCocoaFramework/ZAN_Result.h"
#include "command/Answer.h"

namespace corvana {

/// The words behind a subcommand, taken out one by one: first flags and options, then `words`,
/// which says whether anything is left that nobody asked for. What follows "--" is no flag.
///
/// A wrong word is remembered, so that a command asks for all it knows and then looks at `words`
/// alone.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> words);

  /// Whether "--name" is there.
  bool flag(std::string_view name);
  /// The value of "--name value" or "--name=value"; nothing without it. Given twice the last one
  /// counts.
  std::optional<std::string> option(std::string_view name);
  /// Every value of an option that may be given several times, in order.
  std::vector<std::string> options(std::string_view name);
  /// A whole decimal number within the range, otherwise the words are wrong.
  std::optional<std::int64_t> number(std::string_view name, std::int64_t least, std::int64_t most);
  /// Takes "--json", by which a command has its answer printed as JSON.
  bool json() { return mJson = flag("--json"); }
  bool wantsJson() const { return mJson; }

  /// The words that are neither flag nor option, at least `least` and at most `most` of them.
  /// Fails, with `refused`, when their number is another, when a flag is left that nobody took, or
  /// when an option was wrong. Call it last.
  Result<std::vector<std::string>> words(std::size_t least, std::size_t most);

  /// A command that finds a value wrong says so here, before `words`.
  void complain(std::string reason);

 private:
  std::vector<std::string> mFlags;  ///< and options with their values, before "--"
  std::vector<std::string> mBehind;
  std::string mComplaint;
  bool mJson = false;
};

/// Runs "corvana9 words…" and gives the exit code of the program.
int runCommandLine(const std::vector<std::string>& words, const Console& console);

/// A subcommand takes what it knows out of the arguments, then `Arguments::words`.
struct Command {
  std::string_view name;
  std::string_view arguments;  ///< as the usage line shows them
  std::string_view help;       ///< one line
  std::string_view details;    ///< what `--help` adds, whole lines; may be empty
  Answer (*run)(Arguments& arguments, const Console& console);
};
/// All of them, in the order in which the help shows them.
std::span<const Command> commands();

/// The contents of a file, or of a pipe; of the standard input for "-".
Result<std::string> readText(const std::string& path, const Console& console);

/// Asks for a password at the terminal, which does not show it.
Result<std::string> typedPassword(const std::string& whose);

Answer dumpCommand(Arguments& arguments, const Console& console);
Answer packCommand(Arguments& arguments, const Console& console);
Answer treeCommand(Arguments& arguments, const Console& console);
Answer addCommand(Arguments& arguments, const Console& console);
Answer editCommand(Arguments& arguments, const Console& console);
Answer removeCommand(Arguments& arguments, const Console& console);
Answer groupCommand(Arguments& arguments, const Console& console);
Answer confirmCommand(Arguments& arguments, const Console& console);
Answer versionsCommand(Arguments& arguments, const Console& console);
Answer browseCommand(Arguments& arguments, const Console& console);
Answer restoreCommand(Arguments& arguments, const Console& console);
Answer verifyCommand(Arguments& arguments, const Console& console);
Answer diffCommand(Arguments& arguments, const Console& console);
Answer repositoryCommand(Arguments& arguments, const Console& console);
Answer planCommand(Arguments& arguments, const Console& console);
Answer nextCommand(Arguments& arguments, const Console& console);
Answer whyCommand(Arguments& arguments, const Console& console);
Answer statusCommand(Arguments& arguments, const Console& console);
Answer queueCommand(Arguments& arguments, const Console& console);
Answer launchCommand(Arguments& arguments, const Console& console);
Answer enableCommand(Arguments& arguments, const Console& console);
Answer disableCommand(Arguments& arguments, const Console& console);
Answer contextCommand(Arguments& arguments, const Console& console);
Answer pauseCommand(Arguments& arguments, const Console& console);
Answer continueCommand(Arguments& arguments, const Console& console);
Answer stopCommand(Arguments& arguments, const Console& console);
Answer skipCommand(Arguments& arguments, const Console& console);
Answer postCommand(Arguments& arguments, const Console& console);
Answer watchCommand(Arguments& arguments, const Console& console);
Answer logCommand(Arguments& arguments, const Console& console);
Answer historyCommand(Arguments& arguments, const Console& console);
Answer reportCommand(Arguments& arguments, const Console& console);
Answer recoverCommand(Arguments& arguments, const Console& console);
Answer volumesCommand(Arguments& arguments, const Console& console);
Answer peersCommand(Arguments& arguments, const Console& console);
Answer peerCommand(Arguments& arguments, const Console& console);
Answer pairCommand(Arguments& arguments, const Console& console);
Answer remoteCommand(Arguments& arguments, const Console& console);
Answer mailCommand(Arguments& arguments, const Console& console);

}  // namespace corvana
