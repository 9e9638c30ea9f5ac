#include "ZANCocoaFramework/ZAN_ArchiveDecoder.h"

#include <algorithm>

#include "ZANCocoaFramework/ZAN_Utf8.h"

namespace corvana {

using archive::KnownClass;

namespace {

constexpr std::uint64_t kIndexLimit = std::uint64_t{1} << 32;
constexpr std::size_t kBudgetPerByte = 64;
constexpr std::size_t kLeastBudget = std::size_t{1} << 20;

}  // namespace

ZAN_ArchiveDecoder::ZAN_ArchiveDecoder(std::span<const std::byte> data,
                                       const std::vector<std::uint32_t>& asOpaque)
    : mStream(data), mAsOpaque(asOpaque), mBudget(kLeastBudget + kBudgetPerByte * data.size()) {
  // A guess that fits records of many small values and spares most of the growing.
  mSlots.reserve(data.size() / 12 + 8);
}

bool ZAN_ArchiveDecoder::decode(ZAN_Value& root) {
  std::int32_t types = 0;
  if (!mStream.readHeader()) return false;
  if (mStream.remaining() == 0) return mStream.fail("the archive holds no object");
  if (!mStream.readShared(types)) return false;
  if (types == ZAN_ArchiveStream::kNoString || mStream.shared(types).letter != '@') {
    return mStream.fail("the archive does not begin with an object");
  }
  if (!readObject(root, Position::leaf)) return false;
  return mStream.remaining() == 0 || mStream.fail("bytes after the end of the root object");
}

bool ZAN_ArchiveDecoder::readObject(ZAN_Value& into, Position position) {
  std::uint8_t head = 0;
  if (!mStream.readByte(head)) return false;
  if (head == archive::kNew) return readNewObject(into, position);
  if (head != archive::kNil) return readReference(head, into);
  return position == Position::leaf || mStream.fail("nil within a container");
}

bool ZAN_ArchiveDecoder::readReference(std::uint8_t head, ZAN_Value& into) {
  std::size_t index = 0;
  if (!mStream.readReference(head, mSlots.size(), index)) return false;
  const Slot& slot = mSlots[index];
  if (slot.kind == Slot::Kind::open) return mStream.fail("an object within itself");
  if (slot.kind != Slot::Kind::object)
    return mStream.fail("a reference to something else than an object");
  ZAN_Value& first = *slot.value;
  if (first.identity() == 0) {
    first.setScalarIdentity(static_cast<std::uint32_t>(index) + 1);
    ZAN_TextPool::markShared(first);
  }
  into = first;
  return true;
}

bool ZAN_ArchiveDecoder::readNewObject(ZAN_Value& into, Position position) {
  if (mDepth == archive::kDepthLimit) {
    return mStream.fail("objects are nested too deeply", ErrorKind::limit);
  }
  const auto number = static_cast<std::uint32_t>(mSlots.size());
  mSlots.push_back({&into, 0, Slot::Kind::open});
  std::int32_t classIndex = -1;
  if (!readClass(classIndex)) return false;
  if (classIndex < 0) return mStream.fail("an object without a class");

  const std::uint32_t outer = mCurrent;
  mCurrent = number;
  ++mDepth;
  KnownClass known = mClasses[static_cast<std::size_t>(classIndex)].known;
  if (!mAsOpaque.empty() && std::ranges::find(mAsOpaque, number) != mAsOpaque.end()) {
    known = KnownClass::none;
  }
  const bool opaque =
      known == KnownClass::none || known == KnownClass::object || known == KnownClass::valueObject;
  if (opaque) {
    if (!readOpaque(classIndex, into)) return false;
  } else {
    if (!readContents(known, into, position)) return false;
    if (!mStream.takeIf(archive::kEnd)) return doesNotFit();
  }
  --mDepth;
  mCurrent = outer;
  mSlots[number].kind = Slot::Kind::object;
  return true;
}

bool ZAN_ArchiveDecoder::readContents(KnownClass known, ZAN_Value& into, Position position) {
  switch (known) {
    case KnownClass::null:
      into.setScalarIdentity(mCurrent + 1);
      return true;
    case KnownClass::number:
      return readNumber(into);
    case KnownClass::date:
      return readDate(into);
    case KnownClass::string:
      return readText(into, position);
    case KnownClass::data:
      return readData(into);
    case KnownClass::array:
      return readElements('i', into);
    case KnownClass::dictionary:
      return readDictionary(into);
    case KnownClass::set:
      return readElements('I', into);
    case KnownClass::indexSet:
      return readIndexSet(into);
    default:
      break;
  }
  // The mutable classes add a name to the chain and nothing else.
  const KnownClass super = archive::layout(known).super;
  if (!readContents(super, into, position)) return false;
  into.setMutable(true);
  return true;
}

bool ZAN_ArchiveDecoder::readClass(std::int32_t& index) {
  const std::size_t first = mSlots.size();
  std::vector<ClassEntry> chain;
  std::uint8_t head = 0;
  if (!mStream.readByte(head)) return false;
  while (head == archive::kNew) {
    if (chain.size() == archive::kClassDepthLimit) {
      return mStream.fail("a class with too many superclasses", ErrorKind::limit);
    }
    mSlots.push_back({nullptr, 0, Slot::Kind::open});
    std::int64_t version = 0;
    ClassEntry entry{};
    if (!mStream.readShared(entry.name)) return false;
    if (entry.name == ZAN_ArchiveStream::kNoString) return mStream.fail("a class without a name");
    if (!isUtf8(mStream.shared(entry.name).bytes))
      return mStream.fail("a class name that is not UTF-8");
    if (!mStream.readInteger(4, version)) return false;
    entry.version = static_cast<std::int32_t>(version);
    chain.push_back(entry);
    if (!mStream.readByte(head)) return false;
  }
  index = -1;
  if (head != archive::kNil) {
    std::size_t reference = 0;
    if (!mStream.readReference(head, mSlots.size(), reference)) return false;
    const Slot& slot = mSlots[reference];
    if (slot.kind != Slot::Kind::classEntry) {
      return mStream.fail("a reference to something else than a class");
    }
    index = static_cast<std::int32_t>(slot.index);
  }
  for (std::size_t i = chain.size(); i-- > 0;) {
    ClassEntry& entry = chain[i];
    const ClassEntry* super = index < 0 ? nullptr : &mClasses[static_cast<std::size_t>(index)];
    entry.super = index;
    entry.depth = super == nullptr ? 1 : super->depth + 1;
    if (entry.depth > archive::kClassDepthLimit) {
      return mStream.fail("a class with too many superclasses", ErrorKind::limit);
    }
    // A known class below an unknown one is not the class we know.
    const bool knownSuper = super == nullptr || super->known != KnownClass::none;
    if (knownSuper) {
      entry.known = archive::knownClass(mStream.shared(entry.name).bytes, entry.version,
                                        super == nullptr ? KnownClass::none : super->known);
    }
    index = static_cast<std::int32_t>(mClasses.size());
    mClasses.push_back(entry);
    mSlots[first + i] = {nullptr, static_cast<std::uint32_t>(index), Slot::Kind::classEntry};
  }
  return true;
}

bool ZAN_ArchiveDecoder::readCString(std::int32_t& string) {
  std::uint8_t head = 0;
  if (!mStream.readByte(head)) return false;
  string = ZAN_ArchiveStream::kNoString;
  if (head == archive::kNil) return true;
  if (head == archive::kNew) {
    const std::size_t number = mSlots.size();
    mSlots.push_back({nullptr, 0, Slot::Kind::open});
    if (!mStream.readShared(string)) return false;
    if (string == ZAN_ArchiveStream::kNoString) return mStream.fail("a new string that is nil");
    mSlots[number] = {nullptr, static_cast<std::uint32_t>(string), Slot::Kind::cString};
    return true;
  }
  std::size_t index = 0;
  if (!mStream.readReference(head, mSlots.size(), index)) return false;
  if (mSlots[index].kind != Slot::Kind::cString) {
    return mStream.fail("a reference to something else than a string");
  }
  string = static_cast<std::int32_t>(mSlots[index].index);
  return true;
}

bool ZAN_ArchiveDecoder::expectGroup(char letter) {
  if (mStream.takeIf(archive::kEnd)) return doesNotFit();
  std::int32_t types = 0;
  if (!mStream.readShared(types)) return false;
  if (types == ZAN_ArchiveStream::kNoString) return mStream.fail("values without a type");
  return mStream.shared(types).letter == letter || doesNotFit();
}

/// The root object is what a file is for: a file whose root is not as it should be is damaged.
bool ZAN_ArchiveDecoder::doesNotFit(const char* reason) {
  if (mCurrent != 0) mMisfit = mCurrent;
  return mStream.fail(reason);
}

bool ZAN_ArchiveDecoder::reserve(std::size_t count, std::size_t bytesEach) {
  const std::size_t free = mStream.remaining() - std::min(mStream.remaining(), mPromised);
  if (count > free / bytesEach) return doesNotFit("more elements announced than there can be");
  mPromised += count * bytesEach;
  return true;
}

bool ZAN_ArchiveDecoder::readText(ZAN_Value& into, Position position) {
  std::size_t length = 0;
  std::string_view text;
  if (!expectGroup('+') || !mStream.readLength(length) || !mStream.readBytes(length, text)) {
    return false;
  }
  if (!isUtf8(text)) return mStream.fail("a text that is not UTF-8");
  into = position == Position::key ? mKeys.text(text) : ZAN_Value(text);
  return true;
}

bool ZAN_ArchiveDecoder::readData(ZAN_Value& into) {
  std::size_t length = 0;
  std::string_view bytes;
  if (!expectGroup('i') || !mStream.readLength(length)) return false;
  if (mStream.takeIf(archive::kEnd)) return doesNotFit();
  std::int32_t types = 0;
  if (!mStream.readShared(types)) return false;
  if (types == ZAN_ArchiveStream::kNoString) return mStream.fail("values without a type");
  if (mStream.shared(types).letter != ZAN_ArchiveStream::kBytes) return doesNotFit();
  if (mStream.shared(types).count != length) return mStream.fail("data of two different lengths");
  if (!mStream.readBytes(length, bytes)) return false;
  into = ZAN_Value::data(bytes);
  return true;
}

bool ZAN_ArchiveDecoder::readDate(ZAN_Value& into) {
  double time = 0;
  if (!expectGroup('d') || !mStream.readReal('d', time)) return false;
  into = ZAN_Value::date(time);
  return true;
}

bool ZAN_ArchiveDecoder::readNumber(ZAN_Value& into) {
  std::int32_t encoding = 0;
  if (!expectGroup('*') || !readCString(encoding)) return false;
  const char letter =
      encoding == ZAN_ArchiveStream::kNoString ? '\0' : mStream.shared(encoding).letter;
  if (!archive::isNumberLetter(letter)) return doesNotFit();
  return expectGroup(letter) && readScalar(letter, into);
}

bool ZAN_ArchiveDecoder::readScalar(char letter, ZAN_Value& into) {
  std::int64_t number = 0;
  std::uint8_t byte = 0;
  double real = 0;
  switch (letter) {
    case 'c':
    case 'C':
    case 'B':
      if (!mStream.readByte(byte)) return false;
      number = letter == 'c' ? static_cast<std::int8_t>(byte) : byte;
      break;
    case 'f':
    case 'd':
      if (!mStream.readReal(letter, real)) return false;
      into = ZAN_Value::real(real, letter);
      return true;
    case 's':
    case 'S':
      if (!mStream.readInteger(2, number)) return false;
      if (letter == 'S') number = static_cast<std::uint16_t>(number);
      break;
    case 'q':
    case 'Q':
      if (!mStream.readInteger(8, number)) return false;
      break;
    default:
      // "l" has 32 bits here whatever it had where it was written.
      if (!mStream.readInteger(4, number)) return false;
      letter = letter == 'l' ? 'i' : letter == 'L' ? 'I' : letter;
      if (letter == 'I') number = static_cast<std::uint32_t>(number);
  }
  into = ZAN_Value::integer(number, letter);
  return true;
}

bool ZAN_ArchiveDecoder::readElements(char countLetter, ZAN_Value& into) {
  std::size_t count = 0;
  if (!expectGroup(countLetter) || !mStream.readLength(count) || !reserve(count, 2)) return false;
  std::vector<ZAN_Value> elements;
  elements.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    mPromised -= 2;
    if (!expectGroup('@') || !readObject(elements.emplace_back(), Position::element)) return false;
  }
  into = countLetter == 'I' ? ZAN_Value::set(std::move(elements))
                            : ZAN_Value::array(std::move(elements));
  return true;
}

bool ZAN_ArchiveDecoder::readDictionary(ZAN_Value& into) {
  std::size_t count = 0;
  if (!expectGroup('i') || !mStream.readLength(count) || !reserve(count, 4)) return false;
  std::vector<ZAN_Value::Entry> entries;
  entries.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    mPromised -= 4;
    ZAN_Value::Entry& entry = entries.emplace_back();
    if (!expectGroup('@') || !readObject(entry.key, Position::key)) return false;
    if (!expectGroup('@') || !readObject(entry.value, Position::element)) return false;
  }
  into = ZAN_Value::dictionaryOf(std::move(entries));
  return true;
}

bool ZAN_ArchiveDecoder::readUnsigned32(std::uint64_t& value) {
  std::int64_t number = 0;
  if (!expectGroup('I') || !mStream.readInteger(4, number)) return false;
  value = static_cast<std::uint32_t>(number);
  return true;
}

bool ZAN_ArchiveDecoder::readIndexSet(ZAN_Value& into) {
  std::uint64_t count = 0;
  if (!readUnsigned32(count)) return false;
  if (count > mStream.remaining() / 4) return doesNotFit("more ranges announced than there can be");
  std::vector<ZAN_Value::Range> ranges;
  ranges.reserve(count);
  for (std::uint64_t i = 0; i < count; ++i) {
    ZAN_Value::Range& range = ranges.emplace_back();
    if (!readUnsigned32(range.location) || !readUnsigned32(range.length)) return false;
    if (range.length == 0) return mStream.fail("an empty range of indexes");
    if (range.length > kIndexLimit - range.location)
      return mStream.fail("a range of indexes without end");
  }
  into = ZAN_Value::indexSet(std::move(ranges));
  return true;
}

}  // namespace corvana
