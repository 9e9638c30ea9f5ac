#include "ZANCocoaFramework/ZAN_Unarchiver.h"

#include <string_view>
#include <vector>

#include "ZANCocoaFramework/ZAN_ArchiveDecoder.h"

namespace corvana {

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

}  // namespace corvana
