#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_Value.h"

namespace corvana {

/// Something else than a run that is wanted of the copies of an action: a file of JSON that
/// whoever wants it puts into the hidden folder, under a name of its own, and the one in which the
/// execute program answers while it goes on. The agent launches it by that name; no run takes a
/// request that is not named to it.
struct TaskRequest {
  TaskRequest() = delete;

  /// Of the tasks that change or occupy something, and so are launched, queued and recorded.
  static constexpr std::string_view kRestore = "restore";
  static constexpr std::string_view kVerify = "verify";
  static bool isTask(std::string_view word) { return word == kRestore || word == kVerify; }

  /// Of a message to the agent, a record of its queue, an entry of history or log: one of the
  /// words above; missing for a run.
  static constexpr std::string_view kTaskKey = "Task";
  /// Of the message and the record: the name of the file.
  static constexpr std::string_view kFileKey = "Request";

  /// A name that nobody else uses.
  static std::string nameFor(std::int64_t reference, std::int64_t pid, ReferenceTime now) {
    return std::string(kPrefix) + std::to_string(reference) + " " + std::to_string(pid) + " " +
           std::to_string(static_cast<std::int64_t>(now * 1e6)) + std::string(kSuffix);
  }
  /// Whether it is such a name, and leads nowhere else.
  static bool isName(std::string_view name) {
    return name.starts_with(kPrefix) && name.ends_with(kSuffix) &&
           name.find('/') == std::string_view::npos;
  }
  /// Whether it is the name of a request or of its answer.
  static bool isOfRequest(std::string_view name) {
    return name.starts_with(kPrefix) && name.find(kSuffix) != std::string_view::npos;
  }
  static std::string pathIn(const std::string& hiddenFolder, std::string_view name) {
    return ZAN_FilesUtils::joinedPath(hiddenFolder, name);
  }
  static std::string answerOf(const std::string& path) { return path + ".answer"; }

  /// A path as a request names it: JSON has Unicode alone, so that other bytes are data.
  static ZAN_Value pathValue(const std::string& path) {
    return isUtf8(path) ? ZAN_Value(path) : ZAN_Value::data(path);
  }
  static std::string pathFrom(const ZAN_Value& value) {
    if (!value.isData()) return value.string();
    const auto bytes = value.bytes();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

 private:
  static constexpr std::string_view kPrefix = "Request ";
  static constexpr std::string_view kSuffix = ".json";
};

}  // namespace corvana
