#include "platform/KeyringTool.h"

#include "ZANCocoaFramework/ZAN_FilesUtils.h"

namespace corvana {

namespace {

constexpr const char* kTool = "/usr/bin/secret-tool";

std::vector<std::string> with(std::vector<std::string> words,
                              const KeyringTool::Attributes& attributes) {
  words.insert(words.end(), {"application", "corvana9"});
  words.insert(words.end(), attributes.begin(), attributes.end());
  return words;
}

}  // namespace

bool KeyringTool::isThere() { return ZAN_FilesUtils::exists(kTool); }

std::vector<std::string> KeyringTool::lookUp(const Attributes& attributes) {
  return with({kTool, "lookup"}, attributes);
}

std::vector<std::string> KeyringTool::store(const Attributes& attributes, const std::string& name,
                                            const std::string& file) {
  return with(
      {"/bin/sh", "-c", "exec \"$@\" < \"$0\"", file, kTool, "store", "--label=Corvana 9: " + name},
      attributes);
}

}  // namespace corvana
