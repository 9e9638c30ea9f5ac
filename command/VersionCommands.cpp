#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <ostream>
#include <system_error>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/TaskRequest.h"
#include "command/ActionWords.h"
#include "command/CopiesRequest.h"
#include "command/ScheduleWords.h"
#include "command/VersionCommands.h"
#include "execute/restic/Repository.h"

namespace corvana {

namespace {

std::string progressLine(const ZAN_Value& answer) {
  const auto inAll = answer.integer("filesInAll");
  std::string line = std::to_string(answer.integer("files")) +
                     (inAll > 0 ? " of " + std::to_string(inAll) : "") + " files  " +
                     printable(answer.string("path"));
  constexpr std::size_t kWidth = 78;
  if (line.size() > kWidth) line.resize(kWidth);
  return line;
}

/// For another program: what it waits for, or how far it is.
ZAN_Value newsOf(const CopiesRequest& request) {
  const ZAN_Value& answer = request.latest();
  if (answer.isNull()) return ZAN_Value::dictionary({{"hold", request.hold()}});
  ZAN_Value news = ZAN_Value::dictionary();
  for (const char* key : {"files", "filesInAll", "bytes", "bytesInAll", "path"})
    if (answer.contains(key)) news.setValue(key, answer[key]);
  return news;
}

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
  const auto passwordFile = arguments.option("--password-file");
  if (from && std::string_view(kind) == "diff")
    return Error{ErrorKind::refused,
                 "--from: the sources are known only of an action here; give its "
                 "REF"};
  if (from && from->empty())
    return Error{ErrorKind::refused, "--from wants a folder or a repository"};
  if (passwordFile && !from)
    return Error{ErrorKind::refused,
                 "--password-file opens what --from names; corvana9 edit REF "
                 "--password-file FILE changes that of an action"};
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
  wish.request.setValue("folder", TaskRequest::pathValue(folder));
  if (from) {
    const RepositoryAddress address(*from);
    if (address.hasSecret())
      return Error{ErrorKind::refused,
                   address.shown() +
                       ": its password is not to be seen on a command line each time; "
                       "corvana9 repository keeps it, then give it as it stands here"};
    wish.request.setValue("from", address.isRemote() ? *from : absolute(*from));
  }
  if (passwordFile) wish.request.setValue("passwordFile", absolute(*passwordFile));
  ZAN_Value names = ZAN_Value::array();
  for (const auto& path : paths) names.append(TaskRequest::pathValue(path));
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
Answer answerFrom(const CommandHome& home, const Result<ZAN_Value>& found, std::string text) {
  if (!found) return found.error();
  Answer answer(*found, std::move(text));
  if (found->integer("code") != 0) {
    answer.code = kCouldNot;
    answer.reason = printable(found->string("reason"));
    if (found->contains("oldest"))
      answer.reason += "; the oldest is of " + dateOf(home, (*found)["oldest"]);
  }
  return answer;
}

}  // namespace

Result<ZAN_Value> performRequest(CommandHome& home, const Console& console, std::int64_t reference,
                                 const ZAN_Value& wish, bool tellsNews) {
  sigset_t interrupts;
  sigset_t before;
  ::sigemptyset(&interrupts);
  ::sigaddset(&interrupts, SIGINT);
  ::pthread_sigmask(SIG_BLOCK, &interrupts, &before);
  std::string shown;
  std::string held;
  ZAN_Value told;
  const auto show = [&](std::string line) {
    if (::isatty(STDERR_FILENO) == 0 || line == shown) return;
    console.err << '\r' << line << "\033[K" << std::flush;
    shown = std::move(line);
  };
  CopiesRequest request(home, reference, wish);
  std::optional<Result<ZAN_Value>> answer;
  if (const Outcome begun = request.begin(); !begun) answer = begun.error();
  while (!answer) {
    answer = request.look();
    if (answer) break;
    if (tellsNews) {
      if (ZAN_Value news = newsOf(request); news != told) {
        told = std::move(news);
        console.err << jsonText(told, true) << std::flush;
      }
    } else if (request.latest().isNull() && request.hold() != held) {
      held = request.hold();
      if (!held.empty()) console.err << printable(held) << std::endl;
    }
    if (!tellsNews && request.latest().isDictionary()) show(progressLine(request.latest()));
    const timespec interval{0, static_cast<long>(CopiesRequest::kInterval * 1e9)};
    if (::sigtimedwait(&interrupts, nullptr, &interval) > 0) request.stop();
  }
  if (!shown.empty()) console.err << "\r\033[K" << std::flush;
  ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return *std::move(answer);
}

Answer versionsCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const auto wish = wishFrom("versions", arguments, home, 1);
  if (!wish) return wrongWords(wish.error());
  const auto found = performRequest(home, console, wish->reference, wish->request);
  std::string text;
  if (found && found->integer("code") == 0) {
    const bool isOfOne = !found->string("name").empty();
    ZAN_Value last;
    for (const ZAN_Value& version : (*found)["versions"].elements()) {
      std::string line = dateOf(home, version["date"]) + "  ";
      if (!isOfOne) {
        line += version.contains("files") ? counted(version.integer("files"), "file", "files") +
                                                ", " + sizeOf(version, "bytes")
                                          : version.string("folder");
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
      if (version["newest"].boolValue() && (*found)["areCopies"].boolValue())
        line += isOfOne ? "" : "  (the copies themselves)";
      text += line + '\n';
    }
    if (const auto older = found->integer("older"); older > 0)
      text += counted(older, "older folder", "older folders") +
              " in .corvana9-versions without a list, or behind one that is missing: to be looked "
              "through by hand\n";
  }
  return answerFrom(home, found, std::move(text));
}

Answer restoreCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const bool onlyLooks = arguments.flag("--dry-run");
  const bool overwrites = arguments.flag("--overwrite");
  const bool tellsNews = arguments.flag("--progress");
  const auto to = arguments.option("--to");
  constexpr std::size_t kMostPaths = 10'000;
  auto wish = wishFrom("restore", arguments, home, kMostPaths);
  if (!wish) return wrongWords(wish.error());
  // As a script may give it; it would mean the place where all came from.
  if (to && to->empty()) return wrongWords({ErrorKind::refused, "--to wants a folder"});
  if (to) {
    std::error_code failed;
    wish->request.setValue(
        "to",
        TaskRequest::pathValue(std::filesystem::absolute(*to, failed).lexically_normal().string()));
  }
  wish->request.setValue("dryRun", onlyLooks ? 1 : 0);
  wish->request.setValue("overwrite", overwrites ? 1 : 0);
  const auto found = performRequest(home, console, wish->reference, wish->request, tellsNews);
  std::string text;
  const bool hasBegun = found && (*found)["version"].isNumber() &&
                        (found->integer("filesInAll") > 0 || (*found)["failed"].size() > 1);
  if (hasBegun || (found && found->integer("code") == 0)) {
    const auto list = [&](const char* key, const std::string& before) {
      for (const ZAN_Value& path : (*found)[key].elements())
        text += before + printable(path.stringView()) + '\n';
    };
    if (onlyLooks) list("items", "would restore ");
    list("kept", onlyLooks ? "would keep under another name " : "kept what stood in the way as ");
    for (const ZAN_Value& failure : (*found)["failed"].elements())
      text += "not restored: " + printable(failure.stringView()) + '\n';
    text += (onlyLooks ? "Would restore " : "Restored ") +
            counted(found->integer("files"), "file", "files") + " (" + sizeOf(*found, "bytes") +
            ") from the version of " + dateOf(home, (*found)["version"]);
    if (found->integer("same") > 0)
      text += "; " + std::to_string(found->integer("same")) +
              (found->integer("same") == 1 ? " was there as it was then"
                                           : " were there as they were then");
    if (found->integer("unread") > 0)
      text += ", by size and date; without --dry-run the contents are compared";
    text += '\n';
  }
  return answerFrom(home, found, std::move(text));
}

Answer verifyCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const auto sample = arguments.number("--sample", 1, 100);
  const bool tellsNews = arguments.flag("--progress");
  auto wish = wishFrom("verify", arguments, home, 0);
  if (!wish) return wrongWords(wish.error());
  if (sample) wish->request.setValue("sample", *sample);
  const auto found = performRequest(home, console, wish->reference, wish->request, tellsNews);
  std::string text;
  if (found && (*found)["mismatches"].isNumber()) {
    for (const ZAN_Value& failure : (*found)["failed"].elements())
      text += printable(failure.stringView()) + '\n';
    if (found->string("unit") == "pack") {
      text +=
          counted(found->integer("files"), "pack", "packs") + " of the repository read and checked";
    } else {
      text += counted(found->integer("files"), "file was", "files were") + " read and compared (" +
              sizeOf(*found, "bytes") + ")";
    }
    if (found->integer("mismatches") == 0 && found->integer("files") > 0)
      text += "; all as it was copied";
    if (const auto unknown = found->integer("unknown"); unknown > 0)
      text += "; nothing to compare " + counted(unknown, "other file", "other files") + " with, " +
              (wish->reference == 0 ? "" : "changed at the source since and ") +
              "without a checksum so far";
    text += '\n';
  }
  return answerFrom(home, found, std::move(text));
}

Answer browseCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  const auto find = arguments.option("--find");
  auto wish = wishFrom("list", arguments, home, 1);
  if (!wish) return wrongWords(wish.error());
  if (find) wish->request.setValue("find", *find);
  const auto found = performRequest(home, console, wish->reference, wish->request);
  std::string text;
  if (found && found->integer("code") == 0) {
    for (const ZAN_Value& item : (*found)["items"].elements()) {
      std::string line = printable(item.string("name"));
      if (item.string("kind") == "folder") {
        line += "/";
      } else {
        line += "  " + sizeOf(item, "bytes") + ", " + dateOf(home, item["changed"]);
      }
      if (item.string("since") == "gone") line += ", not there any more";
      if (item.string("since") == "changed") line += ", changed since";
      text += line + '\n';
    }
    if (const auto more = found->integer("more"); more > 0)
      text += "and " + counted(more, "other", "others") + '\n';
  }
  return answerFrom(home, found, std::move(text));
}

Answer diffCommand(Arguments& arguments, const Console& console) {
  arguments.json();
  CommandHome home(console);
  constexpr std::size_t kMostPaths = 10'000;
  const auto wish = wishFrom("diff", arguments, home, kMostPaths);
  if (!wish) return wrongWords(wish.error());
  const auto found = performRequest(home, console, wish->reference, wish->request);
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
  return answerFrom(home, found, std::move(text));
}

}  // namespace corvana
