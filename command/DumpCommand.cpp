#include <ostream>
#include <span>

#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_KeyedUnarchiver.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"
#include "ZANCocoaFramework/ZAN_Unarchiver.h"
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

}  // namespace

int dumpCommand(Arguments& arguments, const Console& console) {
  ZAN_Json::Options options;
  options.maskPasswords = arguments.flag("--mask");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(console, words.error());
  const std::string& path = words->front();
  const auto refuse = [&](const Error& error) {
    return failed(console, {error.kind, path + ": " + error.text});
  };

  const auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return failed(console, file.error());
  const auto value = valueOf(file->bytes);
  if (!value) return refuse(value.error());
  const auto json = ZAN_Json::jsonWithValue(*value, options);
  if (!json) return refuse(json.error());
  console.out << *json << '\n';
  return kDone;
}

}  // namespace corvana
