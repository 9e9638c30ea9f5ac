#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <ostream>
#include <system_error>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "command/ActionWords.h"
#include "command/CommandHome.h"
#include "command/PastDate.h"
#include "command/RunningAgent.h"
#include "execute/plain/RequestFile.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr double kInterval = 0.05;
constexpr std::size_t kLongestAnswer = 64 << 20;
constexpr double kBetweenLooksAtTheQueue = 2;

/// Lets the execute program do what a request says, and waits for its answer.
class Request {
 public:
  Request(CommandHome& home, const Console& console, std::int64_t reference, ZAN_Value request)
      : mHome(home), mConsole(console), mReference(reference), mRequest(std::move(request)) {}

  /// Between the agent's other executions where it runs, else at once; `isQuick`: at once in any
  /// case, since it changes nothing.
  Result<ZAN_Value> perform(bool isQuick) {
    if (!isQuick && mReference > 0) {
      RunningAgent agent(mHome);
      if (agent.answers()) return byAgent(agent);
      if (agent.presence() == RunningAgent::Presence::silent)
        return Error{ErrorKind::unavailable, agent.absence()};
    }
    return byItself();
  }

 private:
  Outcome write(const std::string& file) {
    std::error_code failed;
    std::filesystem::create_directories(std::filesystem::path(file).parent_path(), failed);
    auto text = ZAN_Json::jsonWithValue(mRequest, {.compact = true, .plain = true});
    if (!text) return text.error();
    std::filesystem::remove(RequestFile::answerOf(file), failed);
    std::filesystem::remove(file, failed);
    return ZAN_FilesUtils::appendToFile(file, *text, false);
  }

  Result<ZAN_Value> byItself() {
    const std::string program = mHome.executeProgram();
    if (program.empty())
      return Error{ErrorKind::absent, "the execute program is not installed beside this command"};
    const std::string file =
        RequestFile::pathIn(mHome.store().folder().hiddenFolderPath(), mReference) + "." +
        std::to_string(::getpid());
    if (const Outcome written = write(file); !written) return written.error();
    const auto child = spawn(
        {program, std::to_string(mReference), "0", "0", "0", "0", "0", "", "0", "0", file}, {});
    if (!child) return child.error();
    for (;;) {
      int status = 0;
      const bool hasEnded = ::waitpid(*child, &status, WNOHANG) != 0;
      auto answer = read(file);
      if (isDone(answer) || hasEnded) {
        if (!hasEnded) ::waitpid(*child, &status, 0);
        return finished(file, std::move(answer));
      }
      show(answer);
      mHome.store().clock().sleep(kInterval);
    }
  }

  Result<ZAN_Value> byAgent(RunningAgent& agent) {
    const std::string file =
        RequestFile::pathIn(mHome.store().folder().hiddenFolderPath(), mReference);
    if (const Outcome written = write(file); !written) return written.error();
    std::error_code failed;
    const auto said = launchEstimate(agent.client(), mReference);
    if (!said || *said != "queued") {
      std::filesystem::remove(file, failed);
      return said ? Error{ErrorKind::refused, "the agent: " + *said} : said.error();
    }
    std::string hold;
    double next = 0;
    for (;;) {
      auto answer = read(file);
      if (isDone(answer)) return finished(file, std::move(answer));
      show(answer);
      if (answer.isNull() && mHome.store().clock().monotonic() >= next) {
        next = mHome.store().clock().monotonic() + kBetweenLooksAtTheQueue;
        agent.refresh();
        const ZAN_Value& now = agent.status()["hold"];
        const std::string text = now.isDictionary() ? printable(now.string("text")) : std::string();
        if (text != hold && !text.empty()) mConsole.err << text << std::endl;
        hold = text;
        const bool isTaken = !std::filesystem::exists(file, failed);
        if (!agent.answers() && !isTaken && !agent.executeRuns()) {
          std::filesystem::remove(file, failed);
          return Error{ErrorKind::unavailable, "the agent has ended meanwhile"};
        }
      }
      mHome.store().clock().sleep(kInterval);
    }
  }

  static ZAN_Value read(const std::string& file) {
    const auto text = ZAN_FilesUtils::readBeginning(RequestFile::answerOf(file), kLongestAnswer);
    if (!text) return {};
    const auto answer = ZAN_Json::valueWithJson(*text);
    return answer ? *answer : ZAN_Value();
  }
  static bool isDone(const ZAN_Value& answer) { return answer["done"].boolValue(); }

  Result<ZAN_Value> finished(const std::string& file, ZAN_Value answer) {
    std::error_code failed;
    if (mIsShown) mConsole.err << "\r\033[K" << std::flush;
    // It ended between two looks.
    if (!isDone(answer)) answer = read(file);
    std::filesystem::remove(file, failed);
    std::filesystem::remove(RequestFile::answerOf(file), failed);
    if (!isDone(answer))
      return Error{ErrorKind::unavailable, "the execute program ended before it was done"};
    return answer;
  }

  void show(const ZAN_Value& answer) {
    if (::isatty(STDERR_FILENO) == 0 || !answer.isDictionary()) return;
    const auto files = answer.integer("files");
    const auto inAll = answer.integer("filesInAll");
    std::string line = std::to_string(files) + (inAll > 0 ? " of " + std::to_string(inAll) : "") +
                       " files  " + printable(answer.string("path"));
    constexpr std::size_t kWidth = 78;
    if (line.size() > kWidth) line.resize(kWidth);
    if (line == mShown) return;
    mShown = line;
    mIsShown = true;
    mConsole.err << '\r' << line << "\033[K" << std::flush;
  }

  CommandHome& mHome;
  const Console& mConsole;
  std::int64_t mReference;
  ZAN_Value mRequest;
  std::string mShown;
  bool mIsShown = false;
};

/// What the words of such a command have in common.
struct Wish {
  std::int64_t reference = 0;
  ZAN_Value request = ZAN_Value::dictionary();
};

Result<Wish> wishFrom(const char* kind, Arguments& arguments, CommandHome& home,
                      std::size_t mostPaths) {
  Wish wish;
  const auto from = arguments.option("--from");
  const auto at = arguments.option("--at");
  const auto words = arguments.words(from ? 0 : 1, mostPaths + 1);
  if (!words) return words.error();
  auto paths = *words;
  if (!from) {
    const auto reference = referenceFrom(paths.front());
    if (!reference) return reference.error();
    wish.reference = *reference;
    paths.erase(paths.begin());
  }
  if (at) {
    const auto date = pastDate(*at, home.now(), home.calendar());
    if (!date) return date.error();
    wish.request.setValue("at", *date);
  }
  std::error_code failed;
  const std::string folder = std::filesystem::current_path(failed).string();
  const auto absolute = [&](const std::string& path) {
    return std::filesystem::path(
               ZAN_FilesUtils::joinedPath(path.starts_with('/') ? std::string() : folder, path))
        .lexically_normal()
        .string();
  };
  wish.request.setValue("kind", kind);
  wish.request.setValue("folder", folder);
  if (from) wish.request.setValue("from", absolute(*from));
  ZAN_Value names = ZAN_Value::array();
  for (const auto& path : paths) names.append(path);
  wish.request.setValue("names", names);
  return wish;
}

std::string counted(std::int64_t number, const char* one, const char* many) {
  return ZAN_StringUtils("C").getUnsignedWithSeparators(static_cast<std::uint64_t>(number)) + " " +
         (number == 1 ? one : many);
}

std::string sizeOf(const ZAN_Value& value, std::string_view key) {
  return ZAN_StringUtils("C").getShortSizeBytes(
      static_cast<std::uint64_t>(std::max<std::int64_t>(value.integer(key), 0)));
}

/// With seconds, so that it can be given back to --at.
std::string dateOf(const CommandHome& home, const ZAN_Value& date) {
  return home.calendar().format(date.doubleValue(), "%a %Y-%m-%d %H:%M:%S");
}

/// What the answer says, or why there is none; its reason goes with it.
Answer answerFrom(const Result<ZAN_Value>& found, std::string text) {
  if (!found) return found.error();
  Answer answer(*found, std::move(text));
  if (found->integer("code") != 0) {
    answer.code = kCouldNot;
    answer.reason = printable(found->string("reason"));
  }
  return answer;
}

}  // namespace

Answer versionsCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const auto wish = wishFrom("versions", arguments, home, 1);
  if (!wish) return wrongWords(wish.error());
  const auto found = Request(home, console, wish->reference, wish->request).perform(true);
  std::string text;
  if (found && found->integer("code") == 0) {
    const bool isOfOne = !found->string("name").empty();
    ZAN_Value last;
    for (const ZAN_Value& version : (*found)["versions"].elements()) {
      std::string line = dateOf(home, version["date"]) + "  ";
      if (!isOfOne) {
        line +=
            counted(version.integer("files"), "file", "files") + ", " + sizeOf(version, "bytes");
      } else {
        // What did not change from one version to the next is told once.
        const auto isSame = [&](const char* key) {
          return last.isDictionary() && last[key].doubleValue() == version[key].doubleValue();
        };
        if (isSame("bytes") && isSame("changed") && last.string("kind") == version.string("kind"))
          continue;
        last = version;
        if (version.string("kind") == "none") {
          line += "not there";
        } else if (version.string("kind") == "file") {
          line += sizeOf(version, "bytes") + ", changed " +
                  home.dateText(version["changed"].doubleValue());
        } else {
          line += version.string("kind");
        }
      }
      if (version["newest"].boolValue()) line += isOfOne ? "" : "  (the copies themselves)";
      text += line + '\n';
    }
    if (const auto older = found->integer("older"); older > 0)
      text += counted(older, "older folder", "older folders") +
              " without a list in .corvana9-versions: to be looked through by hand\n";
  }
  return answerFrom(found, std::move(text));
}

Answer restoreCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const bool onlyLooks = arguments.flag("--dry-run");
  const bool overwrites = arguments.flag("--overwrite");
  const auto to = arguments.option("--to");
  constexpr std::size_t kMostPaths = 10'000;
  auto wish = wishFrom("restore", arguments, home, kMostPaths);
  if (!wish) return wrongWords(wish.error());
  if (to) {
    std::error_code failed;
    wish->request.setValue("to",
                           std::filesystem::absolute(*to, failed).lexically_normal().string());
  }
  wish->request.setValue("dryRun", onlyLooks ? 1 : 0);
  wish->request.setValue("overwrite", overwrites ? 1 : 0);
  const auto found = Request(home, console, wish->reference, wish->request).perform(onlyLooks);
  std::string text;
  const bool hasBegun = found && (*found)["version"].isNumber() && found->integer("filesInAll") > 0;
  if (hasBegun || (found && found->integer("code") == 0)) {
    const auto list = [&](const char* key, const std::string& before) {
      for (const ZAN_Value& path : (*found)[key].elements())
        text += before + printable(path.stringView()) + '\n';
    };
    if (onlyLooks) list("items", "would restore ");
    list("kept", onlyLooks ? "would keep under another name " : "kept under another name ");
    for (const ZAN_Value& failure : (*found)["failed"].elements())
      text += "not restored: " + printable(failure.stringView()) + '\n';
    text += (onlyLooks ? "Would restore " : "Restored ") +
            counted(found->integer("files"), "file", "files") + " (" + sizeOf(*found, "bytes") +
            ") from the version of " + dateOf(home, (*found)["version"]);
    if (found->integer("same") > 0)
      text += "; " + std::to_string(found->integer("same")) + " were there as they were then";
    text += '\n';
  }
  return answerFrom(found, std::move(text));
}

Answer verifyCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const auto sample = arguments.number("--sample", 1, 100);
  auto wish = wishFrom("verify", arguments, home, 0);
  if (!wish) return wrongWords(wish.error());
  if (sample) wish->request.setValue("sample", *sample);
  const auto found = Request(home, console, wish->reference, wish->request).perform(false);
  std::string text;
  if (found && (*found)["mismatches"].isNumber()) {
    for (const ZAN_Value& failure : (*found)["failed"].elements())
      text += printable(failure.stringView()) + '\n';
    text += counted(found->integer("files"), "file was", "files were") + " read and compared (" +
            sizeOf(*found, "bytes") + ")";
    if (const auto unknown = found->integer("unknown"); unknown > 0)
      text += "; " + counted(unknown, "file has", "files have") +
              " changed since, and no checksum is known yet";
    text += found->integer("mismatches") == 0 ? "; all as it was copied\n" : "\n";
  }
  return answerFrom(found, std::move(text));
}

Answer diffCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  constexpr std::size_t kMostPaths = 10'000;
  const auto wish = wishFrom("diff", arguments, home, kMostPaths);
  if (!wish) return wrongWords(wish.error());
  const auto found = Request(home, console, wish->reference, wish->request).perform(true);
  std::string text;
  if (found && found->integer("code") == 0) {
    for (const ZAN_Value& difference : (*found)["differences"].elements()) {
      std::string what = difference.string("what");
      what.resize(12, ' ');
      text += what + printable(difference.string("path")) + '\n';
    }
    text += counted(found->integer("count"), "difference", "differences") +
            " since the version of " + dateOf(home, (*found)["version"]) + '\n';
  }
  return answerFrom(found, std::move(text));
}

}  // namespace corvana
