#include "companion/Commands.h"

namespace corvana {

int dumpCommand(Arguments& arguments, const Console& console) {
  arguments.flag("--mask");
  const auto words = arguments.words(1, 1);
  if (!words) return wrongWords(console, words.error());
  return failed(console, {ErrorKind::unavailable, (*words)[0] + ": cannot be shown yet"});
}

}  // namespace corvana
