// The commands for data files: dump shows one as JSON, pack writes one from JSON.

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "command/Commands.h"

namespace corvana {

namespace {

/// Told apart by content alone.
Result<ZAN_Value> valueOf(std::string_view contents) {
  const auto bytes = std::as_bytes(std::span(contents.data(), contents.size()));
  if (ZAN_Unarchiver::isArchive(bytes)) return ZAN_Unarchiver::unarchiveObjectWithData(bytes);
  if (ZAN_PropertyList::isPropertyList(bytes)) {
    auto list = ZAN_PropertyList::propertyListWithData(bytes);
    if (!list || !ZAN_KeyedUnarchiver::isKeyedArchive(*list)) return list;
    return ZAN_KeyedUnarchiver::unarchiveObject(*list);
  }
  if (contents.empty()) return Error{ErrorKind::damaged, "the file is empty"};
  return Error{ErrorKind::damaged, "neither an archive nor a property list"};
}

Error about(const std::string& path, const Error& error) {
  return {error.kind, path + ": " + error.text};
}

}  // namespace

Answer dumpCommand(Arguments& arguments, const Console&) {
  ZAN_Json::Options options;
  options.maskPasswords = arguments.flag("--mask");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(words.error());
  const std::string& path = words->front();
  const auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return file.error();
  const auto value = valueOf(file->bytes);
  if (!value) return about(path, value.error());
  auto json = ZAN_Json::jsonWithValue(*value, options);
  if (!json) return about(path, json.error());
  return Answer::ofText(*std::move(json) + '\n');
}

Answer packCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 2);
  if (!words) return wrongWords(words.error());
  const std::string& source = words->front();
  const std::string& target = words->back();
  std::string text;
  if (source == "-") {
    text = *readText(source, console);
  } else {
    auto file = ZAN_FilesUtils::readFile(source);
    if (!file) return file.error();
    text = std::move(file->bytes);
  }
  const auto value = ZAN_Json::valueWithJson(text);
  if (!value) return about(source, value.error());
  const auto bytes = ZAN_Archiver::archivedDataWithRootObject(*value);
  // A file that nobody could read again must not take the place of a good one.
  if (const auto check = ZAN_Unarchiver::unarchiveObjectWithData(bytes); !check)
    return about(source, {check.error().kind, "cannot be archived: " + check.error().text});
  if (const auto written = ZAN_FileWriter({}).write(target, bytes, ZAN_FileWriter::Options());
      !written)
    return written.error();
  return {};
}

}  // namespace corvana
