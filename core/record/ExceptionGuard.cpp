#include "core/record/ExceptionGuard.h"

#include <cxxabi.h>

#include <cstdlib>
#include <typeinfo>

#include "ZANCocoaFramework/ZAN_StringUtils.h"
#include "platform/Machine.h"

namespace corvana {

std::string ExceptionGuard::nameOf(const std::exception& exception) {
  const char* const name = typeid(exception).name();
  const std::unique_ptr<char, decltype(&std::free)> readable(
      abi::__cxa_demangle(name, nullptr, nullptr, nullptr), &std::free);
  return readable ? readable.get() : name;
}

void ExceptionGuard::tell(const std::exception& exception) {
  constexpr std::size_t kMost = 100;
  const std::string line = ZAN_StringUtils::format("Exception in Corvana 9 Scheduler: %@: %@",
                                                   {nameOf(exception), exception.what()});
  if (mTold.size() < kMost && mTold.insert(line).second) mLog.write(line);
}

}  // namespace corvana
