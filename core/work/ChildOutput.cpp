#include "core/work/ChildOutput.h"

#include <utility>

namespace corvana {

std::string ChildOutput::append(std::string_view data) {
  std::string completed;
  for (const char c : data) {
    if (c == '\n') {
      complete(completed);
      continue;
    }
    mUnfinished += c;
    if (mUnfinished.size() >= kMaximumLineLength) complete(completed);
  }
  return completed;
}

std::string ChildOutput::finish() {
  std::string completed;
  if (!mUnfinished.empty()) complete(completed);
  return completed;
}

void ChildOutput::clear() {
  mLines.clear();
  mUnfinished.clear();
}

void ChildOutput::complete(std::string& completed) {
  if (!completed.empty()) completed += '\n';
  completed += mUnfinished;
  mLines.push_back(std::exchange(mUnfinished, {}));
  if (mLines.size() > kMaximumLines) mLines.pop_front();
}

}  // namespace corvana
