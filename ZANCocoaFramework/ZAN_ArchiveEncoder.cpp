#include "ZANCocoaFramework/ZAN_ArchiveEncoder.h"

#include <bit>
#include <charconv>

#include "ZANCocoaFramework/ZAN_Utf8.h"
#include "ZANCocoaFramework/ZAN_ValueNodes.h"

// Objects of classes that have no value of their own: written as they were read.

namespace corvana {

using archive::KnownClass;
using Kind = ZAN_Value::Kind;

std::uint32_t ZAN_SharedObjects::numberOf(const ZAN_Value& value, std::uint32_t number) {
  Slot key{value.identity(), 0, number, 0};
  if (value.isNumber() || value.isDate()) {
    const double real = value.isDate() ? *value.asDate() : value.doubleValue();
    key.contents = value.isDate() || value.isReal()
                       ? std::bit_cast<std::uint64_t>(real)
                       : static_cast<std::uint64_t>(value.integerValue());
    key.shape =
        static_cast<std::uint32_t>(value.kind()) << 8 | static_cast<unsigned char>(value.letter());
  }
  Slot& slot = find(key);
  if (slot.identity != 0) return slot.number;
  slot = key;
  if (++mCount * 2 > mSlots.size()) grow();
  return number;
}

ZAN_SharedObjects::Slot& ZAN_SharedObjects::find(const Slot& key) {
  constexpr std::uint64_t kMultiplier = 0x9e3779b97f4a7c15U;
  const std::uint64_t mixed = (hashSeed() ^ key.identity) * kMultiplier;
  const std::uint64_t hash = (mixed ^ mixed >> 29 ^ key.contents) * kMultiplier;
  const std::size_t mask = mSlots.size() - 1;
  for (std::size_t i = (hash >> 32) & mask;; i = (i + 1) & mask) {
    Slot& slot = mSlots[i];
    if (slot.identity == 0 || (slot.identity == key.identity && slot.contents == key.contents &&
                               slot.shape == key.shape)) {
      return slot;
    }
  }
}

void ZAN_SharedObjects::grow() {
  std::vector<Slot> old(mSlots.size() * 2);
  old.swap(mSlots);
  for (const Slot& slot : old) {
    if (slot.identity != 0) find(slot) = slot;
  }
}

std::vector<std::byte> ZAN_ArchiveEncoder::encode(const ZAN_Value& root) {
  mOutput.writeHeader();
  mOutput.writeGroup('@');
  writeObject(root, true);
  return mOutput.take();
}

void ZAN_ArchiveEncoder::writeObject(const ZAN_Value& value, bool mayBeNil) {
  const ZAN_Opaque* opaque = value.asOpaque();
  const bool unwritable = value.isOpaque() && (opaque == nullptr || !canWrite(*opaque));
  if (mayBeNil && (unwritable || (value.isNull() && value.identity() == 0))) {
    return mOutput.writeByte(archive::kNil);
  }
  if (value.isNull() && value.identity() == 0) {
    // There is only one null object in a program, so every place after the first names that.
    ZAN_Value null;
    null.setScalarIdentity(archive::kNullObject);
    return writeObject(null, false);
  }
  if (value.mayBeShared()) {
    const std::uint32_t number = mShared.numberOf(value, mObjectCount);
    if (number != mObjectCount) return mOutput.writeReference(number);
  }
  mOutput.writeByte(archive::kNew);
  ++mObjectCount;
  if (value.isOpaque() && !unwritable) {
    writeOpaque(*opaque);
  } else {
    writeKnownClass(unwritable ? KnownClass::null : archive::classOf(value));
    writeContents(value);
  }
  mOutput.writeByte(archive::kEnd);
}

void ZAN_ArchiveEncoder::writeContents(const ZAN_Value& value) {
  switch (value.kind()) {
    case Kind::null:
    case Kind::opaque:
      break;
    case Kind::number:
      writeNumber(value);
      break;
    case Kind::string:
      writeText(value.stringView());
      break;
    case Kind::data:
      writeData(value.bytes());
      break;
    case Kind::date:
      mOutput.writeGroup('d');
      mOutput.writeReal(*value.asDate(), 'd');
      break;
    case Kind::array:
    case Kind::set:
      mOutput.writeGroup(value.isSet() ? 'I' : 'i');
      mOutput.writeInteger(static_cast<std::int64_t>(value.size()));
      for (const ZAN_Value& element : value.elements()) {
        mOutput.writeGroup('@');
        writeObject(element, false);
      }
      break;
    case Kind::dictionary:
      mOutput.writeGroup('i');
      mOutput.writeInteger(static_cast<std::int64_t>(value.size()));
      for (const ZAN_Value::Entry& entry : value.entries()) {
        mOutput.writeGroup('@');
        writeObject(entry.key, false);
        mOutput.writeGroup('@');
        writeObject(entry.value, false);
      }
      break;
    case Kind::indexSet:
      writeIndexSet(value);
      break;
  }
}

/// File names of this system need not be UTF-8, readers insist on it.
void ZAN_ArchiveEncoder::writeText(std::string_view text) {
  mOutput.writeGroup('+');
  if (isUtf8(text)) {
    mOutput.writeUnshared(text);
  } else {
    mOutput.writeUnshared(withReplacedBytes(text));
  }
}

void ZAN_ArchiveEncoder::writeData(std::span<const std::byte> bytes) {
  mOutput.writeGroup('i');
  mOutput.writeInteger(static_cast<std::int64_t>(bytes.size()));
  char types[24] = "[";
  char* end = std::to_chars(types + 1, types + sizeof types - 2, bytes.size()).ptr;
  *end++ = 'c';
  *end++ = ']';
  mOutput.writeShared({types, static_cast<std::size_t>(end - types)});
  mOutput.writeBytes({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
}

void ZAN_ArchiveEncoder::writeNumber(const ZAN_Value& value) {
  const char letter = archive::isNumberLetter(value.letter()) ? value.letter() : 'q';
  mOutput.writeGroup('*');
  writeCString({&letter, 1});
  mOutput.writeGroup(letter);
  writeScalar(letter, value);
}

void ZAN_ArchiveEncoder::writeScalar(char letter, const ZAN_Value& value) {
  const std::int64_t whole = value.integerValue();
  switch (letter) {
    case 'c':
    case 'C':
    case 'B':
      return mOutput.writeByte(static_cast<std::uint8_t>(whole));
    case 's':
    case 'S':
      return mOutput.writeInteger(static_cast<std::int16_t>(whole));
    case 'q':
    case 'Q':
      return mOutput.writeInteger(whole);
    case 'f':
    case 'd':
      return mOutput.writeReal(value.doubleValue(), letter);
    default:
      return mOutput.writeInteger(static_cast<std::int32_t>(whole));
  }
}

/// Locations and lengths have 32 bits in the archive; a range of which nothing is left is dropped.
void ZAN_ArchiveEncoder::writeIndexSet(const ZAN_Value& value) {
  std::vector<ZAN_Value::Range> ranges;
  for (const ZAN_Value::Range& range : value.ranges()) {
    const ZAN_Value::Range cut{static_cast<std::uint32_t>(range.location),
                               static_cast<std::uint32_t>(range.length)};
    if (cut.length != 0 && cut.location + cut.length <= std::uint64_t{1} << 32)
      ranges.push_back(cut);
  }
  mOutput.writeGroup('I');
  mOutput.writeInteger(static_cast<std::int64_t>(ranges.size()));
  for (const ZAN_Value::Range& range : ranges) {
    mOutput.writeGroup('I');
    mOutput.writeInteger(static_cast<std::int32_t>(range.location));
    mOutput.writeGroup('I');
    mOutput.writeInteger(static_cast<std::int32_t>(range.length));
  }
}

void ZAN_ArchiveEncoder::writeCString(std::string_view text) {
  const std::int64_t number = mCStrings.find(text);
  if (number != ZAN_ArchiveNumbers::kNone) return mOutput.writeReference(number);
  mCStrings.add(text, mObjectCount++);
  mOutput.writeByte(archive::kNew);
  mOutput.writeShared(text);
}

void ZAN_ArchiveEncoder::writeKnownClass(KnownClass known) {
  if (known == KnownClass::none) return mOutput.writeByte(archive::kNil);
  std::int64_t& number = mKnownClasses[static_cast<std::size_t>(known)];
  if (number != ZAN_ArchiveNumbers::kNone) return mOutput.writeReference(number);
  number = mObjectCount++;
  const archive::ClassLayout& layout = archive::layout(known);
  mOutput.writeByte(archive::kNew);
  mOutput.writeShared(layout.name);
  mOutput.writeInteger(layout.version);
  writeKnownClass(layout.super);
}

using archive::KnownClass;
using archive::Type;

/// Values that run out read as null, which is written as nil or 0.
struct ZAN_ArchiveEncoder::Leaves {
  std::span<const ZAN_Value> rest;

  const ZAN_Value& next() {
    static const ZAN_Value kNull{};
    if (rest.empty()) return kNull;
    const ZAN_Value& leaf = rest.front();
    rest = rest.subspan(1);
    return leaf;
  }
};

const ZAN_ArchiveEncoder::Types* ZAN_ArchiveEncoder::typesOf(const std::string& types) {
  auto found = mTypes.find(types);
  if (found == mTypes.end()) {
    found = mTypes.emplace(types, archive::parseTypes(types).value_or(Types())).first;
  }
  return found->second.empty() ? nullptr : &found->second;
}

/// An object of unknown contents can only be written when its types say how, and in full: a type
/// string may announce far more values than there are.
bool ZAN_ArchiveEncoder::canWrite(const ZAN_Opaque& opaque) {
  if (opaque.classes.empty()) return false;
  for (const ZAN_Opaque::Group& group : opaque.groups) {
    const Types* types = typesOf(group.types);
    if (types == nullptr) return false;
    std::uint64_t leaves = 0;
    for (const Type& type : *types) leaves += type.leaves();
    if (leaves != group.leaves.size()) return false;
    Leaves rest{group.leaves};
    for (const Type& type : *types) {
      if (!fits(type, rest)) return false;
    }
  }
  return true;
}

bool ZAN_ArchiveEncoder::fits(const Type& type, Leaves& leaves) {
  if (type.isBytes()) {
    const ZAN_Value& leaf = leaves.next();
    return leaf.isData() && leaf.bytes().size() == type.count;
  }
  if (type.code != '[' && type.code != '{') {
    leaves.next();
    return true;
  }
  const std::uint32_t times = type.code == '[' ? type.count : 1;
  for (std::uint32_t i = 0; i < times; ++i) {
    for (const Type& part : type.parts) {
      if (!fits(part, leaves)) return false;
    }
  }
  return true;
}

void ZAN_ArchiveEncoder::writeOpaque(const ZAN_Opaque& opaque) {
  writeChain(opaque.classes);
  for (const ZAN_Opaque::Group& group : opaque.groups) {
    mOutput.writeShared(group.types);
    Leaves leaves{group.leaves};
    for (const Type& type : *typesOf(group.types)) writeLeaves(type, leaves);
  }
}

void ZAN_ArchiveEncoder::writeLeaves(const Type& type, Leaves& leaves) {
  if (type.isBytes()) {
    const std::span<const std::byte> bytes = leaves.next().bytes();
    return mOutput.writeBytes({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
  }
  if (type.code != '[' && type.code != '{') return writeLeaf(type.code, leaves.next());
  const std::uint32_t times = type.code == '[' ? type.count : 1;
  for (std::uint32_t i = 0; i < times; ++i) {
    for (const Type& part : type.parts) writeLeaves(part, leaves);
  }
}

void ZAN_ArchiveEncoder::writeLeaf(char code, const ZAN_Value& leaf) {
  switch (code) {
    case '@':
      return writeObject(leaf, true);
    case '#':
      return writeClassLeaf(leaf);
    case '*':
      return leaf.isString() ? writeCString(leaf.stringView()) : mOutput.writeByte(archive::kNil);
    case ':':
    case '%':
      return leaf.isString() ? mOutput.writeShared(leaf.stringView())
                             : mOutput.writeByte(archive::kNil);
    case '+': {
      if (!leaf.isData()) return mOutput.writeByte(archive::kNil);
      const auto bytes = leaf.bytes();
      return mOutput.writeUnshared({reinterpret_cast<const char*>(bytes.data()), bytes.size()});
    }
    default:
      return writeScalar(code, leaf);
  }
}

void ZAN_ArchiveEncoder::writeClassLeaf(const ZAN_Value& leaf) {
  std::vector<ZAN_Opaque::ClassName> chain;
  for (const ZAN_Value& entry : leaf.elements()) {
    chain.push_back({entry.at(0).string(), entry.at(1).integerValue()});
  }
  writeChain(chain);
}

void ZAN_ArchiveEncoder::writeChain(Chain chain) {
  const auto nameOf = [&](std::size_t first) {
    std::string name;
    for (const auto& entry : chain.subspan(first)) {
      name += entry.name + '\0' + std::to_string(entry.version) + '\0';
    }
    return name;
  };
  const std::int64_t number = mOtherClasses.find(nameOf(0));
  if (number != ZAN_ArchiveNumbers::kNone) return mOutput.writeReference(number);

  std::vector<KnownClass> known(chain.size() + 1, KnownClass::none);
  for (std::size_t i = chain.size(); i-- > 0;) {
    const bool knownSuper = i + 1 == chain.size() || known[i + 1] != KnownClass::none;
    if (knownSuper) known[i] = archive::knownClass(chain[i].name, chain[i].version, known[i + 1]);
  }
  for (std::size_t i = 0; i < chain.size(); ++i) {
    if (known[i] != KnownClass::none) return writeKnownClass(known[i]);
    const std::string name = nameOf(i);
    const std::int64_t super = mOtherClasses.find(name);
    if (super != ZAN_ArchiveNumbers::kNone) return mOutput.writeReference(super);
    mOtherClasses.add(name, mObjectCount++);
    mOutput.writeByte(archive::kNew);
    mOutput.writeShared(chain[i].name);
    mOutput.writeInteger(static_cast<std::int32_t>(chain[i].version));
  }
  mOutput.writeByte(archive::kNil);
}

}  // namespace corvana
