#include "ZANCocoaFramework/ZAN_JsonReader.h"

#include <algorithm>
#include <unordered_set>

#include "ZANCocoaFramework/ZAN_ArchiveTypes.h"

namespace corvana {

namespace {

/// Lists within lists while the text is read; a value that is itself an archive may nest anew.
constexpr std::size_t kOpenLimit = 2048;
/// A scalar is an object too, so a list of this depth is as deep as an archive may be.
constexpr int kDepthLimit = archive::kDepthLimit - 1;

}  // namespace

bool ZAN_JsonBuilder::fail(std::string reason, ErrorKind kind) {
  if (!mError) mError = Error{kind, std::move(reason)};
  return false;
}

bool ZAN_JsonBuilder::addScalar(ZAN_Value value) { return add(std::move(value), 0); }

bool ZAN_JsonBuilder::openList(bool isObject) {
  if (mOpen.size() == kOpenLimit) return fail("nested too deeply", ErrorKind::limit);
  mOpen.emplace_back().isObject = isObject;
  return true;
}

bool ZAN_JsonBuilder::addKey(std::string key) {
  mOpen.back().entries.push_back({ZAN_Value(key), {}});
  return true;
}

bool ZAN_JsonBuilder::add(ZAN_Value value, int depth) {
  if (depth > kDepthLimit) return fail("nested too deeply", ErrorKind::limit);
  if (mOpen.empty()) {
    mRoot = std::move(value);
    return true;
  }
  Frame& frame = mOpen.back();
  frame.depth = std::max(frame.depth, depth + 1);
  if (frame.isObject) {
    frame.entries.back().value = std::move(value);
  } else {
    frame.elements.push_back(std::move(value));
  }
  return true;
}

bool ZAN_JsonBuilder::closeList() {
  Frame frame = std::move(mOpen.back());
  mOpen.pop_back();
  int depth = frame.depth;
  if (!frame.isObject) return add(ZAN_Value::array(std::move(frame.elements)), depth);

  std::unordered_set<std::string_view> keys;
  bool isForm = false;
  for (const ZAN_Value::Entry& entry : frame.entries) {
    if (!keys.insert(entry.key.stringView()).second) {
      return fail("\"" + entry.key.string() + "\" stands twice in one object");
    }
    isForm = isForm || entry.key.stringView().starts_with('$');
  }
  if (!isForm) return add(ZAN_Value::dictionaryOf(std::move(frame.entries)), depth);
  auto value = formOf(frame, depth);
  return value ? add(std::move(*value), depth) : false;
}

std::optional<ZAN_Value> ZAN_JsonBuilder::formOf(const Frame& frame, int& depth) {
  const std::string_view key = frame.entries[0].key.stringView();
  const bool typed =
      key == "$number" && frame.entries.size() == 2 && frame.entries[1].key.stringView() == "type";
  std::optional<ZAN_Value> value;
  if (frame.entries.size() == 1 || typed) {
    value =
        valueOfJsonForm(key, frame.entries[0].value, typed ? frame.entries[1].value : ZAN_Value());
  }
  if (!value) fail("an object with \"" + std::string(key) + "\" that is none of the known forms");
  // Data is a scalar whatever it holds.
  if (key == "$archive") depth = 0;
  return value;
}

}  // namespace corvana
