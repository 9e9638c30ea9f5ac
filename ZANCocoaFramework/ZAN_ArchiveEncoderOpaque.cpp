// Objects of classes that have no value of their own: written as they were read.

#include "ZANCocoaFramework/ZAN_ArchiveEncoder.h"

namespace corvana {

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
