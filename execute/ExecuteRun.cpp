#include "execute/ExecuteRun.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <iostream>
#include <utility>

#include "actions/ActionStore.h"
#include "actions/ActionTree.h"
#include "actions/ActionsTools.h"
#include "execute/Rsync.h"

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
  if (numbers[0] < 1)
    return Error{ErrorKind::refused, "REFERENCE: the reference of an action is wanted"};
  ExecuteArguments result;
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
  switch (error.kind) {
    case ErrorKind::absent:
      end.code = ExecuteCode::volumeNotFound;
      break;
    case ErrorKind::unwritable:
    case ErrorKind::unreadable:
      end.code = ExecuteCode::volumeNotAvailable;
      break;
    default:
      end.code = ExecuteCode::unexpectedError;
  }
  return end;
}

// rsync's exit codes: 23 some files could not be transferred, 24 some vanished while they were
// read, 30 and 35 time-outs.
ExecuteCode codeOf(const RsyncProcess::End& end, std::uint64_t errors) {
  if (!end.signalled && (end.status == 0 || end.status == 24)) {
    return errors == 0 ? ExecuteCode::completed : ExecuteCode::completedWithErrors;
  }
  if (!end.signalled && end.status == 23) return ExecuteCode::completedWithErrors;
  if (!end.signalled && (end.status == 30 || end.status == 35)) return ExecuteCode::timeOut;
  return ExecuteCode::unexpectedError;
}

std::string counted(std::uint64_t files, std::uint64_t bytes) {
  return std::to_string(files) + (files == 1 ? " file, " : " files, ") + std::to_string(bytes) +
         " bytes";
}

}  // namespace

VolumeGuard ExecuteRun::guardFor(const ZAN_Value& settings) const {
  return VolumeGuard(mSurroundings.volumes, ActionsTools::toleratesOtherVolumes(settings));
}

void ExecuteRun::perform(const ExecuteArguments& arguments) {
  mSurroundings.messages.setMode(arguments.surveyMode);
  const auto* action = mSurroundings.files.tree.rootItem().actionForReference(arguments.reference);
  const ZAN_Value settings = action ? action->getSettings() : ZAN_Value();
  ExecuteRecords records(mSurroundings.files, mSurroundings.messages, mSurroundings.agentRuns,
                         arguments.reference, action ? action->getTitle() : "???");
  const auto plan = action ? CopyPlan::fromSettings(settings, guardFor(settings))
                           : Result<CopyPlan>(Error{ErrorKind::refused,
                                                    "Ref " + std::to_string(arguments.reference) +
                                                        ": there is no such action"});
  if (!plan) {
    std::cerr << plan.error().text << std::endl;
    const ExecuteEnd end = refusal(plan.error());
    return arguments.estimateSize ? records.logged(end) : records.ended(end);
  }
  arguments.estimateSize ? estimate(*plan, records) : execute(*plan, settings, records);
}

void ExecuteRun::estimate(const CopyPlan& plan, ExecuteRecords& records) {
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
  for (const auto& source : plan.sources()) {
    std::error_code failed;
    count(fs::directory_entry(source.path, failed));
    fs::recursive_directory_iterator walk(source.path,
                                          fs::directory_options::skip_permission_denied, failed);
    while (!failed && walk != fs::recursive_directory_iterator() &&
           mSurroundings.control.stopReason() == StopReason::none) {
      count(*walk);
      walk.increment(failed);
    }
  }
  if (mSurroundings.control.stopReason() != StopReason::none) {
    ExecuteEnd end;
    end.code = ExecuteCode::abortedByUser;
    return records.logged(end);
  }
  records.estimated(files, bytes);
  std::cout << "To copy: " << counted(files, bytes) << std::endl;
}

void ExecuteRun::execute(const CopyPlan& plan, const ZAN_Value& settings, ExecuteRecords& records) {
  records.began();
  records.workingOn(plan.sources().front().path);
  const ExecuteEnd end = copy(plan, settings, records);
  for (const auto& text : end.errorTexts) std::cerr << text << '\n';
  if (!end.reason.empty()) std::cerr << end.reason << std::endl;
  records.ended(end);
}

ExecuteEnd ExecuteRun::copy(const CopyPlan& plan, const ZAN_Value& settings,
                            ExecuteRecords& records) {
  ExecuteEnd end;
  if (const Outcome made = plan.createDestination(); !made) return refusal(made.error());

  ExecuteControl& control = mSurroundings.control;
  ExecuteMessages::Progress progress;
  std::uint64_t filesBefore = 0;
  std::uint64_t bytesBefore = 0;
  while (true) {
    RsyncOutput output;
    const auto tell = [&](bool last) {
      if (!output.currentItem().empty()) {
        std::string path = plan.sourcePathOf(output.currentItem());
        if (path != progress.currentPath &&
            mSurroundings.messages.mode() == ExecuteMessages::veryDetailed)
          std::cout << path << std::endl;
        progress.currentPath = std::move(path);
      }
      progress.value = std::max(progress.value, output.progress());
      progress.filesCopied = filesBefore + output.filesCopied();
      progress.sizeCopied = bytesBefore + output.bytesCopied();
      progress.errors = output.errorCount();
      mSurroundings.messages.postProgress(progress, last);
      if (!progress.currentPath.empty()) records.workingOn(progress.currentPath);
    };
    const auto run = RsyncProcess::run(plan.arguments(mSurroundings.rsync, end.skipped), control,
                                       output, [&] { tell(false); });
    tell(true);
    end.errors = output.errorCount();
    end.errorTexts = output.errors();
    end.firstErrorPath = output.firstErrorPath();
    end.lastErrorPath = output.lastErrorPath();
    if (!run) {
      end.code = ExecuteCode::unexpectedError;
      end.reason = run.error().text;
      return end;
    }
    if (control.stopReason() != StopReason::none) {
      end.code = control.stopReason() == StopReason::user ? ExecuteCode::abortedByUser
                                                          : ExecuteCode::volumeGone;
      return end;
    }
    if (run->skipWanted && !output.currentItem().empty()) {
      // What is done stays done, so going on costs one more look at the tree.
      end.skipped.push_back(output.currentItem());
      filesBefore += output.filesCopied();
      bytesBefore += output.bytesCopied();
      continue;
    }
    end.code = codeOf(*run, end.errors);
    if (end.code == ExecuteCode::completedWithErrors)
      end.errors = std::max<std::uint64_t>(end.errors, 1);
    if (end.code == ExecuteCode::unexpectedError) {
      end.reason = run->signalled ? "rsync: ended by signal " + std::to_string(run->status)
                                  : "rsync: ended with " + std::to_string(run->status);
      // A disk that was pulled out fails in many ways; what counts is that it is gone.
      if (const auto again = CopyPlan::fromSettings(settings, guardFor(settings));
          !again && again.error().kind == ErrorKind::absent) {
        end.code = ExecuteCode::volumeGone;
        end.reason = again.error().text;
      }
    }
    std::cout << counted(progress.filesCopied, progress.sizeCopied) << " copied, "
              << output.itemsDeleted() << " deleted, " << end.errors << " errors" << std::endl;
    return end;
  }
}

}  // namespace corvana
