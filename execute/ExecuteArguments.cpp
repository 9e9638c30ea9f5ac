#include "execute/ExecuteArguments.h"

#include <array>
#include <charconv>
#include <string>

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

}  // namespace corvana
