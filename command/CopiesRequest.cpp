#include "command/CopiesRequest.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <system_error>
#include <utility>

#include "ZANCocoaFramework/ZAN_Json.h"
#include "actions/TaskRequest.h"
#include "command/RunningAgent.h"
#include "platform/linux/Spawn.h"

namespace corvana {

namespace {

constexpr std::size_t kLongestAnswer = 64 << 20;
constexpr double kBetweenLooksAtTheAgent = 1;
/// So long an agent may take to see the end of an execution that is done.
constexpr double kPatienceForTheEnd = 10;
constexpr double kBetweenLooksAtTheEnd = 0.1;
/// An agent that restarts itself is away for so many looks.
constexpr int kMostLooksWithoutAgent = 10;

}  // namespace

CopiesRequest::CopiesRequest(CommandHome& home, std::int64_t reference, ZAN_Value request)
    : mHome(home),
      mReference(reference),
      mRequest(std::move(request)),
      mName(TaskRequest::nameFor(reference, ::getpid(), home.store().clock().now())),
      mFile(TaskRequest::pathIn(home.store().folder().hiddenFolderPath(), mName)) {}

CopiesRequest::~CopiesRequest() = default;

bool CopiesRequest::isForAgent() const {
  return mReference > 0 && TaskRequest::isTask(mRequest.string("kind")) &&
         !mRequest["dryRun"].boolValue();
}

Outcome CopiesRequest::begin() {
  // Without the action there is nothing for the agent to do, and the program below says why.
  if (isForAgent() && mHome.tree().rootItem().actionForReference(mReference) != nullptr) {
    auto agent = std::make_unique<RunningAgent>(mHome);
    if (agent->presence() == RunningAgent::Presence::silent)
      return Error{ErrorKind::unavailable, agent->absence()};
    if (agent->answers()) mAgent = std::move(agent);
  }
  if (const Outcome written = write(); !written) return written;
  const Outcome begun = mAgent ? beginByAgent() : beginByItself();
  std::error_code failed;
  if (!begun) std::filesystem::remove(mFile, failed);
  return begun;
}

Outcome CopiesRequest::write() {
  std::error_code failed;
  std::filesystem::create_directories(std::filesystem::path(mFile).parent_path(), failed);
  auto text = ZAN_Json::jsonWithValue(mRequest, {.compact = true, .plain = true});
  if (!text) return text.error();
  return ZAN_FilesUtils::appendToFile(mFile, *text, false);
}

Outcome CopiesRequest::beginByAgent() {
  return mAgent->client().post(
      {kAgentName, "LaunchAction",
       ZAN_Value::dictionary({{"Ref", mReference},
                              {"EstimateSize", 1},
                              {TaskRequest::kTaskKey, mRequest.string("kind")},
                              {TaskRequest::kFileKey, mName}})});
}

Outcome CopiesRequest::beginByItself() {
  const std::string program = mHome.executeProgram();
  if (program.empty())
    return Error{ErrorKind::absent, "the execute program is not installed beside this command"};
  const auto child = spawn(
      {program, std::to_string(mReference), "0", "0", "0", "0", "0", "", "0", "0", mFile}, {});
  if (!child) return child.error();
  mChild = *child;
  return {};
}

std::optional<Result<ZAN_Value>> CopiesRequest::look() {
  readAnswer();
  if (mLatest["done"].boolValue()) {
    if (isStillSeen()) return std::nullopt;
    return finished();
  }
  if (mChild) {
    int status = 0;
    if (::waitpid(*mChild, &status, WNOHANG) == 0) return std::nullopt;
    mChild.reset();
    return finished();
  }
  const double now = mHome.store().clock().monotonic();
  if (now < mNextLook) return std::nullopt;
  mNextLook = now + kBetweenLooksAtTheAgent;
  auto ended = endSeenByAgent();
  if (!ended) return std::nullopt;
  // It ended between two looks.
  readAnswer();
  if (mLatest["done"].boolValue()) return finished();
  std::error_code failed;
  std::filesystem::remove(mFile, failed);
  std::filesystem::remove(TaskRequest::answerOf(mFile), failed);
  return std::optional<Result<ZAN_Value>>(std::in_place, *std::move(ended));
}

/// Whether the agent would still say that it is executed, which whoever has the answer would read.
bool CopiesRequest::isStillSeen() {
  if (!mAgent) return false;
  const double now = mHome.store().clock().monotonic();
  if (!mDoneSince) mDoneSince = mNextLook = now;
  if (now - *mDoneSince > kPatienceForTheEnd) return false;
  if (now < mNextLook) return true;
  mNextLook = now + kBetweenLooksAtTheEnd;
  mAgent->refresh();
  return mAgent->answers() && mAgent->status()["current"].string("request") == mName;
}

/// That nobody works on it any more, by what the agent says.
std::optional<Error> CopiesRequest::endSeenByAgent() {
  mAgent->refresh();
  const auto queue = mAgent->answers() ? mAgent->client().queue()
                                       : Result<ZAN_Value>(Error{ErrorKind::absent, {}});
  if (!queue) {
    // The execute program goes on without it.
    if (!mAgent->executeRuns() && ++mLooksWithoutAgent > kMostLooksWithoutAgent)
      return Error{ErrorKind::unavailable, "the agent has ended meanwhile"};
    return std::nullopt;
  }
  mLooksWithoutAgent = 0;
  const auto records = queue->elements();
  const bool isQueued = std::ranges::any_of(
      records, [&](const ZAN_Value& record) { return record.string("request") == mName; });
  const ZAN_Value& status = mAgent->status();
  const ZAN_Value& current = status["current"];
  mHold.clear();
  if (isQueued && current.string("request") != mName) {
    if (status["hold"].isDictionary()) mHold = status["hold"].string("text");
    if (current.isDictionary()) mHold = "waits until \"" + current.string("title") + "\" has ended";
  }
  if (isQueued) {
    mWasQueued = true;
    return std::nullopt;
  }
  // One that a restarted agent no longer has goes on as long as its program does.
  if (mAgent->executeRuns() && !mLatest.isNull()) return std::nullopt;
  if (mWasQueued || !mLatest.isNull())
    return Error{ErrorKind::unavailable, "it ended before it was done; corvana9 log may say why"};
  return Error{ErrorKind::refused, "the agent has not taken it; see corvana9 status"};
}

void CopiesRequest::stop() {
  std::error_code failed;
  if (mChild) {
    ::kill(*mChild, SIGTERM);
  } else if (mAgent && mLatest.isNull()) {
    // The agent takes what has no file any more out of its queue.
    std::filesystem::remove(mFile, failed);
  } else if (mAgent) {
    (void)mAgent->client().post({kExecuteName, "ActionStop", {}});
  }
}

void CopiesRequest::readAnswer() {
  const auto text = ZAN_FilesUtils::readBeginning(TaskRequest::answerOf(mFile), kLongestAnswer);
  if (!text) return;
  if (auto answer = ZAN_Json::valueWithJson(*text)) mLatest = *std::move(answer);
}

Result<ZAN_Value> CopiesRequest::finished() {
  readAnswer();
  if (mChild) {
    int status = 0;
    ::waitpid(*mChild, &status, 0);
    mChild.reset();
  }
  std::error_code failed;
  std::filesystem::remove(mFile, failed);
  std::filesystem::remove(TaskRequest::answerOf(mFile), failed);
  if (!mLatest["done"].boolValue())
    return Error{ErrorKind::unavailable, "the execute program ended before it was done"};
  return mLatest;
}

}  // namespace corvana
