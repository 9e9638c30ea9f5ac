#pragma once

#include <array>
#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

#include "command/ActionHelp.h"
#include "command/Arguments.h"

namespace corvana {

/// Where a subcommand reads and writes: what it is asked for goes to `out`, reasons to `err`.
struct Console {
  std::istream& in;
  std::ostream& out;
  std::ostream& err;
};

/// Exit codes of every subcommand.
inline constexpr int kDone = 0;
inline constexpr int kCouldNot = 1;    ///< the reason is on `err`
inline constexpr int kWrongWords = 2;  ///< so is what was wrong with the words

/// Prints "corvana9: reason"; gives kCouldNot.
int failed(const Console& console, const Error& error);
/// The same for words that were wrong; gives kWrongWords, upon which the usage line follows by
/// itself.
int wrongWords(const Console& console, const Error& error);

/// Runs "corvana9 words…" and gives the exit code of the program.
int runCommandLine(const std::vector<std::string>& words, const Console& console);

/// A subcommand takes what it knows out of the arguments, then `Arguments::words`.
struct Command {
  std::string_view name;
  std::string_view arguments;  ///< as the usage line shows them
  std::string_view help;       ///< one line
  std::string_view details;    ///< what `--help` adds, whole lines; may be empty
  int (*run)(Arguments& arguments, const Console& console);
};

int dumpCommand(Arguments& arguments, const Console& console);
int packCommand(Arguments& arguments, const Console& console);
int treeCommand(Arguments& arguments, const Console& console);
int addCommand(Arguments& arguments, const Console& console);
int editCommand(Arguments& arguments, const Console& console);
int removeCommand(Arguments& arguments, const Console& console);
int groupCommand(Arguments& arguments, const Console& console);
int nextCommand(Arguments& arguments, const Console& console);
int whyCommand(Arguments& arguments, const Console& console);
int statusCommand(Arguments& arguments, const Console& console);
int queueCommand(Arguments& arguments, const Console& console);
int launchCommand(Arguments& arguments, const Console& console);
int enableCommand(Arguments& arguments, const Console& console);
int disableCommand(Arguments& arguments, const Console& console);
int pauseCommand(Arguments& arguments, const Console& console);
int continueCommand(Arguments& arguments, const Console& console);
int stopCommand(Arguments& arguments, const Console& console);
int skipCommand(Arguments& arguments, const Console& console);
int postCommand(Arguments& arguments, const Console& console);
int watchCommand(Arguments& arguments, const Console& console);
int logCommand(Arguments& arguments, const Console& console);
int historyCommand(Arguments& arguments, const Console& console);
int reportCommand(Arguments& arguments, const Console& console);
int volumesCommand(Arguments& arguments, const Console& console);
int peersCommand(Arguments& arguments, const Console& console);
int peerCommand(Arguments& arguments, const Console& console);
int mailCommand(Arguments& arguments, const Console& console);

/// In the order in which the help shows them.
inline constexpr std::array kCommands{
    Command{"tree", "[--json]", "show the actions with their schedules and next dates", "",
            treeCommand},
    Command{"add", "TITLE --source FOLDER --destination FOLDER [WHEN] [--json]",
            "add an action that copies folders", kActionHelp, addCommand},
    Command{"edit", "REF [--title TEXT] [--source FOLDER …] [WHEN] [--json]", "change an action",
            kActionHelp, editCommand},
    Command{"remove", "REF [--force]", "remove an action or a group",
            "  --force   remove a group with all that is in it\n", removeCommand},
    Command{"group", "TITLE [--group REF] [--shortcut KEY]", "add a group",
            "  --group REF      the group it lies in; 0 is the top\n"
            "  --shortcut KEY   a short word to find it by\n",
            groupCommand},
    Command{"next", "[--count N] [--ics] | --records FILE --now SECONDS", "show the coming runs",
            "The coming runs of all actions, the next first.\n"
            "  --count N              so many of them; 10 without it\n"
            "  --ics                  as a calendar\n"
            "  --records FILE         the next date of each settings record of a JSON array, one\n"
            "                         line each: {\"date\": seconds or null, \"shutdown\": bool};\n"
            "                         FILE may be \"-\" for the standard input\n"
            "  --now SECONDS          taken as now, in seconds since 2001-01-01 00:00:00 UTC\n"
            "  --first-after-startup  as the first evaluation after start-up finds them\n"
            "Times are those of the zone that TZ names, else of the machine's.\n",
            nextCommand},
    Command{"why", "REF [--json]", "say why an action does not run now, and what would make it run",
            "Asks the agent what it does; without one it looks at files and processes.\n",
            whyCommand},
    Command{"status", "[--json]", "show what the agent does, or what its files say", "",
            statusCommand},
    Command{"queue", "[--json]", "show the queue, or what was saved of it", "", queueCommand},
    Command{"launch", "REF [--estimate] [--json]", "queue an action now",
            "The agent answers \"queued\" or why not.\n"
            "  --estimate   only count what there is to copy\n",
            launchCommand},
    Command{"enable", "[--json]", "turn automatic execution on",
            "Without a running agent it is stored for its next start.\n", enableCommand},
    Command{
        "disable", "[--json]", "turn automatic execution off",
        "Actions then run only when they are launched. Without a running agent it is stored for\n"
        "its next start.\n",
        disableCommand},
    Command{"pause", "[--json]", "pause the agent and what is being executed",
            "Nothing new is started meanwhile.\n", pauseCommand},
    Command{"continue", "[--json]", "let the agent and what is being executed go on", "",
            continueCommand},
    Command{"stop", "[--json]", "stop what is being executed",
            "What was copied stays; the next run goes on from there.\n", stopCommand},
    Command{"skip", "[--json]", "leave out the item that is being copied", "", skipCommand},
    Command{"post", "NAME OBJECT [JSON]", "send a message to the programs of Corvana 9",
            "NAME is the name that a program listens to; agent, execute, main and shutdown stand\n"
            "for those of Corvana 9. JSON is an object with the details, as dump writes it; \"-\" "
            "reads\n"
            "it from the standard input. Nobody answers a message.\n",
            postCommand},
    Command{"watch", "[--json]", "print messages and changes as they come, until interrupted",
            "  --json   one object a line\n", watchCommand},
    Command{"log", "[--count N] [--json]", "show what happened, newest last",
            "  --count N   the last N events; 20 without it\n", logCommand},
    Command{"history", "[--count N] [--json]",
            "show the executions with their duration and result, newest last",
            "  --count N   the last N executions; 20 without it\n"
            "How late an execution began is told where the log still has its launch.\n",
            historyCommand},
    Command{"volumes", "[--weeks N] [--json]",
            "show the volumes, how they are told apart, and their free space over time",
            "  --weeks N   as far back as the second chart goes; without it as far as the agent\n"
            "              remembers, 26 at most\n"
            "A bar's height is the free part of the volume; it is blank where the agent did not\n"
            "look. Volumes that are not mounted are shown while the agent remembers them.\n",
            volumesCommand},
    Command{"peers", "[--json]", "list the machines of the network that can be controlled",
            "Each with its state and the actions that it lets others launch.\n", peersCommand},
    Command{"peer", "NAME launch REF… | activate | deactivate | message TEXT [--json]",
            "control another machine",
            "NAME is the machine's name, its identifier, or the name of its service in full. Its\n"
            "password is asked for at the terminal when it has one.\n"
            "  --password-file FILE   the first line of the file is the password\n"
            "activate and deactivate wait until the machine has followed; to the others nobody\n"
            "answers.\n",
            peerCommand},
    Command{"report", "[--date YYYY-MM-DD | --preview | --mail] [--json]",
            "show the report of a day, or the mail that tells of it",
            "Without a date, that of today.\n"
            "  --date      that of another day\n"
            "  --preview   show the report as it would be mailed now\n"
            "  --mail      mail it now, with the settings of the main application, and show how\n"
            "              the mail server answers\n",
            reportCommand},
    Command{
        "mail",
        "[--server HOST --from ADDRESS --to ADDRESS[,ADDRESS] …] [--body-file FILE] [--json]",
        "send one message and show how the mail server answers",
        "Without --server it takes the server and the addresses that are set for the reports, so\n"
        "that these settings are tested.\n"
        "  --server HOST         and what it is asked for:\n"
        "  --ports LIST          tried in order, by comma; 25,465,587 without it\n"
        "  --tls N               0 none, 1 when the server offers it, 2 required\n"
        "  --method N            0 no login, 1 LOGIN, 2 CRAM-MD5\n"
        "  --user NAME           for the login\n"
        "  --password-file FILE  its first line\n"
        "  --from ADDRESS        or \"Name <ADDRESS>\"; so with --to\n"
        "  --to LIST             by comma\n"
        "  --subject TEXT\n"
        "  --crformat N          line ends of the body: 1 to <br>, 2 from it, 0 as the system\n"
        "  --body-file FILE      \"-\" is the standard input; a few words without it\n"
        "Prints \"status N\", \"info TEXT\" and \"error CODE TEXT\" as they come. The file that\n"
        "SSL_CERT_FILE names adds authorities to those of the system.\n",
        mailCommand},
    Command{"dump", "FILE [--mask]", "show a data file as JSON",
            "Reads the agent's own archives, keyed archives and property lists, told apart by "
            "content.\n"
            "  --mask   hide passwords\n",
            dumpCommand},
    Command{"pack", "JSON FILE", "write a data file from JSON",
            "JSON may be \"-\" for the standard input. FILE is replaced as a whole.\n",
            packCommand},
};

}  // namespace corvana
