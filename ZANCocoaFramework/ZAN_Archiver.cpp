#include "ZANCocoaFramework/ZAN_Archiver.h"

#include "ZANCocoaFramework/ZAN_ArchiveDecoder.h"
#include "ZANCocoaFramework/ZAN_ArchiveEncoder.h"
#include "ZANCocoaFramework/ZAN_KeyedDecoder.h"
#include "ZANCocoaFramework/ZAN_PropertyList.h"

namespace corvana {

std::vector<std::byte> ZAN_Archiver::archivedDataWithRootObject(const ZAN_Value& root) {
  return ZAN_ArchiveEncoder().encode(root);
}

namespace {

constexpr std::size_t kSizeLimit = std::size_t{1} << 30;
/// Each costs another pass over the data.
constexpr std::size_t kMisfitLimit = 16;

}  // namespace

Result<ZAN_Value> ZAN_Unarchiver::unarchiveObjectWithData(std::span<const std::byte> data) {
  if (data.size() > kSizeLimit) return Error{ErrorKind::limit, "the archive is too large"};
  std::vector<std::uint32_t> asOpaque;
  for (;;) {
    ZAN_Value root;
    ZAN_ArchiveDecoder decoder(data, asOpaque);
    if (decoder.decode(root)) return root;
    if (decoder.misfit() < 0 || asOpaque.size() == kMisfitLimit) return decoder.error();
    asOpaque.push_back(static_cast<std::uint32_t>(decoder.misfit()));
  }
}

bool ZAN_Unarchiver::isArchive(std::span<const std::byte> data) {
  const std::string_view bytes(reinterpret_cast<const char*>(data.data()), data.size());
  if (bytes.size() < 13 || bytes[1] != static_cast<char>(archive::kLittleEndianSignature.size()))
    return false;
  const std::string_view signature = bytes.substr(2);
  return signature.starts_with(archive::kLittleEndianSignature) ||
         signature.starts_with(archive::kBigEndianSignature);
}

bool ZAN_KeyedUnarchiver::isKeyedArchive(const ZAN_Value& propertyList) {
  return propertyList["$archiver"].isString() && propertyList["$objects"].isArray() &&
         propertyList["$top"].isDictionary();
}

Result<ZAN_Value> ZAN_KeyedUnarchiver::unarchiveObject(const ZAN_Value& propertyList) {
  if (!isKeyedArchive(propertyList)) return Error{ErrorKind::damaged, "this is no keyed archive"};
  return ZAN_KeyedDecoder(propertyList).decode();
}

Result<ZAN_Value> ZAN_KeyedUnarchiver::unarchiveObjectWithData(std::span<const std::byte> data) {
  const auto list = ZAN_PropertyList::propertyListWithData(data);
  if (!list) return list.error();
  return unarchiveObject(*list);
}

}  // namespace corvana
