// Objects of classes that have no value of their own: read whatever they hold.

#include "ZANCocoaFramework/ZAN_ArchiveDecoder.h"
#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

using archive::Type;

bool ZAN_ArchiveDecoder::charge(std::size_t bytes) {
  if (bytes > mBudget) {
    return mStream.fail("objects of unknown classes need too much memory", ErrorKind::limit);
  }
  mBudget -= bytes;
  return true;
}

bool ZAN_ArchiveDecoder::readOpaque(std::int32_t classIndex, ZAN_Value& into) {
  auto opaque = std::make_shared<ZAN_Opaque>();
  for (std::int32_t i = classIndex; i >= 0; i = mClasses[static_cast<std::size_t>(i)].super) {
    const ClassEntry& entry = mClasses[static_cast<std::size_t>(i)];
    const std::string_view name = mStream.shared(entry.name).bytes;
    if (!charge(sizeof(ZAN_Opaque::ClassName) + name.size())) return false;
    opaque->classes.push_back({std::string(name), entry.version});
  }
  while (!mStream.takeIf(archive::kEnd)) {
    std::int32_t string = 0;
    const std::vector<Type>* types = nullptr;
    if (!mStream.readShared(string)) return false;
    if (string == ZAN_ArchiveStream::kNoString) return mStream.fail("values without a type");
    if (!mStream.parsedTypes(string, types)) return false;
    std::uint64_t count = 0;
    for (const Type& type : *types) count += type.leaves();
    if (count > mStream.remaining() + 1) return mStream.fail("the data is cut short");
    const std::string_view text = mStream.shared(string).bytes;
    if (!charge(sizeof(ZAN_Opaque::Group) + text.size() + count * sizeof(ZAN_Value))) return false;
    // Leaves must not move while they are read: references remember where they are.
    auto& group = opaque->groups.emplace_back(ZAN_Opaque::Group{std::string(text), {}});
    group.leaves.reserve(count);
    for (const Type& type : *types) {
      if (!readLeaves(type, group.leaves)) return false;
    }
  }
  into = ZAN_Value::opaque(std::move(opaque));
  return true;
}

bool ZAN_ArchiveDecoder::readLeaves(const Type& type, std::vector<ZAN_Value>& leaves) {
  if (type.isBytes()) {
    std::string_view bytes;
    if (!mStream.readBytes(type.count, bytes)) return false;
    leaves.push_back(ZAN_Value::data(bytes));
    return true;
  }
  if (type.code != '[' && type.code != '{') return readLeaf(type.code, leaves.emplace_back());
  const std::uint32_t times = type.code == '[' ? type.count : 1;
  for (std::uint32_t i = 0; i < times; ++i) {
    for (const Type& part : type.parts) {
      if (!readLeaves(part, leaves)) return false;
    }
  }
  return true;
}

bool ZAN_ArchiveDecoder::readLeaf(char code, ZAN_Value& into) {
  std::int32_t string = 0;
  std::uint8_t head = 0;
  std::size_t length = 0;
  std::string_view bytes;
  switch (code) {
    case '@':
      return readObject(into, Position::leaf);
    case '#':
      return readClassLeaf(into);
    case '*':
      return readCString(string) && sharedText(string, into);
    case ':':
    case '%':
      return mStream.readShared(string) && sharedText(string, into);
    case '+':
      if (!mStream.readByte(head)) return false;
      if (head == archive::kNil) return true;
      if (!mStream.readLength(head, length) || !mStream.readBytes(length, bytes)) return false;
      into = ZAN_Value::data(bytes);
      return true;
    default:
      return readScalar(code, into);
  }
}

bool ZAN_ArchiveDecoder::readClassLeaf(ZAN_Value& into) {
  std::int32_t index = 0;
  if (!readClass(index)) return false;
  if (index < 0) return true;
  std::vector<ZAN_Value> chain;
  for (; index >= 0; index = mClasses[static_cast<std::size_t>(index)].super) {
    const ClassEntry& entry = mClasses[static_cast<std::size_t>(index)];
    ZAN_Value name;
    if (!charge(16 * sizeof(ZAN_Value)) || !sharedText(entry.name, name)) return false;
    chain.push_back(ZAN_Value::array({std::move(name), entry.version}));
  }
  into = ZAN_Value::array(std::move(chain));
  return true;
}

/// Many leaves may name one long string, so they share it.
bool ZAN_ArchiveDecoder::sharedText(std::int32_t string, ZAN_Value& into) {
  if (string == ZAN_ArchiveStream::kNoString) return true;
  const auto index = static_cast<std::size_t>(string);
  if (index >= mTexts.size()) mTexts.resize(index + 1);
  if (mTexts[index].isNull()) {
    const std::string_view text = mStream.shared(string).bytes;
    if (!isUtf8(text)) return mStream.fail("a name that is not UTF-8");
    mTexts[index] = ZAN_Value(text);
  }
  into = mTexts[index];
  return true;
}

}  // namespace corvana
