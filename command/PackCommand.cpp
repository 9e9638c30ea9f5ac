#include <istream>
#include <iterator>

#include "ZANCocoaFramework/ZAN_Archiver.h"
#include "ZANCocoaFramework/ZAN_FileWriter.h"
#include "ZANCocoaFramework/ZAN_FilesUtils.h"
#include "ZANCocoaFramework/ZAN_Json.h"
#include "ZANCocoaFramework/ZAN_Unarchiver.h"
#include "command/Commands.h"

namespace corvana {

namespace {

Result<std::string> readText(const std::string& path, const Console& console) {
  if (path == "-") return std::string(std::istreambuf_iterator<char>(console.in), {});
  auto file = ZAN_FilesUtils::readFile(path);
  if (!file) return file.error();
  return std::move(file->bytes);
}

}  // namespace

int packCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 2);
  if (!words) return wrongWords(console, words.error());
  const std::string& source = words->front();
  const std::string& target = words->back();

  const auto text = readText(source, console);
  if (!text) return failed(console, text.error());
  const auto value = ZAN_Json::valueWithJson(*text);
  if (!value) return failed(console, {value.error().kind, source + ": " + value.error().text});
  const auto bytes = ZAN_Archiver::archivedDataWithRootObject(*value);
  // A file that nobody could read again must not take the place of a good one.
  if (const auto check = ZAN_Unarchiver::unarchiveObjectWithData(bytes); !check) {
    return failed(console,
                  {check.error().kind, source + ": cannot be archived: " + check.error().text});
  }
  const auto written = ZAN_FileWriter({}).write(target, bytes, ZAN_FileWriter::Options());
  return written ? kDone : failed(console, written.error());
}

}  // namespace corvana
