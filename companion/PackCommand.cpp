#include "companion/Commands.h"

namespace corvana {

int packCommand(Arguments& arguments, const Console& console) {
  const auto words = arguments.words(2, 2);
  if (!words) return wrongWords(console, words.error());
  return failed(console, {ErrorKind::unavailable, (*words)[1] + ": cannot be written yet"});
}

}  // namespace corvana
