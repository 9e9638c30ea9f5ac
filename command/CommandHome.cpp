#include "command/CommandHome.h"

#include <ostream>

namespace corvana {

CommandHome::CommandHome(const Console& console)
    : mLog(console.err),
      mStore(mClock, mMachine, mLog),
      mTree(mStore.tree(), mClock, mLog, mTexts),
      mTools(ZAN_DateUtils(mMachine.timeZoneName(), mMachine.regionName()), mClock.now()) {}

bool CommandHome::isThere() const {
  return ZAN_FilesUtils::isFolder(DataFolder(mMachine.homeFolder()).pathOf(""));
}

std::string CommandHome::dateText(ReferenceTime date) const {
  return calendar().format(date, "%a %Y-%m-%d %H:%M");
}

void CommandHome::ConsoleLog::write(const std::string& line) {
  mOut << "corvana9: " << printable(line) << '\n';
}

std::string printable(std::string_view text) {
  std::string result(text);
  for (char& letter : result) {
    if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7f') letter = ' ';
  }
  return result;
}

}  // namespace corvana
