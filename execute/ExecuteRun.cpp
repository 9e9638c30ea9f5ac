#include "execute/ExecuteRun.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <utility>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "execute/Engines.h"
#include "execute/ReadBack.h"
#include "execute/VersionRequest.h"
#include "platform/Clock.h"
#include "volumes/VolumeIdentity.h"

namespace corvana {

Result<ExecuteArguments> ExecuteArguments::parse(std::span<const std::string_view> words) {
  std::array<std::int64_t, 9> numbers{};
  for (std::size_t index = 0; index < words.size() && index < numbers.size(); ++index) {
    const std::string_view word = words[index];
    if (word.empty()) continue;
    const auto [end, error] =
        std::from_chars(word.data(), word.data() + word.size(), numbers[index]);
    if (error != std::errc() || end != word.data() + word.size()) {
      return Error{ErrorKind::refused, std::string(word) + ": not a number"};
    }
  }
  ExecuteArguments result;
  if (words.size() > numbers.size()) result.request = words[numbers.size()];
  if (numbers[0] < 1 && result.request.empty())
    return Error{ErrorKind::refused, "REFERENCE: the reference of an action is wanted"};
  result.reference = numbers[0];
  result.showProgress = numbers[1] != 0;
  result.showMountMessage = numbers[2] != 0;
  result.launchedByScheduler = numbers[3] != 0;
  result.retry = static_cast<int>(numbers[4]);
  result.surveyMode = static_cast<int>(numbers[5]);
  result.estimateSize = numbers[7] != 0;
  result.setFrontProcess = numbers[8] != 0;
  return result;
}

namespace {

ExecuteEnd refusal(const Error& error) {
  ExecuteEnd end;
  end.reason = error.text;
  end.isUnreachable = error.kind == ErrorKind::unavailable;
  switch (error.kind) {
    case ErrorKind::absent:
      end.code = ExecuteCode::volumeNotFound;
      break;
    case ErrorKind::unwritable:
    case ErrorKind::unreadable:
    case ErrorKind::unavailable:
      end.code = ExecuteCode::volumeNotAvailable;
      break;
    default:
      end.code = ExecuteCode::unexpectedError;
  }
  return end;
}

std::string remedyFor(std::uint64_t deletions, std::int64_t reference) {
  return "If they are to go, \"corvana9 confirm " + std::to_string(reference) +
         "\" lets the next run delete as many as these " + std::to_string(deletions) +
         " files from what it fills";
}

constexpr double kNewsInterval = 0.02;

std::string counted(std::uint64_t files, std::uint64_t bytes) {
  return std::to_string(files) + (files == 1 ? " file, " : " files, ") + std::to_string(bytes) +
         " bytes";
}

}  // namespace

void ExecuteRun::perform(const ExecuteArguments& arguments) {
  mSurroundings.messages.setMode(arguments.surveyMode);
  if (!arguments.request.empty()) return VersionRequest(mSurroundings).perform(arguments);
  const auto* action = mSurroundings.files.tree.rootItem().actionForReference(arguments.reference);
  const ZAN_Value settings = action ? action->getSettings() : ZAN_Value();
  ExecuteRecords records(mSurroundings.files, mSurroundings.messages, mSurroundings.agentRuns,
                         arguments.reference, action ? action->getTitle() : "???");
  FolderWatch watch(mSurroundings.control);
  const Outcome there = action ? Outcome() : missing(arguments.reference);
  auto engine = there ? engineFor(settings, watch, newsFor(records)) : there.error();
  const Outcome prepared = engine ? (*engine)->prepare() : engine.error();
  if (!prepared) {
    const ExecuteEnd end =
        mSurroundings.control.endOfStop(watch.gone()).value_or(refusal(prepared.error()));
    if (!end.reason.empty()) std::cerr << end.reason << std::endl;
    return arguments.estimateSize ? records.logged(end) : records.ended(end);
  }
  arguments.estimateSize ? estimate((*engine)->sources(), records)
                         : execute(**engine, watch, settings, records);
}

Result<std::unique_ptr<Engine>> ExecuteRun::engineFor(
    const ZAN_Value& settings, FolderWatch& watch,
    std::function<void(const ExecuteProgress&)> tell) const {
  if (!ActionsTools::isExecutedByUs(settings)) {
    return Error{ErrorKind::refused, "OptionsPerformer: the action was not made for this program"};
  }
  return makeEngine({.settings = settings}, mSurroundings.host(watch, std::move(tell)));
}

EngineHost ExecuteRun::Surroundings::host(FolderWatch& watch,
                                          std::function<void(const ExecuteProgress&)> tell) const {
  return {files.store, files.tree, control, volumes, machine, watch, std::move(tell), programs};
}

/// Asked again: the volumes of the action, and what is mounted below its sources.
std::string ExecuteRun::silentVolumes(const ZAN_Value& settings) const {
  std::vector<std::string> names;
  const VolumeReference reference(mSurroundings.volumes);
  const auto ask = [&](const Mount& mount, std::string_view name) {
    if (mSurroundings.volumes.information(mount, 0)) return;
    std::string named = "\"" +
                        (name.empty() ? VolumeReference::nameOf(mount, {}) : std::string(name)) +
                        "\" (" + mount.target + ")";
    if (std::ranges::find(names, named) == names.end()) names.push_back(std::move(named));
  };
  std::vector<FolderDescription> items = ActionsTools::getSourcesForAction(settings);
  for (const Mount& mount : mSurroundings.volumes.mounts()) {
    const auto isBelow = [&](const FolderDescription& item) {
      return ZAN_FilesUtils::isBelow(mount.target, item.path());
    };
    if (mount.isForeign && std::ranges::any_of(items, isBelow)) ask(mount, {});
  }
  items.push_back(ActionsTools::getDestinationForAction(settings));
  for (const FolderDescription& item : items) {
    if (const auto mount = reference.ofPath(std::string(item.path())))
      ask(*mount, item.volumeName());
  }
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  if (text.empty()) return text;
  return (names.size() == 1 ? "The volume " + text + " does not answer"
                            : "The volumes " + text + " do not answer");
}

void ExecuteRun::recordSilence(const ExecuteArguments& arguments, double seconds, StopReason stop) {
  const auto* action = mSurroundings.files.tree.rootItem().actionForReference(arguments.reference);
  ExecuteEnd end;
  end.code = stop == StopReason::user         ? ExecuteCode::abortedByUser
             : stop == StopReason::volumeGone ? ExecuteCode::volumeGone
                                              : ExecuteCode::timeOut;
  end.reason = action ? silentVolumes(action->getSettings()) : std::string();
  if (end.reason.empty()) {
    end.reason = stop == StopReason::none
                     ? "Nothing was read or written for " +
                           ZAN_StringUtils::getDuration(static_cast<std::int64_t>(seconds))
                     : "It did not end when it was asked to, and was ended";
  }
  recordEnd(arguments, end);
}

void ExecuteRun::recordEnd(const ExecuteArguments& arguments, const ExecuteEnd& end) {
  if (!arguments.request.empty()) return VersionRequest(mSurroundings).recordEnd(arguments, end);
  const auto* action = mSurroundings.files.tree.rootItem().actionForReference(arguments.reference);
  std::cerr << end.reason << std::endl;
  ExecuteRecords records(mSurroundings.files, mSurroundings.messages, mSurroundings.agentRuns,
                         arguments.reference, action ? action->getTitle() : "???");
  if (arguments.estimateSize) return records.logged(end);
  records.takeUp();
  records.ended(end);
}

/// That it cannot be read does not mean that it is not there.
Error ExecuteRun::missing(std::int64_t reference) const {
  auto& files = mSurroundings.files.store.files();
  for (const std::string_view name : {DataFolder::kActions, DataFolder::kChanges}) {
    const auto found = files.troubles().find(mSurroundings.files.store.folder().pathOf(name));
    if (found != files.troubles().end())
      return {ErrorKind::refused, found->first + ": " + found->second.reason};
  }
  return {ErrorKind::refused, "Ref " + std::to_string(reference) + ": there is no such action"};
}

namespace {

ZAN_Value listOf(const std::vector<std::string>& texts) {
  ZAN_Value list = ZAN_Value::array();
  for (const auto& text : texts) list.append(text);
  return list;
}

/// One kind of what a run would do.
struct PlannedPart {
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  ZAN_Value items = ZAN_Value::array();

  void add(const PlannedItem& planned, std::size_t most) {
    if (!planned.path.ends_with('/')) ++files;
    bytes += planned.size;
    if (items.size() < most)
      items.append(ZAN_Value::dictionary({{"path", planned.path}, {"bytes", planned.size}}));
  }
  ZAN_Value toValue() const {
    return ZAN_Value::dictionary({{"files", files}, {"bytes", bytes}, {"items", items}});
  }
};

}  // namespace

ZAN_Value ExecuteRun::plan(std::int64_t reference, std::size_t most) {
  const auto* action = mSurroundings.files.tree.rootItem().actionForReference(reference);
  const ZAN_Value settings = action ? action->getSettings() : ZAN_Value();
  ZAN_Value answer = ZAN_Value::dictionary({{"reference", reference}, {"possible", false}});
  if (!action) {
    answer.setValue("reason", std::to_string(reference) + ": no action has this reference");
    return answer;
  }
  answer.setValue("title", action->getTitle());
  FolderWatch watch(mSurroundings.control);
  auto engine = engineFor(settings, watch, {});
  const Outcome prepared = engine ? (*engine)->prepare() : engine.error();
  if (!prepared) {
    answer.setValue("reason", prepared.error().text);
    return answer;
  }
  std::array<PlannedPart, 4> parts;
  const ExecuteEnd end = (*engine)->plan([&](const PlannedItem& planned) {
    parts.at(static_cast<std::size_t>(planned.kind)).add(planned, most);
  });
  answer.setValue("possible", end.isExecuted());
  if (!end.reason.empty()) answer.setValue("reason", end.reason);
  constexpr std::array<const char*, 4> kNames{"copy", "replace", "change", "delete"};
  for (std::size_t i = 0; i < parts.size(); ++i) answer.setValue(kNames[i], parts[i].toValue());
  answer.setValue("missing", listOf(end.errorTexts));
  answer.setValue("exclusions", listOf(end.patterns));
  answer.setValue("losses", listOf(end.losses));
  answer.setValue("toConfirm", end.toConfirm);
  return answer;
}

void ExecuteRun::estimate(const std::vector<std::string>& sources, ExecuteRecords& records) {
  namespace fs = std::filesystem;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  const auto count = [&](const fs::directory_entry& entry) {
    std::error_code failed;
    if (entry.is_symlink(failed) || !entry.is_regular_file(failed)) return;
    const auto size = entry.file_size(failed);
    if (failed) return;
    ++files;
    bytes += size;
  };
  for (const auto& source : sources) {
    std::error_code failed;
    count(fs::directory_entry(source, failed));
    fs::recursive_directory_iterator walk(source, fs::directory_options::skip_permission_denied,
                                          failed);
    while (!failed && walk != fs::recursive_directory_iterator() &&
           mSurroundings.control.stopReason() == StopReason::none) {
      count(*walk);
      walk.increment(failed);
    }
  }
  if (const auto stopped = mSurroundings.control.endOfStop({})) return records.logged(*stopped);
  records.estimated(files, bytes);
  std::cout << "To copy: " << counted(files, bytes) << std::endl;
}

/// Hands on how far the run is.
std::function<void(const ExecuteProgress&)> ExecuteRun::newsFor(ExecuteRecords& records) const {
  return [&records, &messages = mSurroundings.messages,
          &clock = std::as_const(mSurroundings.files.store.clock()), next = 0.0,
          lastPath = std::string()](const ExecuteProgress& progress) mutable {
    if (progress.currentPath != lastPath) {
      lastPath = progress.currentPath;
      if (messages.mode() == ExecuteMessages::veryDetailed) std::cout << lastPath << std::endl;
    }
    // A tree of small files brings news thousands of times a second.
    const double now = clock.monotonic();
    if (now < next) return;
    next = now + kNewsInterval;
    messages.postProgress(progress, false);
    if (!lastPath.empty()) records.workingOn(lastPath);
  };
}

void ExecuteRun::execute(Engine& engine, FolderWatch& watch, const ZAN_Value& settings,
                         ExecuteRecords& records) {
  records.began();
  records.workingOn(engine.sources().front());
  const bool isFirst =
      !settings["LastExecutionDate"].asDate() || settings.integer(CopyKey::isNew) != 0;
  ExecuteEnd end = engine.run();
  if (end.isExecuted()) {
    if (const Outcome forgotten = engine.forget(); !forgotten) {
      end.code = ExecuteCode::completedWithErrors;
      ++end.errors;
      end.errorTexts.push_back(forgotten.error().text);
    }
    ReadBack(engine, mSurroundings.files, watch)
        .afterRun(settings, isFirst, mSurroundings.volumes, mSurroundings.control, end);
  }
  if (end.isReadBack) std::cout << "The first backup is there and was read back" << std::endl;
  if (end.toConfirm > 0 && !end.reason.empty())
    end.reason += ". " + remedyFor(end.toConfirm, settings.integer("Ref"));
  mSurroundings.messages.postProgress(end.progress, true);
  for (const auto& text : end.errorTexts) std::cerr << text << '\n';
  if (!end.reason.empty()) std::cerr << end.reason << std::endl;
  std::cout << counted(end.progress.filesCopied, end.progress.sizeCopied) << " copied, "
            << end.filesReplaced << " replaced, " << end.filesDeleted << " deleted, " << end.errors
            << " errors" << std::endl;
  records.ended(end);
}

}  // namespace corvana
